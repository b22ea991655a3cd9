// The command line of kv1905App.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "command/client.h"
#include "defaults.h"
#include "result_file.h"
#include "run.h"
#include "support/options.h"

namespace kv1905d {

struct CommandLine {
    const ToolCommand *command = nullptr;
    std::vector<std::string> arguments;  // as typed
    std::string dataModel = kDefaultDataModel;
    std::string file;  // read by show instead of dataModel; empty: none
    bool json = false;
    bool wantsHelp = false;
    bool wantsVersion = false;
    std::optional<std::chrono::seconds> watch;  // between two tables of show
    RunOptions run{kDefaultPlugin, usualSocketPath(), kResultFile, std::chrono::seconds(10), true};
};

std::vector<support::OptionRow> optionRows(CommandLine &line);

// Finds a command by name or number. Throws Failure with a hint.
const ToolCommand &commandNamed(const std::string &name);

// The command is null when the line has none, allowed only with --help and --version. Throws Failure and BadOption.
CommandLine parseCommandLine(int argc, const char *const *argv);

}  // namespace kv1905d
