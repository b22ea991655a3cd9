// Checks the arguments of operator commands before the plug-in reads them: it would make 0 of a word where it expects
// a number, and 0 switches an interface on.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "network.h"
#include "tool_commands.h"

namespace kv1905d {

// "led DEVICE on|off"
std::string usageOf(const ToolCommand &command);

// Returns the command that an agent runs by that number, or null.
const ToolCommand *findRemoteCommand(std::string_view number);

// Returns all arguments as the plug-in expects them, with devices and interfaces as MAC addresses. Checks those of a
// known remote command like its own. Reads the network where a name requires it. Throws Failure, which names the first
// invalid argument and what is valid.
std::vector<std::string> checkArguments(const ToolCommand &command, std::span<const std::string> words,
                                        Network &network);

}  // namespace kv1905d
