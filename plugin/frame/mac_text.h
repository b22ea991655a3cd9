// MAC addresses as people type them.
#pragma once

#include <cstdint>

namespace kv {

// Parses six fields of one or two hexadecimal digits, separated by colons; what follows is ignored. Returns mac, or
// null when a field is missing; the bytes before it are then already in mac.
uint8_t *string2MacAddr(const char *text, uint8_t *mac);

}  // namespace kv
