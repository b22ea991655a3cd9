#include "daemon/json.h"

#include <algorithm>
#include <cstdint>
#include <cstdio>

namespace kv1905d {
namespace {

// Bytes of the well-formed UTF-8 character at the start of the text; 0 when there is none.
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

}  // namespace

std::string validUtf8(std::string_view text) {
    std::string out;
    for (std::string_view rest = text; !rest.empty();) {
        const size_t length = utf8Length(rest);
        out += length > 0 ? rest.substr(0, length) : std::string_view("\xEF\xBF\xBD");
        rest.remove_prefix(std::max<size_t>(length, 1));
    }
    return out;
}

Json::Json(std::string_view value) : text_("\"") {
    for (const char c : validUtf8(value)) {
        if (static_cast<uint8_t>(c) < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof escaped, "\\u%04x", static_cast<unsigned>(c));
            text_ += escaped;
            continue;
        }
        if (c == '"' || c == '\\') text_ += '\\';
        text_ += c;
    }
    text_ += '"';
}

Json::Json(std::nullptr_t) : text_("null") {}

Json::Json(bool value) : text_(value ? "true" : "false") {}

Json Json::of(std::string text) {
    Json json(nullptr);
    json.text_ = std::move(text);
    return json;
}

std::string Json::digits(int64_t value) {
    return std::to_string(value);
}

void JsonList::add(const Json &entry) {
    entries_ += count_++ == 0 ? "\n" : ",\n";
    entries_ += entry.text();
}

JsonList::operator Json() const {
    return Json::of(count_ == 0 ? "[]" : '[' + entries_ + "\n]");
}

void JsonObject::add(std::initializer_list<Member> members) {
    for (const auto &[key, value] : members) {
        members_ += members_.empty() ? "\"" : ", \"";
        members_ += key;
        members_ += "\": ";
        members_ += value.text();
    }
}

void JsonObject::addCounted(const char *countKey, const char *listKey, const JsonList &list) {
    add({{countKey, list.count()}, {listKey, list}});
}

JsonObject::operator Json() const {
    return Json::of('{' + members_ + '}');
}

}  // namespace kv1905d
