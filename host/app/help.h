// Help, manual page and completion, printed from the tables of commands and options.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "network.h"
#include "tool_commands.h"

namespace kv1905d {

std::string toolHelp();
std::string commandHelp(const ToolCommand &command);
std::string manualPage();  // for man, in section 1

// A script for "bash" or "zsh", which calls the tool for wordsAfter().
std::string completionScript(const std::string &shell);

// Returns completions for the last of the words, one a line; empty when none is known.
std::string wordsAfter(std::span<const std::string> words, Network &network);

}  // namespace kv1905d
