// One readable line per vendor message, for `kv1905d --trace`.
#pragma once

#include <string>
#include <string_view>

#include "ieee1905/wire.h"

namespace kv1905d {

enum class Direction { In, Out };

/*
 * `value`: that of a vendor-specific TLV, its OUI first. `peer`: the other end's AL MAC, or a word for many. The line
 * is printable ASCII without an end of line, whatever the value holds. Of a password it tells the length alone.
 */
std::string traceLine(Direction direction, std::string_view peer, uint16_t msgId, ByteView value);

// Prints the line with the time of day on standard output, at once.
void printTrace(Direction direction, std::string_view peer, uint16_t msgId, ByteView value);

// What does not fit in a message of a family that is known, its name in front; empty for a message without fault. As
// printable as the line.
std::string faultOf(ByteView value);

}  // namespace kv1905d
