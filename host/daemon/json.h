// JSON as text: values are appended as they are made, because stations by the thousand take ten times as much memory as
// objects as they take as text.
#pragma once

#include <concepts>
#include <string>
#include <string_view>

#include "ieee1905/mac_address.h"

namespace kv1905d {

// The text with every byte that is not valid UTF-8 replaced by U+FFFD.
std::string validUtf8(std::string_view text);

struct Json {
    std::string text;

    static Json string(std::string_view value);
    static Json number(std::integral auto value) { return {std::to_string(value)}; }
    static Json boolean(bool value) { return {value ? "true" : "false"}; }
    static Json null() { return {"null"}; }
    static Json mac(const MacAddress &value) { return {'"' + value.text() + '"'}; }
};

// An entry a line.
class JsonList {
  public:
    void add(const Json &entry) { entries_ += (count_++ == 0 ? "\n" : ",\n") + entry.text; }
    size_t count() const { return count_; }
    operator Json() const { return {count_ == 0 ? "[]" : '[' + entries_ + "\n]"}; }

  private:
    std::string entries_;
    size_t count_ = 0;
};

class JsonObject {
  public:
    void add(const char *key, const Json &value) {
        members_ += (members_.empty() ? "\"" : ", \"") + std::string(key) + "\": " + value.text;
    }
    // A list and the number of its entries.
    void addCounted(const char *countKey, const char *listKey, const JsonList &list) {
        add(countKey, Json::number(list.count()));
        add(listKey, list);
    }
    operator Json() const { return {'{' + members_ + '}'}; }

  private:
    std::string members_;
};

}  // namespace kv1905d
