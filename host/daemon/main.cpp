#include <cstdio>
#include <exception>

#include "daemon/daemon.h"

namespace {

enum ExitStatus { kDone = 0, kFailed = 1, kBadOption = 2 };

int complain(const std::exception &error, ExitStatus status) {
    std::fprintf(stderr, "kv1905d: %s\n", error.what());
    return status;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        const std::optional<kv1905d::Options> options = kv1905d::parseOptions(argc, argv);
        if (!options) return kDone;
        kv1905d::Daemon(*options).run();
        return kDone;
    } catch (const kv1905d::BadOption &error) {
        return complain(error, kBadOption);
    } catch (const std::exception &error) {
        return complain(error, kFailed);
    }
}
