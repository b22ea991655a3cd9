#include "daemon/json.h"

#include <algorithm>
#include <cstdint>

namespace kv1905d {
namespace {

// Returns the length of the well-formed UTF-8 character at the start of the text, or 0.
size_t utf8Length(std::string_view text) {
    const auto byte = [&](size_t i) { return static_cast<uint8_t>(text[i]); };
    const uint8_t first = byte(0);
    if (first < 0x80) return 1;
    const size_t length = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || text.size() < length) return 0;
    for (size_t i = 1; i < length; ++i) {
        if ((byte(i) & 0xC0) != 0x80) return 0;
    }
    const uint8_t second = byte(1);
    const bool overlong = (first == 0xE0 && second < 0xA0) || (first == 0xF0 && second < 0x90);
    const bool surrogate = first == 0xED && second > 0x9F;
    const bool tooLarge = first == 0xF4 && second > 0x8F;
    return overlong || surrogate || tooLarge ? 0 : length;
}

bool isPlain(char c) {
    return c >= ' ' && c <= '~' && c != '"' && c != '\\';
}

// Terminals interpret U+0080 to U+009F as well, which are two bytes in UTF-8: C2 and the code.
bool isControl(std::string_view character) {
    const auto last = static_cast<uint8_t>(character.back());
    return character.size() == 1 ? last < 0x20 || last == 0x7F : character[0] == '\xC2' && last < 0xA0;
}

void appendSpecial(std::string &out, std::string_view character) {
    constexpr char digits[] = "0123456789abcdef";
    const auto last = static_cast<uint8_t>(character.back());
    if (isControl(character)) {
        out += "\\u00";
        out += digits[last >> 4];
        out += digits[last & 15];
        return;
    }
    if (character.size() == 1) out += '\\';
    out += character;
}

}  // namespace

void JsonWriter::write(std::string_view value) {
    text_ += '"';
    for (std::string_view rest = value; !rest.empty();) {
        const auto plainEnd = std::find_if_not(rest.begin(), rest.end(), isPlain);
        text_.append(rest.begin(), plainEnd);
        rest.remove_prefix(static_cast<size_t>(plainEnd - rest.begin()));
        if (rest.empty()) break;
        const size_t length = utf8Length(rest);
        if (length == 0) {
            text_ += "\xEF\xBF\xBD";
        } else {
            appendSpecial(text_, rest.substr(0, length));
        }
        rest.remove_prefix(std::max<size_t>(length, 1));
    }
    text_ += '"';
}

void JsonWriter::write(const MacAddress &value) {
    const auto characters = value.characters();
    text_ += '"';
    text_.append(characters.begin(), characters.end());
    text_ += '"';
}

}  // namespace kv1905d
