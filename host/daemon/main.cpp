#include <csignal>
#include <cstdio>
#include <exception>

#include "daemon/daemon.h"
#include "daemon/supervisor.h"
#include "support/options.h"

namespace {

enum ExitStatus { kDone = 0, kFailed = 1, kBadOption = 2 };

int reportError(const std::exception &error, ExitStatus status) {
    std::fprintf(stderr, "kv1905d: %s\n", error.what());
    return status;
}

int run(const kv1905d::Options &options, kv1905d::Heartbeat heartbeat) {
    kv1905d::Daemon(options, std::move(heartbeat)).run();
    return kDone;
}

}  // namespace

int main(int argc, char **argv) {
    // Ignores SIGPIPE: a reader of the log that ends must not end the daemon. Not SIG_IGN, which the commands would
    // inherit. The same for SIGUSR1 until the daemon handles it.
    for (const int number : {SIGPIPE, SIGUSR1})
        std::signal(number, [](int) {});
    try {
        const std::optional<kv1905d::Options> options = kv1905d::parseOptions(argc, argv);
        if (!options) return kDone;
        return kv1905d::supervise([&](kv1905d::Heartbeat heartbeat) { return run(*options, std::move(heartbeat)); });
    } catch (const support::BadOption &error) {
        return reportError(error, kBadOption);
    } catch (const std::exception &error) {
        return reportError(error, kFailed);
    }
}
