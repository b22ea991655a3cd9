// The device's logging calls, captured: what a test sees instead of stderr.
#pragma once

#include <array>
#include <string>
#include <vector>

namespace kvtest {

inline constexpr int kPrint = -1;  // facility and level of a kos_pk line

struct LogLine {
    int facility;
    int level;
    std::string text;

    bool operator==(const LogLine &) const = default;
};

// Lines since the last clearLog, oldest first.
const std::vector<LogLine> &logLines();
void clearLog();

// What kvMAP_log_setting was called with last.
std::array<int, 3> &lastLogSetting();

// How many lines have this level and contain this text.
size_t logCount(int level, const std::string &text);

// All lines of a level or more severe, joined; empty when nothing went wrong.
std::string loggedAtMost(int level);

}  // namespace kvtest
