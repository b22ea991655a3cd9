#include "help.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <exception>
#include <set>
#include <utility>
#include <vector>

#include "arguments.h"
#include "command_line.h"
#include "kv1905/version.h"

namespace kv1905d {
namespace {

constexpr size_t kNameWidth = 22;

std::string row(const std::string &name, const std::string &text) {
    return "  " + name + std::string(kNameWidth - std::min(kNameWidth - 1, name.size()), ' ') + text + "\n";
}

std::string noteOn(const ToolCommand &command) {
    const auto isIt = [&](const Note &each) { return each.name == command.name; };
    const auto found = std::find_if(std::begin(kNotes), std::end(kNotes), isIt);
    return found == std::end(kNotes) ? "" : std::string(found->text) + "\n";
}

std::string exampleOf(const ToolCommand &command) {
    return std::string("kv1905App ") + command.name + (*command.example == '\0' ? "" : " ") + command.example;
}

std::string numbersOf(const ToolCommand &command) {
    return *command.number == '\0' ? "" : std::string("Also known as: kv1905App ") + command.number + "\n";
}

// Text of ours for troff: a minus is a minus, and no line is a request.
std::string roff(const std::string &text) {
    std::string out;
    for (const char c : text)
        out += c == '-' ? "\\-" : c == '\n' ? "\n.br\n" : std::string(1, c);
    return out;
}

std::string roffEntry(const std::string &term, const std::string &text) {
    return ".TP\n.B " + roff(term) + "\n" + roff(text) + "\n";
}

constexpr const char *kFiles[][2] = {
    {"/tmp/1905ReturnValue", "Where the daemon leaves an agent's result."},
    {"/tmp/kv1905_datamodel.json", "The network as last reported to the daemon; see --data-model."},
    {"/run/kv1905d.sock", "The daemon's socket for commands, or the same name in /tmp; see --socket."},
};
constexpr const char *kLogLevel[] = {
    "KV_LOG_LEVEL", "What the plug-in logs while it makes a command, 0 to 7 [4]. It does not change the daemon."};

using NamedMac = std::pair<std::string, std::string>;

bool isPlainWord(const std::string &name) {
    return std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return std::isalnum(c) || std::strchr("._-", c); });
}

// Returns names of exactly one entry, otherwise its MAC. Names come from the network: a shell could run a part of one.
std::set<std::string> wordsFor(const std::vector<NamedMac> &entries) {
    std::multiset<std::string> names;
    for (const auto &[name, mac] : entries)
        names.insert(name);
    std::set<std::string> words;
    for (const auto &[name, mac] : entries)
        words.insert(names.count(name) == 1 && isPlainWord(name) ? name : mac);
    return words;
}

std::set<std::string> valuesOf(const Argument &argument, std::span<const std::string> before, Network &network) {
    std::set<std::string> values;
    for (const NamedNumber &word : argument.words)
        values.insert(word.text);
    std::vector<NamedMac> entries;
    if (argument.kind == ArgumentKind::Device) {
        forEach(member(network.data(), "DeviceList"), [&](json_object *device) {
            const std::string alMac = plain(member(device, "ID"));
            entries.emplace_back(network.nameOf(alMac), alMac);
        });
    } else if (argument.kind == ArgumentKind::Interface) {
        for (json_object *each : network.interfacesOf(network.alMacOf(before.back())))
            entries.emplace_back(mediaName(member(each, "MediaType")), plain(member(each, "MACAddress")));
    }
    values.merge(wordsFor(entries));
    return values;
}

// Returns whether the next word is the value of this option.
bool isBeforeValue(const std::string &word) {
    const auto isIt = [&](const support::OptionRow &row) {
        return row.value != nullptr && row.value[0] != '[' && word == std::string("--") + row.name;
    };
    CommandLine line;
    const std::vector<support::OptionRow> rows = optionRows(line);
    return std::any_of(rows.begin(), rows.end(), isIt);
}

// The words after a remote command's name are its own.
std::set<std::string> following(const ToolCommand &command, std::span<const std::string> before, Network &network) {
    if (before.size() >= command.arguments.size()) return {};
    const Argument &argument = command.arguments[before.size()];
    if (argument.count == ArgumentCount::Any && before.size() >= 2) {
        const ToolCommand *remote = findToolCommand(before[1]);
        return remote == nullptr ? std::set<std::string>() : following(*remote, before.subspan(2), network);
    }
    std::set<std::string> values = valuesOf(argument, before, network);
    if (argument.count == ArgumentCount::Optional && before.size() + 1 < command.arguments.size())
        values.merge(valuesOf(command.arguments[before.size() + 1], before, network));
    return values;
}

// Returns the words that begin with `start`, one a line.
std::string linesOf(const std::set<std::string> &words, const std::string &start) {
    std::string text;
    for (const std::string &word : words)
        text += word.starts_with(start) ? word + "\n" : "";
    return text;
}

}  // namespace

