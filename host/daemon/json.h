// JSON as text: values are appended as they are made, because stations by the thousand take ten times as much memory as
// objects as they take as text.
#pragma once

#include <concepts>
#include <cstddef>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>

#include "ieee1905/mac_address.h"

namespace kv1905d {

// The text with every byte that is not valid UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

class Json {
  public:
    Json(std::string_view value);
    Json(const std::string &value) : Json(std::string_view(value)) {}
    Json(const char *value) : Json(std::string_view(value)) {}
    Json(const MacAddress &value) : text_('"' + value.text() + '"') {}
    Json(std::nullptr_t) : text_("null") {}
    Json(std::integral auto value) : text_(std::to_string(value)) {}
    Json(bool value) : text_(value ? "true" : "false") {}
    static Json of(std::string text) {  // is JSON already
        Json json(nullptr);
        json.text_ = std::move(text);
        return json;
    }
    const std::string &text() const { return text_; }

  private:
    std::string text_;
};

// An entry a line.
class JsonList {
  public:
    void add(const Json &entry) { entries_ += (count_++ == 0 ? "\n" : ",\n") + entry.text(); }
    size_t count() const { return count_; }
    operator Json() const { return Json::of(count_ == 0 ? "[]" : '[' + entries_ + "\n]"); }

  private:
    std::string entries_;
    size_t count_ = 0;
};

class JsonObject {
  public:
    using Member = std::pair<const char *, Json>;

    JsonObject(std::initializer_list<Member> members = {}) { add(members); }
    void add(std::initializer_list<Member> members) {
        for (const auto &[key, value] : members)
            members_ += (members_.empty() ? "\"" : ", \"") + std::string(key) + "\": " + value.text();
    }
    // A list and the number of its entries.
    void addCounted(const char *countKey, const char *listKey, const JsonList &list) {
        add({{countKey, list.count()}, {listKey, list}});
    }
    operator Json() const { return Json::of('{' + members_ + '}'); }

  private:
    std::string members_;
};

}  // namespace kv1905d
