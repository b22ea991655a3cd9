// The device's logging, OS helper and nvram calls: lines are captured, commands really run.
#pragma once

#include <array>
#include <map>
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

// Makes kos_formsys say that the command could not run.
bool &shellCannotRun();

// What nvram_get finds.
std::map<std::string, std::string> &nvram();

// How many lines have this level and contain this text.
size_t logCount(int level, const std::string &text);

// All lines of a level or more severe, joined; empty when nothing went wrong.
std::string loggedAtMost(int level);

}  // namespace kvtest
