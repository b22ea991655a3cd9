#include "command_line.h"

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
    if (!seconds) throw support::BadOption("--timeout must be a number from 0.1 to 3600, not '" + value + "'");
    line.run.timeout = Duration(static_cast<Duration::rep>(*seconds * 1000));
}

void setWatch(CommandLine &line, const std::string &value) {
    const auto seconds = numberOf(value.empty() ? "2" : value, 1, kLongestWatch);
    if (!seconds) throw support::BadOption("--watch must be a number from 1 to 3600, not '" + value + "'");
    line.watch = std::chrono::seconds(*seconds);
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

}  // namespace

const ToolCommand &commandNamed(const std::string &name) {
    if (const ToolCommand *command = findToolCommand(name)) return *command;
    throw Failure(Status::BadArguments, "unknown command '" + name + "'" + hintFor(name));
}

std::vector<support::OptionRow> optionRows(CommandLine &line) {
    using support::raise, support::store;
    return {
        {"socket", "FILE", "The daemon's local socket [/run/kv1905d.sock, or the same name in /tmp]",
         store(line.run.socket)},
        {"data-model", "FILE", "The daemon's JSON file [/tmp/kv1905_datamodel.json]", store(line.dataModel)},
        {"file", "FILE", "Show this JSON file, with or without a daemon", store(line.file)},
        {"plugin", "FILE", "Plug-in library that makes the commands [libkvMAP1905.so]", store(line.run.plugin)},
        {"timeout", "SECONDS", "Seconds to wait for the daemon, other tools and the agent [10]",
         [&line](const std::string &value) { setTimeout(line, value); }},
        {"no-wait", nullptr, "Do not wait for an agent's answer",
         [&line](const std::string &) { line.run.wait = false; }},
        {"watch", "[SECONDS]", "Show again and again, every 2 seconds or as given",
         [&line](const std::string &value) { setWatch(line, value); }},
        {"json", nullptr, "Print JSON", [&line](const std::string &) { line.json = line.run.json = true; }},
        {"help", nullptr, "Print help about the tool or a command", raise(line.wantsHelp), 'h'},
        {"version", nullptr, "Print the version", raise(line.wantsVersion)},
    };
}

CommandLine parseCommandLine(int argc, const char *const *argv) {
    CommandLine line;
    std::vector<support::OptionRow> rows = optionRows(line);
    support::OptionReader reader("kv1905App", argc, argv, rows);
    while (const std::optional<std::string> word = reader.nextWord()) {
        if (line.command != nullptr) {
            line.arguments.push_back(*word);
            continue;
        }
        line.command = &commandNamed(*word);
        if (!isRaw(*line.command)) continue;
        line.arguments = reader.rest();
        line.wantsHelp |= line.arguments == std::vector<std::string>{"--help"} && line.command->action != Action::View;
        break;
    }
    const bool shows = line.command == nullptr || line.command->action == Action::Show;
    if (!shows && line.watch) throw support::BadOption("--watch is for 'show'");
    if (!shows && !line.file.empty()) throw support::BadOption("--file is for 'show'");
    return line;
}

}  // namespace kv1905d
