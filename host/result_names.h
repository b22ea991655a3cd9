// Meanings of one-byte results, shared by the command tool, --trace and the Wireshark dissector.
#pragma once

#include <algorithm>
#include <cstdint>
#include <span>

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

// Power states of interfaces in IEEE 1905.1.
inline constexpr Meaning kPowerStates[] = {{0, "on"}, {1, "power save"}, {2, "off"}, {255, "not known"}};

// Returns null for a code without a row.
inline const char *meaningOf(std::span<const Meaning> rows, unsigned code) {
    const auto found = std::find_if(rows.begin(), rows.end(), [code](const Meaning &row) { return row.code == code; });
    return found == rows.end() ? nullptr : found->text;
}

}  // namespace kv1905d
