#include <getopt.h>

#include <charconv>
#include <cstdio>

#include "app/outcome.h"
#include "defaults.h"
#include "kv1905/version.h"
#include "view/view.h"

namespace kv1905d {
namespace {

constexpr const char *kHelp =
    R"(Usage: kv1905-view [OPTIONS]
The network that kv1905d knows, as a web page: written out, or served to browsers of this machine.

Options:
  --serve            Serve the page on 127.0.0.1, always up to date
  --port NUMBER      Port to serve on, 0 for any [1905]
  --output FILE      File to write the page to [standard output]
  --data-model FILE  The daemon's JSON file [/tmp/kv1905_datamodel.json]
  --json             Print a failure as JSON
  -h, --help         Print this help message and exit
  --version          Print the version and exit

Exit status:
  0  success
  1  another failure
  2  bad arguments
  6  no daemon
  7  no permission

Example: kv1905-view --output mesh.html
)";

enum Option { kServe, kPort, kOutput, kDataModel, kJson, kShowVersion, kShowHelp = 'h' };
constexpr option kOptions[] = {
    {"serve", no_argument, nullptr, kServe},         {"port", required_argument, nullptr, kPort},
    {"output", required_argument, nullptr, kOutput}, {"data-model", required_argument, nullptr, kDataModel},
    {"json", no_argument, nullptr, kJson},           {"help", no_argument, nullptr, kShowHelp},
    {"version", no_argument, nullptr, kShowVersion}, {nullptr, 0, nullptr, 0},
};

[[noreturn]] void refuse(const std::string &complaint) {
    throw Failure(Status::BadArguments, complaint + "; see kv1905-view --help");
}

uint16_t portOf(std::string_view text) {
    uint16_t port = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
    if (error != std::errc{} || end != text.data() + text.size()) refuse("--port must be a number from 0 to 65535");
    return port;
}

}  // namespace

std::optional<ViewOptions> parseViewOptions(int argc, char **argv) {
    ViewOptions options;
    options.dataModel = kDefaultDataModel;
    bool serve = false;
    std::optional<uint16_t> port;
    opterr = 0;
    optind = 0;  // starts afresh
    for (int found; (found = getopt_long(argc, argv, "h", kOptions, nullptr)) >= 0;) {
        if (found == '?') refuse("unknown option or missing value: '" + std::string(argv[optind - 1]) + "'");
        if (found == kShowHelp) std::fputs(kHelp, stdout);
        if (found == kShowVersion) std::puts("kv1905-view " KV1905_VERSION);
        if (found == kShowHelp || found == kShowVersion) return std::nullopt;
        serve |= found == kServe;
        options.json |= found == kJson;
        if (found == kPort) port = portOf(optarg);
        if (found == kOutput) options.output = optarg;
        if (found == kDataModel) options.dataModel = optarg;
    }
    if (optind < argc) refuse("unexpected argument '" + std::string(argv[optind]) + "'");
    if (port && !serve) refuse("--port requires --serve");
    if (serve && !options.output.empty()) refuse("--output excludes --serve");
    if (serve) options.port = port.value_or(kDefaultViewPort);
    return options;
}

}  // namespace kv1905d
