#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string_view>
#include <system_error>

#include "app_options.h"
#include "show.h"
#include "view.h"

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

std::optional<CommandResult> act(const AppOptions &options) {
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
            warnIfStale(options.dataModel);
            if (options.port) {
                serveView(options.dataModel, *options.port);
            } else {
                writeView(options.dataModel, options.output);
            }
            break;
        case AppOptions::Action::Complete:
            std::cout << options.script;
            break;
    }
    std::cout.flush();
    if (!std::cout) throw Failure(Status::Failure, "standard output cannot be written");
    return std::nullopt;
}

CommandResult guarded(const AppOptions &options) {
    try {
        return act(options).value_or(CommandResult{Status::Success, "", {}, {}});
    } catch (const Failure &failure) {
        return {failure.status, failure.what(), {}, {}};
    } catch (const std::system_error &error) {
        const Status status = statusOf(error.code().value());
        return {status, error.what() + std::string(status == Status::NoDaemon ? "; does kv1905d run?" : ""), {}, {}};
    } catch (const std::exception &error) {
        return {Status::Failure, error.what(), {}, {}};
    }
}

}  // namespace

int main(int argc, char **argv) {
    // The plug-in logs why it refuses arguments; the rest of what it has to say is no news to an operator.
    setenv("KV_LOG_LEVEL", "4", 0);
    try {
        const std::optional<AppOptions> options = parseAppOptions(argc, argv);
        if (!options) return 0;
        const CommandResult outcome = guarded(*options);
        if (!outcome.meaning.empty()) print(outcome, options->name, options->json);
        return static_cast<int>(outcome.status);
    } catch (const Failure &failure) {
        // The line was not understood, so the option is looked for among its words.
        const bool json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
        print({failure.status, failure.what(), {}, {}}, "", json);
        return static_cast<int>(failure.status);
    }
}
