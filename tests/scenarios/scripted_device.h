// A device that plays the steps of a scenario and returns all effects that can be observed.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scenarios/words.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

namespace kvtest {

inline constexpr std::time_t kScriptStart = 1'000'000;  // the clock at the start of each scenario

// One effect, written like the outcome that announces it.
struct Effect {
    // Optional: counts only where an outcome names it; State: in any order; all others: in their order.
    enum Kind { Message, Ordered, Optional, State };
    Kind kind;
    std::string text;
};

// A field of a device's record by its name; null when there is none.
struct RecordField {
    const char *name;
    size_t offset;
    size_t size;
};
const RecordField *findRecordField(const std::string &name);

// Returns the path of one of the device's files; an unknown name is a path itself.
std::string scriptPath(const std::string &name);

// Starts with two radios, commands that work, and an agent that the host knows. Exists once at a time.
class ScriptedDevice {
  public:
    ScriptedDevice();
    ~ScriptedDevice();
    ScriptedDevice(const ScriptedDevice &) = delete;
    ScriptedDevice &operator=(const ScriptedDevice &) = delete;

    // Plays a preparation or an action (steps.cpp) and returns its effects. Throws std::invalid_argument at a word that
    // does not fit.
    std::vector<Effect> play(const std::string &step);
    static bool isAction(const std::string &step);

    // Everything that an observer can read of the device now, by name.
    using Values = std::map<std::string, std::string>;
    Values observe() const;

    // The message of an outcome in the form that effects have: without what is the default of this step.
    std::string messageText(const std::string &slot, const std::string &id, const std::string &rest) const;

    FakeHost host;
    std::optional<Mac> sender;  // of the message that the step receives
    uint16_t requestId = 0;
    long result = 0;                // what the called function returned
    size_t repeats = 1;             // how often the step does the same
    bool failureIsMissing = false;  // the injected failure of the step met no call

  private:
    std::vector<Effect> effectsSince(const Values &before);
    std::string sentText(const Sent &sent) const;
};

}  // namespace kvtest
