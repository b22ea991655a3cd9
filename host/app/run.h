// Runs one operator command: arguments to the plug-in, its buffer to the daemon, the agent's response back.
#pragma once

#include <string>
#include <vector>

#include "command/protocol.h"
#include "ieee1905/clock.h"
#include "network.h"
#include "outcome.h"
#include "tool_commands.h"

namespace kv1905d {

struct RunOptions {
    std::string plugin;
    std::string socket;
    std::string resultFile;
    Duration timeout{};  // for each step that waits
    bool wait = true;
    bool json = false;
};

// Lets the plug-in fill the buffer from arguments that checkArguments() returned, then continues as runPost(). Throws
// Failure or std::system_error.
CommandResult runCommand(const ToolCommand &command, const std::vector<std::string> &arguments,
                         const RunOptions &options);

// Posts a buffer unchanged. Waits for a response if the code belongs to a command that has one. Throws like
// runCommand().
CommandResult runPost(uint32_t code, ByteView buffer, const RunOptions &options);

}  // namespace kv1905d
