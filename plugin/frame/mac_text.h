// MAC addresses in text, one parser for each rule.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kv {

// Parses six fields of one or two hexadecimal digits, separated by colons, and ignores what follows. Returns mac, or
// null if a field is missing, with the bytes before it already in mac. For operators' input.
uint8_t *string2MacAddr(const char *text, uint8_t *mac);

// Parses fields of any length, whose low bytes count. Returns false if a field is missing. For command words and the
// device's own files.
bool scanMac(const char *text, uint8_t *mac);

// Parses fields as string2MacAddr does, from a text that need not end in a NUL and must hold nothing else. Leaves mac
// unchanged on failure. For station lists.
bool parseMacText(const char *text, size_t length, uint8_t *mac);

// Returns 0 to 15, or -1 for anything but a hexadecimal digit.
int hexadecimalDigit(char c);

}  // namespace kv
