// Writes JSON text without building objects first: thousands of stations would need ten times as much memory as
// objects.
#pragma once

#include <charconv>
#include <concepts>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "ieee1905/mac_address.h"

namespace kv1905d {

class JsonWriter {
  public:
    template <typename Value>
    void member(const char *key, const Value &value) {
        begin(key);
        write(value);
    }
    // Each call below calls its last argument to write the members or entries.
    template <typename Members>
    void object(const Members &members) {
        text_ += '{';
        members();
        text_ += '}';
    }
    template <typename Members>
    void object(const char *key, const Members &members) {
        begin(key);
        object(members);
    }
    // Returns the number of entries.
    template <typename Entries>
    size_t list(const char *key, const Entries &entries) {
        begin(key);
        text_ += '[';
        const size_t outer = std::exchange(entries_, 0);
        entries();
        text_ += entries_ == 0 ? "]" : "\n]";
        return std::exchange(entries_, outer);
    }
    // Writes the number of entries, then the list.
    template <typename Entries>
    void countedList(const char *countKey, const char *key, const Entries &entries) {
        begin(countKey);
        const size_t at = text_.size();
        text_.insert(at, std::to_string(list(key, entries)));
    }
    // Writes an object in a list, on its own line.
    template <typename Members>
    void entry(const Members &members) {
        text_ += entries_++ == 0 ? "\n" : ",\n";
        object(members);
    }

    std::string take() { return std::move(text_); }

  private:
    void begin(const char *key) {
        text_ += text_.back() == '{' ? "\"" : ", \"";
        text_ += key;
        text_ += "\": ";
    }

    void write(std::string_view value);  // every byte that is not valid UTF-8 becomes U+FFFD
    void write(const MacAddress &value);
    template <std::integral Number>
    void write(Number value) {
        if constexpr (std::same_as<Number, bool>) {
            text_ += value ? "true" : "false";
        } else {
            char digits[24];
            text_.append(digits, std::to_chars(digits, digits + sizeof digits, value).ptr);
        }
    }
    template <typename Value>
    void write(const std::optional<Value> &value) {
        value ? write(*value) : void(text_ += "null");
    }

    std::string text_;
    size_t entries_ = 0;  // of the innermost list
};

}  // namespace kv1905d
