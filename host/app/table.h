// JSON lists as tables for people.
#pragma once

#include <ctime>
#include <span>
#include <string>

#include "network.h"

namespace kv1905d {

// Data that cells need in addition to their value.
struct View {
    Network &network;
    time_t now;  // seconds since the epoch
};

// Formats a value: text unchanged, a device's name for its AL MAC, seconds since a time, kbit/s as Mbit/s, mediaName()
// and mediaDigits().
using Cell = std::string (*)(json_object *value, const View &view);
std::string textCell(json_object *value, const View &view);
std::string nameCell(json_object *alMac, const View &view);
std::string ageCell(json_object *when, const View &view);
std::string megabitsCell(json_object *kilobits, const View &view);
std::string mediaCell(json_object *type, const View &view);
std::string digitsCell(json_object *type, const View &view);

struct Column {
    const char *title;
    const char *key;
    Cell cell = textCell;
};

std::string tableText(json_object *list, std::span<const Column> columns, const View &view);

// Returns the value on several lines, with a final newline.
std::string jsonText(json_object *value);

}  // namespace kv1905d
