// Counters of the host, with their names in the JSON file.
#pragma once

#include <cstdint>

namespace kv1905d {

// X(NAME, FIELD) for each.
#define KV_COUNTERS(X)                                                           \
    X("FramesReceived", framesReceived)                                          \
    X("FramesSent", framesSent)                                                  \
    X("FramesDropped", framesDropped) /* not for this device, no message, own */ \
    X("FramesLate", framesLate)       /* waited too long for this process */     \
    X("EventsFailed", eventsFailed)   /* for want of memory, mostly */           \
    X("SendFailures", sendFailures)   /* frames the interface did not accept */  \
    X("MessagesReceived", messagesReceived)                                      \
    X("MessagesUnhandled", messagesUnhandled)                                    \
    X("MessagesRelayed", messagesRelayed)                                        \
    X("DuplicatesDropped", duplicatesDropped)                                    \
    X("ReassemblyTimeouts", reassemblyTimeouts)                                  \
    X("ReassemblyEvictions", reassemblyEvictions)                                \
    X("ParseFailures", parseFailures)                                            \
    X("VendorTlvsReceived", vendorTlvsReceived)                                  \
    X("VendorTlvsForeign", vendorTlvsForeign) /* of other vendors */             \
    X("VendorTlvsRefused", vendorTlvsRefused) /* by the settings guard */        \
    X("VendorMessagesSent", vendorMessagesSent)

struct Counters {
#define KV_COUNTER_FIELD(name, field) uint64_t field = 0;
    KV_COUNTERS(KV_COUNTER_FIELD)
#undef KV_COUNTER_FIELD
};

struct CounterRow {
    const char *name;
    uint64_t Counters::*field;
};

#define KV_COUNTER_ROW(name, field) {name, &Counters::field},
inline constexpr CounterRow kCounterRows[] = {KV_COUNTERS(KV_COUNTER_ROW)};
#undef KV_COUNTER_ROW

}  // namespace kv1905d
