// A 48-bit MAC address in transmission order.
#pragma once

#include <algorithm>
#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kv1905d {

struct MacAddress {
    std::array<uint8_t, 6> bytes{};

    auto operator<=>(const MacAddress &) const = default;

    bool isGroup() const { return (bytes[0] & 1) != 0; }
    bool isZero() const { return *this == MacAddress{}; }

    // `from` points to 6 readable bytes.
    static MacAddress copyOf(const uint8_t *from) {
        MacAddress mac;
        std::copy_n(from, mac.bytes.size(), mac.bytes.begin());
        return mac;
    }

    // Writes lower-case hex digits and colons.
    std::array<char, 17> characters() const {
        constexpr char digits[] = "0123456789abcdef";
        std::array<char, 17> out;
        out.fill(':');
        for (size_t i = 0; i < bytes.size(); ++i) {
            out[3 * i] = digits[bytes[i] >> 4];
            out[3 * i + 1] = digits[bytes[i] & 15];
        }
        return out;
    }
    std::string text() const {
        const std::array<char, 17> out = characters();
        return {out.begin(), out.end()};
    }

    // Parses exactly six two-digit hex groups separated by colons.
    static std::optional<MacAddress> parse(std::string_view text) {
        constexpr std::string_view digits = "0123456789abcdef";
        if (text.size() != 17) return std::nullopt;
        MacAddress mac;
        for (size_t i = 0; i < text.size(); ++i) {
            if (i % 3 == 2) {
                if (text[i] != ':') return std::nullopt;
                continue;
            }
            const char c = (text[i] >= 'A' && text[i] <= 'F') ? static_cast<char>(text[i] - 'A' + 'a') : text[i];
            const size_t digit = digits.find(c);
            if (digit == std::string_view::npos) return std::nullopt;
            uint8_t &byte = mac.bytes[i / 3];
            byte = static_cast<uint8_t>(size_t{byte} * 16 + digit);
        }
        return mac;
    }
};

inline constexpr MacAddress kMulticastMac{{0x01, 0x80, 0xC2, 0x00, 0x00, 0x13}};

}  // namespace kv1905d
