// The command line of kv1905App.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "run.h"

namespace kv1905d {

struct AppOptions {
    enum class Action { Run, Post, Show, View, Complete };

    Action action = Action::Run;
    std::string name;                      // of the command, as it is printed
    const ToolCommand *command = nullptr;  // for Run
    std::vector<std::string> arguments;    // for Run and View
    const CommandRow *post = nullptr;      // for Post
    std::string file;                      // for Post; empty: standard input
    std::string what;                      // for Show
    std::string alMac;                     // for Show
    std::string script;                    // for Complete: the text to print
    std::string dataModel;
    bool json = false;
    RunOptions run;
};

// Nothing when help or version was asked for and printed. Throws Failure.
std::optional<AppOptions> parseAppOptions(int argc, const char *const *argv);

}  // namespace kv1905d