std::string toolHelp() {
    std::string text =
        "Operator commands for the devices of an IEEE 1905.1 network, through this device's kv1905d.\n\n"
        "Usage: kv1905App [OPTION...] COMMAND [ARGUMENT...]\n\nCommands ('kv1905App help COMMAND' explains one):\n";
    for (const ToolCommand &command : kToolCommands)
        text += row(command.name, command.help);
    text += "\nA DEVICE is " + std::string(kDevice.values) + ".\n\nOptions:\n";
    CommandLine line;
    text += support::optionHelp(optionRows(line)) + "\nExit status:\n";
    for (size_t i = 0; i < std::size(kStatusTexts); ++i)
        text += "  " + std::to_string(i) + "  " + kStatusTexts[i] + "\n";
    return text + "\nExample: kv1905App reboot agent1\n";
}

std::string commandHelp(const ToolCommand &command) {
    std::string text = std::string(command.help) + ".\n\nUsage: kv1905App " + usageOf(command) + "\n";
    if (!command.arguments.empty()) text += "\n";
    for (const Argument &argument : command.arguments)
        text += row(argument.name, argument.values);
    const std::string notes = noteOn(command) + numbersOf(command);
    return text + (notes.empty() ? "" : "\n" + notes) + "\nExample: " + exampleOf(command) + "\n";
}

std::string manualPage() {
    std::string page = ".TH kv1905App 1 \"\" \"kv1905 " KV1905_VERSION
                       "\"\n.SH NAME\nkv1905App \\- operator commands for the devices of an IEEE 1905.1 network\n"
                       ".SH SYNOPSIS\n.B kv1905App\n[\\fIOPTION\\fR...] \\fICOMMAND\\fR [\\fIARGUMENT\\fR...]\n"
                       ".SH DESCRIPTION\nThe tool posts commands to this device's kv1905d, which sends them to the "
                       "device that is named, waits for the result, and prints it.\n.PP\nA DEVICE is " +
                       roff(kDevice.values) + ".\n.SH COMMANDS\n";
    for (const ToolCommand &command : kToolCommands) {
        std::string text = std::string(command.help) + ".\n";
        for (const Argument &argument : command.arguments)
            text += std::string(argument.name) + ": " + argument.values + ".\n";
        page +=
            roffEntry(usageOf(command), text + noteOn(command) + numbersOf(command) + "Example: " + exampleOf(command));
    }
    page += ".SH OPTIONS\n";
    CommandLine line;
    for (const support::OptionRow &option : optionRows(line))
        page += roffEntry(support::synopsis(option), std::string(option.help) + ".");
    page += ".SH EXIT STATUS\n";
    for (size_t i = 0; i < std::size(kStatusTexts); ++i)
        page += roffEntry(std::to_string(i), kStatusTexts[i]);
    page += ".SH ENVIRONMENT\n" + roffEntry(kLogLevel[0], kLogLevel[1]) + ".SH FILES\n";
    for (const auto &[path, text] : kFiles)
        page += roffEntry(path, text);
    return page + ".SH SEE ALSO\n.BR kv1905-view (1),\n.BR kv1905d (8)\n";
}

std::string completionScript(const std::string &shell) {
    if (shell == "zsh")
        return "#compdef kv1905App\n"
               "_kv1905App() {\n"
               "    compadd -- ${(f)\"$(kv1905App completion words \"${(@)words[2,CURRENT]}\" 2>/dev/null)\"} || "
               "_files\n"
               "}\n"
               "if (( $funcstack[(I)_kv1905App] )); then _kv1905App \"$@\"; else compdef _kv1905App kv1905App; fi\n";
    // COMP_WORDS splits a MAC address at its colons, and only what follows the last one is replaced.
    return "# bash completion for kv1905App\n"
           "_kv1905App() {\n"
           "    local given line=${COMP_LINE:0:COMP_POINT}\n"
           "    read -ra given <<<\"$line\"\n"
           "    [[ $line != *' ' ]] || given+=('')\n"
           "    local word=${given[-1]}\n"
           "    mapfile -t COMPREPLY < <(kv1905App completion words \"${given[@]:1}\" 2>/dev/null)\n"
           "    [[ $word != *:* ]] || COMPREPLY=(\"${COMPREPLY[@]#\"${word%:*}:\"}\")\n"
           "}\n"
           "complete -o default -F _kv1905App kv1905App\n";
}

std::string wordsAfter(std::span<const std::string> words, Network &network) {
    std::set<std::string> values;
    std::vector<std::string> before;
    bool isValue = false;
    for (const std::string &word : words.first(words.empty() ? 0 : words.size() - 1)) {
        if (!isValue && !word.starts_with('-')) before.push_back(word);
        isValue = !isValue && isBeforeValue(word);
    }
    if (isValue) return "";  // the shell completes names of files
    const ToolCommand *command = before.empty() ? nullptr : findToolCommand(before.front());
    if (!words.empty() && words.back().starts_with('-')) {
        CommandLine line;
        for (const support::OptionRow &option : optionRows(line))
            values.insert(std::string("--") + option.name);
    } else if (command == nullptr || command->action == Action::Help) {
        for (const ToolCommand &each : kToolCommands)
            values.insert(each.name);
    } else {
        values = following(*command, std::span(before).subspan(1), network);
    }
    return linesOf(values, words.empty() ? "" : words.back());
}

}  // namespace kv1905d
