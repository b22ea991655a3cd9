// Reads vendor messages for trace, log and settings guard: one table of layouts, one parser of the envelopes.
#pragma once

#include <optional>
#include <string>

#include "ieee1905/wire.h"

namespace kv1905d {

// What a message may do to this device, for the settings guard.
enum class Guarded { No, Setting, Configuration, Stations, Question };

// Texts are printable ASCII without an end of line, whatever the message holds.
struct VendorMessage {
    std::string name{};  // of the message type, or words for an unknown one
    Guarded guarded = Guarded::No;
    MacAddress subject{};                // the AL MAC that most payloads begin with; all zero in a shorter payload
    std::string words{};                 // what the message says; of a password, the length alone
    std::optional<std::string> fault{};  // what does not fit the layout; of known types alone
};

// `value`: that of a vendor-specific TLV, its OUI first.
VendorMessage readVendorMessage(ByteView value);

}  // namespace kv1905d
