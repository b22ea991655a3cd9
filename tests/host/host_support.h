// Shared by the host's tests.
#pragma once

#include <string_view>

#include "ieee1905/cmdu.h"

namespace kv1905d {

// "01 80 C2" as bytes; blanks may be left out.
inline Bytes fromHex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (const char c : text) {
        if (c == ' ') continue;
        const int digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
        if (high < 0) {
            high = digit;
        } else {
            bytes.push_back(static_cast<uint8_t>(high * 16 + digit));
            high = -1;
        }
    }
    return bytes;
}

inline MacAddress mac(uint8_t device, uint8_t port = 0) {
    return {{0x02, 0x00, 0x5E, 0x00, device, port}};
}

}  // namespace kv1905d
