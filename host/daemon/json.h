// JSON as text: values are appended as they are made, because stations by the thousand take ten times as much memory as
// objects as they take as text.
#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
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
    Json(const MacAddress &value) : Json(value.text()) {}
    Json(std::nullptr_t);
    Json(bool value);
    Json(std::integral auto value) : text_(digits(static_cast<int64_t>(value))) {}
    static Json of(std::string text);  // is JSON already

    const std::string &text() const { return text_; }

  private:
    static std::string digits(int64_t value);

    std::string text_;
};

// An entry a line.
class JsonList {
  public:
    void add(const Json &entry);
    size_t count() const { return count_; }
    operator Json() const;

  private:
    std::string entries_;
    size_t count_ = 0;
};

class JsonObject {
  public:
    using Member = std::pair<const char *, Json>;

    JsonObject(std::initializer_list<Member> members = {}) { add(members); }
    void add(std::initializer_list<Member> members);
    // A list and the number of its entries.
    void addCounted(const char *countKey, const char *listKey, const JsonList &list);
    operator Json() const;

  private:
    std::string members_;
};

}  // namespace kv1905d
