#include "support/terminal_text.h"

namespace support {

std::string escaped(std::string_view text, std::string_view special) {
    constexpr char kHex[] = "0123456789abcdef";
    std::string out;
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c >= ' ' && c <= '~' && special.find(c) == std::string_view::npos) {
            out += c;
        } else {
            out += {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
        }
    }
    return out;
}

}  // namespace support
