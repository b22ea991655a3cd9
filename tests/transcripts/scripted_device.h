// A device under a script, of which everything that an observer can tell is told.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/fake_host.h"
#include "support/fake_system.h"

namespace kvtest {

inline constexpr std::time_t kScriptStart = 1'000'000;  // what every script's clock shows first

// Where the device's files are, by the names that scripts use; another name is a path itself.
std::string scriptPath(const std::string &name);

// A field of a device's record by its name; null when there is none.
struct RecordField {
    const char *name;
    size_t offset;
    size_t size;
};
const RecordField *findRecordField(const std::string &name);

// The kinds of calls to the outside that can fail, as scripts name them.
const std::map<std::string, Call> &namedFailures();

// Starts with two radios, tools that answer, and an agent that the host knows.
class ScriptedDevice {
  public:
    ScriptedDevice();
    ~ScriptedDevice();
    ScriptedDevice(const ScriptedDevice &) = delete;
    ScriptedDevice &operator=(const ScriptedDevice &) = delete;

    // Plays one step (steps.cpp). Returns what the plug-in did, a line each: events in their order, then what is
    // otherwise than before; nothing for a step that only prepares. Throws std::invalid_argument at a word that it
    // cannot read.
    std::vector<std::string> play(const std::string &step);

    // All that an observer can tell of the device now, by name.
    using State = std::map<std::string, std::string>;
    State observe() const;

    FakeHost host;
    std::optional<long> result;          // of the last step, when it has one
    std::optional<FailingCall> failure;  // of the step that follows

  private:
    std::vector<std::string> outcomeSince(const State &before);
};

}  // namespace kvtest
