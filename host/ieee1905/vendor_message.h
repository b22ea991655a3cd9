// Reads vendor messages for trace, log and settings guard: one table of layouts, one parser of the envelopes.
#pragma once

#include <optional>
#include <string>

#include "ieee1905/wire.h"

namespace kv1905d {

// What a message may do to this device: the settings guard has rules for each.
enum class Admission {
    Free,           // nothing but be read: also what the plug-in ignores
    Request,        // cost time: it may have the plug-in run a program, or wait
    Setting,        // change this device, and cost time
    Command,        // the same, and be answered with a result
    Configuration,  // replace what is known of a device, and cost time
    Stations,       // add stations of a device
    Result,         // report the result of a command to the operator
    Unknown         // anything: a type of the vendor's or Intel's set that is not in the table
};

// Texts are printable ASCII without an end of line, whatever the message holds.
struct VendorMessage {
    std::string name{};      // of the message type, or words for an unknown one
    bool isForeign = false;  // of an OUI that the plug-in does not handle
    bool isVendors = false;  // of a type in the vendor's own set; Intel's is another
    Admission admission = Admission::Free;
    MacAddress subject{};                // the AL MAC that most payloads begin with; all zero in a shorter payload
    std::string words{};                 // summary of the message; of a password, only the length
    std::optional<std::string> fault{};  // first violation of the layout; only of known types
};

// `value`: that of a vendor-specific TLV, its OUI first.
VendorMessage readVendorMessage(ByteView value);

}  // namespace kv1905d
