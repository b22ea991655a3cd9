// MAC addresses as people type them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kv {

// Parses six fields of one or two hexadecimal digits, separated by colons; what follows is ignored. Returns mac, or
// null when a field is missing; the bytes before it are then already in mac.
uint8_t *string2MacAddr(const char *text, uint8_t *mac);

// 0 to 15; -1 for anything but a hexadecimal digit.
int hexadecimalDigit(char c);

// The same for a text of known length that may end without a NUL and must hold nothing else. On false mac is unchanged.
bool parseMacText(const char *text, size_t length, uint8_t *mac);

}  // namespace kv
