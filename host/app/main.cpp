#include <json-c/json_object.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <string_view>
#include <thread>
#include <vector>

#include "arguments.h"
#include "command/client.h"
#include "command_line.h"
#include "help.h"
#include "kv1905/version.h"
#include "monitor.h"
#include "show.h"

namespace {

using namespace kv1905d;

void printOut(const std::string &text) {
    std::cout << text << std::flush;
    if (!std::cout) throw Failure(Status::Failure, "standard output cannot be written");
}

// Reads up to one byte more than may be posted, so that an excess is detected.
Bytes readAll(std::istream &in) {
    Bytes bytes(kMaxCommandSize + 1);
    in.read(reinterpret_cast<char *>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    bytes.resize(static_cast<size_t>(in.gcount()));
    if (in.bad() || bytes.size() > kMaxCommandSize) {
        throw Failure(Status::BadArguments,
                      "the buffer cannot be read, or is longer than " + std::to_string(kMaxCommandSize) + " bytes");
    }
    return bytes;
}

const CommandRow &postedCommand(uint32_t code) {
    if (const CommandRow *row = findCommandRow(code)) return *row;
    std::string text = "CODE must be one of";
    for (const CommandRow &row : kCommandRows)
        text.append(" ").append(std::to_string(row.code));
    throw Failure(Status::BadArguments, text + ", not '" + std::to_string(code) + "'");
}

CommandResult post(const CommandLine &line) {
    const CommandRow &row = postedCommand(static_cast<uint32_t>(std::stoul(line.arguments[0])));
    if (line.arguments.size() == 1) return runPost(row.code, row.size > 0 ? readAll(std::cin) : Bytes(), line.run);
    std::ifstream file(line.arguments[1], std::ios::binary);
    if (!file) throw Failure(Status::BadArguments, "FILE " + line.arguments[1] + ": cannot be read");
    return runPost(row.code, readAll(file), line.run);
}

// The file stays after its daemon has ended. It may be shown even if the daemon belongs to another user.
void requireDaemon(const std::string &socket) {
    try {
        connectToDaemon(socket, std::nullopt);
    } catch (const std::system_error &error) {
        if (statusOf(error.code().value()) == Status::NoDaemon) throw;
    }
}

const std::string &shownFile(const CommandLine &line) {
    return line.file.empty() ? line.dataModel : line.file;
}

void requireFile(const CommandLine &line) {
    const std::string &path = shownFile(line);
    if (line.file.empty()) requireDaemon(line.run.socket);
    if (access(path.c_str(), R_OK) == 0) return;
    if (!line.file.empty()) throw Failure(Status::BadArguments, "--file " + path + ": " + std::strerror(errno));
    if (errno == ENOENT) throw Failure(Status::Failure, "the daemon has not written " + path + " yet");
}

void showOnce(const CommandLine &line) {
    requireFile(line);
    const std::string &path = shownFile(line);
    const time_t now = std::time(nullptr);
    Network network(path);
    const std::string alMac = line.arguments.size() > 1 ? network.alMacOf(line.arguments[1]) : "";
    const std::string text = show(network, {line.arguments[0], alMac, line.json, now});
    const bool isLive = line.watch && !line.json && isatty(STDOUT_FILENO);
    if (!line.json)
        printOut(std::string(isLive ? "\033[H\033[J" : "") + "Data " + std::to_string(ageOf(path, now)) + " s old:\n");
    printOut(text);
    const std::string warning = line.file.empty() ? staleness(path, now) : "";
    if (!warning.empty()) std::fprintf(stderr, "kv1905App: warning: %s\n", warning.c_str());
}

void showAll(const CommandLine &line) {
    showOnce(line);
    while (line.watch) {
        std::this_thread::sleep_for(*line.watch);
        try {
            showOnce(line);
        } catch (const std::exception &error) {  // the daemon may run again
            if (!std::cout) throw;
            print(failureOf(error), line.command->name, line.json);
        }
    }
}

// The page is a separate program next to this one.
[[noreturn]] void runView(const CommandLine &line) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "kv1905-view";
    std::vector<std::string> words{"kv1905-view", "--data-model", line.dataModel};
    if (line.json) words.push_back("--json");
    words.insert(words.end(), line.arguments.begin(), line.arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    throw Failure(Status::Failure, program + ": " + std::strerror(errno));
}

void help(const CommandLine &line) {
    if (line.arguments.empty()) return printOut(toolHelp());
    printOut(commandHelp(commandNamed(line.arguments[0])));
}

void complete(const CommandLine &line, Network &network) {
    if (line.arguments[0] != "words") return printOut(completionScript(line.arguments[0]));
    printOut(wordsAfter(std::span(line.arguments).subspan(1), network));
}

// The command whose result an agent reports: one that is posted or run remotely has its own.
const ToolCommand *reportedCommand(const CommandLine &line) {
    if (line.command->action == Action::Post)
        return findToolCommand(static_cast<uint32_t>(std::stoul(line.arguments[0])));
    return line.command->code == KV_CMD_COMMAND ? findRemoteCommand(line.arguments[1]) : line.command;
}

// Result 16 has several reasons; the device's report rules some of them out.
void explain(CommandResult &result, const ToolCommand &command, Network &network) {
    if (result.code) result.meaning = meaningOf(command, *result.code);
    if (result.code != KV_RET_ERR || command.permission == nullptr) return;
    json_object *device = network.device(result.target), *permission = member(device, command.permission);
    if (permission == nullptr || json_object_get_boolean(member(device, "SpeaksProtocol")) == 0) return;
    const bool isAllowed = json_object_get_boolean(permission) != 0;
    result.meaning = isAllowed ? "failed, although the device permits such requests; see its log"
                               : "not allowed: the device does not permit such requests";
}

CommandResult runAndExplain(const CommandLine &line, Network &network) {
    const bool isPost = line.command->action == Action::Post;
    CommandResult result = isPost ? post(line) : runCommand(*line.command, line.arguments, line.run);
    const ToolCommand *command = reportedCommand(line);
    if (command == nullptr) return result;
    try {
        explain(result, *command, network);
    } catch (const std::exception &) {  // the result is valid without the file
    }
    return result;
}

CommandResult act(CommandLine &line) {
    if (line.command->action == Action::Show && line.arguments.size() > 1) requireFile(line);  // names the DEVICE
    Network network(shownFile(line));
    line.arguments = checkArguments(*line.command, line.arguments, network);
    switch (line.command->action) {
        case Action::Run:
        case Action::Post:
            return runAndExplain(line, network);
        case Action::Show:
            showAll(line);
            break;
        case Action::Monitor:
            monitorNetwork(line.dataModel, line.run);
            break;
        case Action::View:
            runView(line);
        case Action::Help:
            help(line);
            break;
        case Action::Manual:
            printOut(manualPage());
            break;
        case Action::Completion:
            complete(line, network);
            break;
    }
    return {Status::Success, "", {}, {}};
}

CommandResult run(CommandLine &line) {
    if (line.wantsVersion) {
        printOut("kv1905App " KV1905_VERSION "\n");
    } else if (line.wantsHelp) {
        printOut(line.command == nullptr ? toolHelp() : commandHelp(*line.command));
    } else if (line.command == nullptr) {
        throw Failure(Status::BadArguments, "a command is missing; 'kv1905App help' lists the commands");
    } else {
        return act(line);
    }
    return {Status::Success, "", {}, {}};
}

}  // namespace

int main(int argc, char **argv) {
    // The plug-in logs why it refuses arguments; an operator needs nothing else of its log.
    setenv("KV_LOG_LEVEL", "4", 0);
    CommandLine line;
    // Finds the option even in a line with errors.
    line.json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
    CommandResult result;
    try {
        line = parseCommandLine(argc, argv);
        result = run(line);
    } catch (const std::exception &error) {
        result = failureOf(error);
    }
    print(result, line.command == nullptr ? "" : line.command->name, line.json);
    return static_cast<int>(result.status);
}
