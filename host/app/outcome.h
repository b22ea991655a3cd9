// Outcome of a command: one line for people, exit status or JSON for scripts.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

#include "command/protocol.h"

namespace kv1905d {

// Exit statuses, indexed by Status; the tool's help prints them.
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

// Maps the error of a failed system call. Files and sockets that are missing are the daemon's.
Status statusOf(int error);

// Maps an exception to a result.
CommandResult failureOf(const std::exception &error);

// Prints one line or one JSON object for that command. `command` is empty when none was recognised.
void print(const CommandResult &result, const std::string &command, bool json);

}  // namespace kv1905d
