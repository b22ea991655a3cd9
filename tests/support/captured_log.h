// The device's logging, OS helper and nvram calls: lines are captured, commands really run.
#pragma once

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

// Everything that the plug-in did to its outside since the last call, oldest first: its lines, and what the other
// fakes note of sends, commands, configuration calls.
void note(const std::string &event);
std::vector<std::string> takeNotes();

// What nvram_get finds.
std::map<std::string, std::string> &nvram();

// How many lines have this level and contain this text.
size_t logCount(int level, const std::string &text);

}  // namespace kvtest
