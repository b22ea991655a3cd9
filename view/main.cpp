#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iostream>
#include <string_view>

#include "app/outcome.h"
#include "app/show.h"
#include "view/view.h"

namespace {

using namespace kv1905d;

void run(const ViewOptions &options) {
    const std::string warning = staleness(options.dataModel, std::time(nullptr));
    if (!warning.empty()) std::fprintf(stderr, "kv1905-view: warning: %s\n", warning.c_str());
    if (options.port) return serveView(options.dataModel, *options.port);
    writeView(options.dataModel, options.output);
    std::cout.flush();
    if (!std::cout) throw Failure(Status::Failure, "standard output cannot be written");
}

}  // namespace

int main(int argc, char **argv) {
    try {
        if (const std::optional<ViewOptions> options = parseViewOptions(argc, argv)) run(*options);
        return 0;
    } catch (const std::exception &error) {
        // The line may not have been understood, so the option is looked for among its words.
        const bool json = std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
        const CommandResult result = failureOf(error);
        print(result, json ? "view" : "", json);
        return static_cast<int>(result.status);
    }
}
