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

// The command that an agent runs by that number; null when it is not known.
const ToolCommand *findRemoteCommand(std::string_view number);

// All arguments as the plug-in expects them, with devices and interfaces as MAC addresses; those of a known remote
// command are checked like its own. The network is read where a name requires it. Throws Failure, which names the first
// argument that is wrong and what is right.
std::vector<std::string> checkArguments(const ToolCommand &command, std::span<const std::string> words,
                                        Network &network);

}  // namespace kv1905d
