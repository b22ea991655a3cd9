// How a call of the command tool ended: for people one line, for scripts the exit status or JSON.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "command/protocol.h"

namespace kv1905d {

// By Status; the tool's help prints them.
inline constexpr const char *kStatusTexts[] = {
    "success",
    "another failure",
    "bad arguments",
    "refused by the agent, whose result is printed",
    "no such device in the network, or station of this device",
    "no answer in time",
    "no daemon",
    "no permission",
};
static_assert(std::size(kStatusTexts) == static_cast<size_t>(Status::NotPermitted) + 1);

struct CommandResult {
    Status status = Status::Success;
    std::string meaning;
    std::optional<uint8_t> code;  // an agent's result
    std::string target;           // AL MAC; empty when there is none
    std::string text = {};        // printed instead, unchanged; empty: none
};

struct Failure : std::runtime_error {
    Failure(Status why, const std::string &text) : std::runtime_error(text), status(why) {}
    Status status;
};

// What a failed system call means to the caller: files and sockets that are not there are the daemon's.
Status statusOf(int error);

// How a command ends with that error.
CommandResult failureOf(const std::exception &error);

// One line, or one JSON object, for that command; empty when none was understood.
void print(const CommandResult &result, const std::string &command, bool json);

}  // namespace kv1905d
