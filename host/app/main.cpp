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
#include <iterator>
#include <string_view>
#include <vector>

#include "app_options.h"
#include "show.h"

namespace {

using namespace kv1905d;

// One byte more than may be posted is enough to see that there are too many.
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

Bytes readBuffer(const AppOptions &options) {
    if (options.file.empty()) return options.post->size > 0 ? readAll(std::cin) : Bytes();
    std::ifstream file(options.file, std::ios::binary);
    if (!file) throw Failure(Status::BadArguments, options.file + ": cannot be read");
    return readAll(file);
}

void warnIfStale(const std::string &dataModel) {
    const std::string warning = staleness(dataModel, std::time(nullptr));
    if (!warning.empty()) std::fprintf(stderr, "kv1905App: warning: %s\n", warning.c_str());
}

// The page is a program of its own next to this one: its web server brings libraries that no other command needs.
[[noreturn]] void runView(const AppOptions &options) {
    const std::string program = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "kv1905-view";
    std::vector<std::string> words{"kv1905-view", "--data-model", options.dataModel};
    if (options.json) words.push_back("--json");
    words.insert(words.end(), options.arguments.begin(), options.arguments.end());
    std::vector<char *> argv;
    for (std::string &word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    execv(program.c_str(), argv.data());
    throw Failure(Status::Failure, program + ": " + std::strerror(errno));
}

CommandResult act(const AppOptions &options) {
    switch (options.action) {
        case AppOptions::Action::Run:
            return runCommand(*options.command, options.arguments, options.run);
        case AppOptions::Action::Post:
            return runPost(options.post->code, readBuffer(options), options.run);
        case AppOptions::Action::Show:
            std::cout << show(options.dataModel, {options.what, options.alMac, options.json, std::time(nullptr)});
            warnIfStale(options.dataModel);
            break;
        case AppOptions::Action::View:
            runView(options);
        case AppOptions::Action::Complete:
            std::cout << options.script;
            break;
    }
    std::cout.flush();
    if (!std::cout) throw Failure(Status::Failure, "standard output cannot be written");
    return {Status::Success, "", {}, {}};
}

}  // namespace

int main(int argc, char **argv) {
    // The plug-in logs why it refuses arguments; an operator needs nothing else of its log.
    setenv("KV_LOG_LEVEL", "4", 0);
    std::string name;
    // A line that is not understood may have the option all the same.
    bool json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
    CommandResult result;
    try {
        const std::optional<AppOptions> options = parseAppOptions(argc, argv);
        if (!options) return 0;
        name = options->name;
        json = options->json;
        result = act(*options);
    } catch (const std::exception &error) {
        result = failureOf(error);
    }
    if (!result.meaning.empty()) print(result, name, json);
    return static_cast<int>(result.status);
}
