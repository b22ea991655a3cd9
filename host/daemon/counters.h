// What the host counts, with the names the JSON file gives them.
#pragma once

#include <cstdint>

namespace kv1905d {

struct Counters {
    uint64_t framesReceived = 0;
    uint64_t framesSent = 0;
    uint64_t framesDropped = 0;  // not for this device, not a message, or our own
    uint64_t sendFailures = 0;   // frames the interface did not take
    uint64_t messagesReceived = 0;
    uint64_t messagesRelayed = 0;
    uint64_t duplicatesDropped = 0;
    uint64_t reassemblyTimeouts = 0;
    uint64_t reassemblyEvictions = 0;
    uint64_t parseFailures = 0;
    uint64_t vendorTlvsReceived = 0;
    uint64_t vendorTlvsRefused = 0;  // by the settings guard
    uint64_t vendorMessagesSent = 0;
};

struct CounterRow {
    const char *name;
    uint64_t Counters::*field;
};

inline constexpr CounterRow kCounterRows[] = {
    {"FramesReceived", &Counters::framesReceived},
    {"FramesSent", &Counters::framesSent},
    {"FramesDropped", &Counters::framesDropped},
    {"SendFailures", &Counters::sendFailures},
    {"MessagesReceived", &Counters::messagesReceived},
    {"MessagesRelayed", &Counters::messagesRelayed},
    {"DuplicatesDropped", &Counters::duplicatesDropped},
    {"ReassemblyTimeouts", &Counters::reassemblyTimeouts},
    {"ReassemblyEvictions", &Counters::reassemblyEvictions},
    {"ParseFailures", &Counters::parseFailures},
    {"VendorTlvsReceived", &Counters::vendorTlvsReceived},
    {"VendorTlvsRefused", &Counters::vendorTlvsRefused},
    {"VendorMessagesSent", &Counters::vendorMessagesSent},
};

}  // namespace kv1905d
