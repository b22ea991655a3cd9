// One readable line per vendor message, for `kv1905d --trace`.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "daemon/vendor_message.h"

namespace kv1905d {

enum class Direction { In, Out };

// peer: the other device's AL MAC, or a word for many.
std::string traceLine(Direction direction, std::string_view peer, uint16_t msgId, const VendorMessage &message);

// Prints the line with the time of day on standard output, at once.
void printTrace(Direction direction, std::string_view peer, uint16_t msgId, const VendorMessage &message);

}  // namespace kv1905d
