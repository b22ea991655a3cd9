#include "command_line.h"

#include <getopt.h>

#include <algorithm>
#include <charconv>
#include <numeric>

namespace kv1905d {
namespace {

constexpr double kShortestTimeout = 0.1, kLongestTimeout = 3600;  // seconds
constexpr int kLongestWatch = 3600;                               // seconds

template <typename Number>
std::optional<Number> numberOf(const std::string &text, Number lowest, Number highest) {
    Number value{};
    const char *end = text.data() + text.size();
    if (std::from_chars(text.data(), end, value).ptr != end || !(value >= lowest && value <= highest))
        return std::nullopt;
    return value;
}

void setTimeout(CommandLine &line, const std::string &value) {
    const auto seconds = numberOf(value, kShortestTimeout, kLongestTimeout);
    if (!seconds)
        throw Failure(Status::BadArguments, "--timeout must be a number from 0.1 to 3600, not '" + value + "'");
    line.run.timeout = Duration(static_cast<Duration::rep>(*seconds * 1000));
}

void setWatch(CommandLine &line, const std::string &value) {
    const auto seconds = numberOf(value.empty() ? "2" : value, 1, kLongestWatch);
    if (!seconds) throw Failure(Status::BadArguments, "--watch must be a number from 1 to 3600, not '" + value + "'");
    line.watch = std::chrono::seconds(*seconds);
}

constexpr OptionRow kRows[] = {
    {"socket", "FILE", "The daemon's local socket [/run/kv1905d.sock, or the same name in /tmp]",
     [](CommandLine &line, const std::string &value) { line.run.socket = value; }},
    {"data-model", "FILE", "The daemon's JSON file [/tmp/kv1905_datamodel.json]",
     [](CommandLine &line, const std::string &value) { line.dataModel = value; }},
    {"file", "FILE", "Show this JSON file, with or without a daemon",
     [](CommandLine &line, const std::string &value) { line.file = value; }},
    {"plugin", "FILE", "Plug-in library that makes the commands [libkvMAP1905.so]",
     [](CommandLine &line, const std::string &value) { line.run.plugin = value; }},
    {"timeout", "SECONDS", "Seconds to wait for the daemon, other tools and the agent [10]", setTimeout},
    {"no-wait", nullptr, "Do not wait for an agent's answer",
     [](CommandLine &line, const std::string &) { line.run.wait = false; }},
    {"watch", "[SECONDS]", "Show again and again, every 2 seconds or as given", setWatch},
    {"json", nullptr, "Print JSON", [](CommandLine &line, const std::string &) { line.json = line.run.json = true; }},
    {"help", nullptr, "Print help about the tool or a command",
     [](CommandLine &line, const std::string &) { line.wantsHelp = true; }},
    {"version", nullptr, "Print the version", [](CommandLine &line, const std::string &) { line.wantsVersion = true; }},
};

std::vector<option> longOptions() {
    std::vector<option> list;
    for (const OptionRow &row : kRows) {
        const int has = row.value == nullptr  ? no_argument
                        : row.value[0] == '[' ? optional_argument
                                              : required_argument;
        list.push_back({row.name, has, nullptr, 0});
    }
    list.push_back({});
    return list;
}

size_t distance(const std::string &a, const std::string &b) {
    std::vector<size_t> row(b.size() + 1);
    std::iota(row.begin(), row.end(), 0);
    for (size_t i = 0; i < a.size(); ++i) {
        size_t diagonal = std::exchange(row[0], i + 1);
        for (size_t j = 0; j < b.size(); ++j)
            diagonal = std::exchange(row[j + 1], std::min({diagonal + (a[i] != b[j]), row[j] + 1, row[j + 1] + 1}));
    }
    return row.back();
}

// Returns "; did you mean 'reboot'?" or a hint at the help.
std::string hintFor(const std::string &word) {
    const auto isCloser = [&word](const ToolCommand &a, const ToolCommand &b) {
        return distance(word, a.name) < distance(word, b.name);
    };
    const ToolCommand &closest = *std::min_element(std::begin(kToolCommands), std::end(kToolCommands), isCloser);
    if (distance(word, closest.name) > 2) return "; 'kv1905App help' lists the commands";
    return std::string("; did you mean '") + closest.name + "'?";
}

void setOption(CommandLine &line, const OptionRow &row, char **argv) {
    std::string value = optarg == nullptr ? "" : optarg;
    const bool mayFollow = row.value != nullptr && row.value[0] == '[' && optarg == nullptr;
    const char *next = mayFollow ? argv[optind] : nullptr;
    if (next != nullptr && *next >= '0' && *next <= '9') value = argv[optind++];
    row.set(line, value);
}

}  // namespace

const ToolCommand &commandNamed(const std::string &name) {
    if (const ToolCommand *command = findToolCommand(name)) return *command;
    throw Failure(Status::BadArguments, "unknown command '" + name + "'" + hintFor(name));
}

std::span<const OptionRow> optionRows() {
    return kRows;
}

CommandLine parseCommandLine(int argc, char **argv) {
    CommandLine line;
    const std::vector<option> options = longOptions();
    opterr = 0;
    optind = 0;  // starts afresh
    while (optind < argc) {
        int row = -1;
        const int found = getopt_long(argc, argv, "+:h", options.data(), &row);
        if (found == 'h') {
            line.wantsHelp = true;
        } else if (found == '?' || found == ':') {
            throw Failure(Status::BadArguments,
                          std::string(found == '?' ? "unknown option '" : "a value is missing after '") +
                              argv[optind - 1] + "'; see kv1905App --help");
        } else if (found >= 0) {
            setOption(line, kRows[row], argv);
        } else if (optind < argc && line.command == nullptr) {
            const std::string name = argv[optind++];
            line.command = &commandNamed(name);
            if (!isRaw(*line.command)) continue;
            line.arguments.assign(argv + optind, argv + argc);
            line.wantsHelp |=
                line.arguments == std::vector<std::string>{"--help"} && line.command->action != Action::View;
            break;
        } else if (optind < argc) {
            line.arguments.push_back(argv[optind++]);
        }
    }
    const bool shows = line.command == nullptr || line.command->action == Action::Show;
    if (!shows && line.watch) throw Failure(Status::BadArguments, "--watch is for 'show'");
    if (!shows && !line.file.empty()) throw Failure(Status::BadArguments, "--file is for 'show'");
    return line;
}

}  // namespace kv1905d
