// The device's log, settings, clock, heap, files and commands under a test's control. What the plug-in does to them is
// noted; commands really run.
#pragma once

#include <cstddef>
#include <ctime>
#include <map>
#include <string>
#include <vector>

namespace kvtest {

// What the plug-in did to its outside since the last takeNotes, oldest first: "logs [FACILITY.]LEVEL TEXT", "prints
// TEXT", and what the fakes note of commands, messages and calls of the configuration service.
std::vector<std::string> &notes();
std::vector<std::string> takeNotes();

// Returns how many noted lines have this level and contain this text.
inline constexpr int kPrint = -1;  // level of a printed line
size_t logCount(int level, const std::string &text);

// What nvram_get finds.
std::map<std::string, std::string> &nvram();

// Sets what time() returns from now on; 0 restores the real clock.
void setClock(std::time_t now);

// The kinds of calls that can fail.
inline constexpr const char *kFailures[] = {"allocation", "fopen", "popen", "system", "send",
                                            "query",      "JSON",  "kcfg",  "post"};

// Makes the nth call of a kind from now on (1 is the next) fail, once.
class FailingCall {
  public:
    FailingCall(const std::string &kind, size_t nth);
    ~FailingCall();
    FailingCall(const FailingCall &) = delete;
    FailingCall &operator=(const FailingCall &) = delete;

    // A failure that was injected and never happened proves nothing.
    bool happened() const;
};

// Whether this call is the one that is to fail; the fakes ask at each call.
bool callFails(const char *kind);

}  // namespace kvtest
