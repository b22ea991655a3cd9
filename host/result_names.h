// What the one-byte results of messages mean, for people: command tool, --trace and the Wireshark dissector say the
// same.
#pragma once

#include <cstdint>

namespace kv1905d {

struct Meaning {
    uint8_t code;
    const char *text;
};

inline constexpr Meaning kResultMeanings[] = {
    {0, "success"},
    {7, "not this device's AL MAC"},
    {16, "refused or failed, see its log"},
};

}  // namespace kv1905d
