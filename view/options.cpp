#include "support/options.h"

#include <charconv>
#include <cstdio>

#include "app/outcome.h"
#include "defaults.h"
#include "kv1905/version.h"
#include "view/view.h"

namespace kv1905d {
namespace {

using support::BadOption;

void printHelp(std::span<const support::OptionRow> rows) {
    std::printf(
        "Usage: kv1905-view [OPTION...]\n"
        "Draws the network that kv1905d reports as a web page, for a file or for browsers of this machine.\n\n"
        "Options:\n%s\nExit status:\n",
        support::optionHelp(rows).c_str());
    for (const Status status :
         {Status::Success, Status::Failure, Status::BadArguments, Status::NoDaemon, Status::NotPermitted})
        std::printf("  %d  %s\n", static_cast<int>(status), kStatusTexts[static_cast<size_t>(status)]);
    std::puts("\nExample: kv1905-view --output mesh.html");
}

uint16_t portOf(const std::string &text) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc{} || end != text.data() + text.size())
        throw BadOption("--port must be a number from 0 to 65535, not '" + text + "'");
    return port;
}

}  // namespace

std::optional<ViewOptions> parseViewOptions(int argc, const char *const *argv) {
    ViewOptions options;
    options.dataModel = kDefaultDataModel;
    bool serve = false, wantsHelp = false, wantsVersion = false;
    std::vector<support::OptionRow> rows = {
        {"serve", nullptr, "Serve the page on 127.0.0.1, always up to date", support::raise(serve)},
        {"port", "NUMBER", "Port to serve on, 0 for any [1905]",
         [&](const std::string &value) { options.port = portOf(value); }},
        {"output", "FILE", "File to write the page to [standard output]", support::store(options.output)},
        {"data-model", "FILE", "The daemon's JSON file [/tmp/kv1905_datamodel.json]",
         support::store(options.dataModel)},
        {"json", nullptr, "Print a failure as JSON", support::raise(options.json)},
        {"help", nullptr, "Print this help", support::raise(wantsHelp), 'h'},
        {"version", nullptr, "Print the version", support::raise(wantsVersion)},
    };
    const std::optional<std::string> word = support::OptionReader("kv1905-view", argc, argv, rows).nextWord();
    if (wantsHelp) printHelp(rows);
    if (wantsVersion) std::puts("kv1905-view " KV1905_VERSION);
    if (wantsHelp || wantsVersion) return std::nullopt;
    if (word) throw BadOption("unexpected argument '" + *word + "'; see kv1905-view --help");
    if (options.port && !serve) throw BadOption("--port requires --serve");
    if (serve && !options.output.empty()) throw BadOption("--output excludes --serve");
    if (serve && !options.port) options.port = kDefaultViewPort;
    return options;
}

}  // namespace kv1905d
