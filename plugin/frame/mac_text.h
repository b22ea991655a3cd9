// MAC addresses in text, one parser for each rule.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kv {

// Parses six fields of one or two hexadecimal digits, separated by colons; what follows is ignored. Returns mac, or
// null when a field is missing; the bytes before it are then already in mac. The operator's rule.
uint8_t *string2MacAddr(const char *text, uint8_t *mac);

// The same with fields of any length, of which the low bytes count. False when a field is missing. The rule of command
// words and of the device's own files.
bool scanMac(const char *text, uint8_t *mac);

// The rule of station lists: fields as in string2MacAddr, in a text that may end without a NUL and must hold nothing
// else. On false mac is unchanged.
bool parseMacText(const char *text, size_t length, uint8_t *mac);

// 0 to 15; -1 for anything but a hexadecimal digit.
int hexadecimalDigit(char c);

}  // namespace kv
