// Runs the steps of a scenario on a device and returns all effects that can be observed.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "scenarios/words.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

namespace kvtest {

// The effects of a step, written like the outcomes that announce them: calls in their order, and changed state.
struct Effects {
    std::vector<std::string> ordered;
    std::vector<std::string> state;
};

// A part of the device's state that scenarios can read and set.
struct Value {
    std::function<std::string()> get;
    std::function<void(const std::string &)> set;
};

// Returns the path of one of the device's files; an unknown name is a path itself.
std::string scriptPath(const std::string &name);

// Starts with two radios, commands that work, and an agent that the host knows. Exists once at a time.
class ScriptedDevice {
  public:
    ScriptedDevice();
    ~ScriptedDevice();
    ScriptedDevice(const ScriptedDevice &) = delete;
    ScriptedDevice &operator=(const ScriptedDevice &) = delete;

    // Runs a step and returns the effects of an action, none for a preparation. Throws std::invalid_argument at a word
    // that does not fit.
    std::optional<Effects> run(Words in);

    // Sets a value, a file or a command, and returns its old value.
    std::string change(const std::string &name, const std::string &value);

    // Everything that an observer can read of the device now, by name.
    std::map<std::string, std::string> observe();

    FakeHost host;
    std::optional<Mac> sender;  // of the message that the step receives
    uint16_t requestId = 0;
    Bytes received;                 // of the last message, from the type on
    long result = 0;                // what the called function returned
    bool failureIsMissing = false;  // the injected failure of the step met no call

  private:
    static void removeFiles();
    std::map<std::string, Value> values();
    Effects effectsSince(const std::map<std::string, std::string> &before);
};

// Returns an identifier as effects show it: "id HHHH", "new-id" for 0, "no-id" for none.
std::string idText(std::optional<uint16_t> id);

}  // namespace kvtest
