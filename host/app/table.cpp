#include "table.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <string_view>
#include <vector>

namespace kv1905d {

namespace {

// Terminals interpret U+007F to U+009F, which json-c passes through.
std::string withoutControls(std::string_view json) {
    std::string out;
    for (size_t at = 0; at < json.size(); ++at) {
        const auto byte = [&](size_t i) { return i < json.size() ? static_cast<uint8_t>(json[i]) : 0; };
        const bool isPair = byte(at) == 0xC2 && byte(at + 1) >= 0x80 && byte(at + 1) < 0xA0;
        if (isPair) ++at;
        if (!isPair && byte(at) != 0x7F) {
            out += json[at];
            continue;
        }
        char escape[8];
        std::snprintf(escape, sizeof escape, "\\u%04x", static_cast<unsigned>(byte(at)));
        out += escape;
    }
    return out;
}

}  // namespace

std::string textCell(json_object *value, const View &) {
    return plain(value);
}

std::string nameCell(json_object *alMac, const View &view) {
    return view.network.nameOf(plain(alMac));
}

std::string ageCell(json_object *when, const View &view) {
    const std::string time = plain(when);
    tm parts{};
    const char *end = strptime(time.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
    if (end == nullptr || *end != '\0') return "-";
    return std::to_string(std::max<time_t>(view.now - timegm(&parts), 0));  // a clock may have stepped back since
}

std::string megabitsCell(json_object *kilobits, const View &) {
    return kilobits == nullptr ? "-" : std::to_string(json_object_get_int64(kilobits) / 1000);
}

std::string mediaCell(json_object *type, const View &) {
    return mediaName(type);
}

std::string digitsCell(json_object *type, const View &) {
    return mediaDigits(type);
}

std::string tableText(json_object *list, std::span<const Column> columns, const View &view) {
    std::vector<std::vector<std::string>> rows(1);
    for (const Column &column : columns)
        rows[0].push_back(column.title);
    forEach(list, [&](json_object *entry) {
        std::vector<std::string> &row = rows.emplace_back();
        for (const Column &column : columns)
            row.push_back(column.cell(member(entry, column.key), view));
    });
    std::vector<size_t> widths(columns.size());
    for (const auto &row : rows) {
        for (size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], row[i].size());
    }
    std::string out;
    for (auto &row : rows) {
        for (size_t i = 0; i + 1 < row.size(); ++i)
            row[i].resize(widths[i] + 2, ' ');
        for (const std::string &cell : row)
            out += cell;
        out += '\n';
    }
    return out;
}

std::string jsonText(json_object *value) {
    const int flags = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;
    return withoutControls(json_object_to_json_string_ext(value, flags)) + "\n";
}

}  // namespace kv1905d
