// Formats one line per vendor message, for `kv1905d --trace`.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "command/protocol.h"
#include "ieee1905/vendor_message.h"

namespace kv1905d {

// peer: the other device's AL MAC, or a word for many.
std::string traceLine(Direction direction, std::string_view peer, uint16_t msgId, const VendorMessage &message);

// Prints the line with the time of day on standard output, without buffering.
void printTrace(const std::string &line);

}  // namespace kv1905d
