// The device's log, settings, clock, heap, files and commands under a test's control. What the plug-in does to them is
// noted; commands really run.
#pragma once

#include <cstddef>
#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace kvtest {

// Effects of the plug-in, oldest first: "logs [FACILITY.]LEVEL TEXT", "prints TEXT", and the fakes' notes of commands,
// messages and calls of the configuration service.
inline std::vector<std::string> notes;

// Returns how many noted lines have this level and contain this text.
inline constexpr int kPrint = -1;  // level of a printed line
size_t logCount(int level, const std::string &text);

// Settings that nvram_get finds.
inline std::map<std::string, std::string> nvram;

// Sets what time() returns from now on.
inline constexpr std::time_t kScriptStart = 1'000'000;  // until then
void setClock(std::time_t now);

// The kinds of calls that can fail.
inline constexpr const char *kFailures[] = {"allocation", "fopen", "popen", "system", "send",
                                            "query",      "JSON",  "kcfg",  "post"};

// The call that is to fail: the nth of its kind from now on, 1 for the next. 0: none, or it has failed.
struct Failure {
    std::string kind;
    size_t nth = 0;
};
inline Failure failure;
inline std::map<std::string, size_t> callCounts;

// Counts a call of a kind and returns whether it fails.
bool callFails(const char *kind);

}  // namespace kvtest
