#include "arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <optional>
#include <sstream>

#include "ieee1905/mac_address.h"
#include "outcome.h"

namespace kv1905d {
namespace {

constexpr size_t kMediaTypeDigits = 4;
constexpr size_t kQuoted = 40;  // characters of a refused argument that are repeated

std::optional<uint32_t> numberOf(std::string_view word, int base) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    if (error != std::errc{} || end != word.data() + word.size()) return std::nullopt;
    return value;
}

bool isMediaType(std::string_view word) {
    if (word.starts_with("0x")) word.remove_prefix(2);
    return word.size() <= kMediaTypeDigits && numberOf(word, 16);
}

bool isCountry(std::string_view word) {
    return std::all_of(word.begin(), word.end(), [](unsigned char c) { return std::isalnum(c) || c == '/'; });
}

bool isWithin(const Argument &argument, std::optional<size_t> value) {
    return value && *value >= argument.lowest && *value <= argument.highest;
}

bool accepts(const Argument &argument, std::string_view word) {
    switch (argument.kind) {
        case ArgumentKind::Device:
        case ArgumentKind::Interface:
            return !word.empty();
        case ArgumentKind::Mac:
            return MacAddress::parse(word).has_value();
        case ArgumentKind::MediaType:
            return isMediaType(word);
        case ArgumentKind::Number:
            return isWithin(argument, numberOf(word, 10));
        case ArgumentKind::Country:
            return isCountry(word) && isWithin(argument, word.size());
        case ArgumentKind::Text:
            return isWithin(argument, word.size());
        case ArgumentKind::Remote:  // a number that is not known may be an agent's own
            return numberOf(word, 10).has_value();
        case ArgumentKind::Choice:
            return false;
    }
    return false;
}

[[noreturn]] void refuse(const ToolCommand &command, const std::string &what) {
    throw Failure(Status::BadArguments, what + "; usage: kv1905App " + usageOf(command));
}

std::string checkWord(const Argument &argument, const std::string &word) {
    for (const NamedNumber &known : argument.words) {
        if (word == known.text) return known.number;
    }
    if (accepts(argument, word)) return word;
    const std::string quoted = word.size() > kQuoted ? word.substr(0, kQuoted) + "..." : word;
    throw Failure(Status::BadArguments,
                  std::string(argument.name) + " must be " + argument.values + ", not '" + quoted + "'");
}

// An agent splits the text of a remote command at its blanks, so a quoted word may hold a whole command.
std::vector<std::string> splitWords(std::span<const std::string> words) {
    std::vector<std::string> single;
    for (const std::string &word : words) {
        std::istringstream in(word);
        for (std::string part; in >> part;)
            single.push_back(part);
    }
    return single;
}

// Checks a remote command's arguments. Those of an unknown command are passed through unchanged.
std::vector<std::string> checkRemote(const Argument &argument, std::span<const std::string> words, Network &network) {
    const std::vector<std::string> split = splitWords(words);
    const std::string word = checkWord(argument, split.empty() ? "" : split.front());
    const std::string number = std::to_string(*numberOf(word, 10));  // an agent reads 02 as 2
    const ToolCommand *remote = findRemoteCommand(number);
    if (remote == nullptr) return {words.begin(), words.end()};
    std::vector<std::string> checked = checkArguments(*remote, std::span(split).subspan(1), network);
    checked.insert(checked.begin(), number);
    return checked;
}

}  // namespace

const ToolCommand *findRemoteCommand(std::string_view number) {
    const auto isIt = [number](const NamedNumber &word) { return word.number == number; };
    return std::any_of(std::begin(kRemoteWords), std::end(kRemoteWords), isIt) ? findToolCommand(number) : nullptr;
}

std::string usageOf(const ToolCommand &command) {
    std::string usage = command.name;
    for (const Argument &argument : command.arguments) {
        const std::string name = argument.name;
        usage += argument.count == ArgumentCount::One   ? " " + name
                 : argument.count == ArgumentCount::Any ? " [" + name + "...]"
                                                        : " [" + name + "]";
    }
    return usage;
}

std::vector<std::string> checkArguments(const ToolCommand &command, std::span<const std::string> words,
                                        Network &network) {
    size_t required = 0;
    for (const Argument &argument : command.arguments) {
        if (argument.count == ArgumentCount::One && ++required > words.size())
            refuse(command, std::string(argument.name) + " is missing");
    }
    bool hasOptional = words.size() > required;
    std::vector<std::string> checked;
    for (const Argument &argument : command.arguments) {
        if (argument.count == ArgumentCount::Any) {
            for (const std::string &word : words)
                checked.push_back(checkWord(argument, word));
            return checked;
        }
        if (argument.count == ArgumentCount::Optional && !hasOptional) {
            if (argument.kind == ArgumentKind::MediaType)
                checked.push_back(network.mediaTypeOf(checked.front(), checked.back()));
            continue;
        }
        if (argument.kind == ArgumentKind::Remote) {
            const auto rest = checkRemote(argument, words, network);
            checked.insert(checked.end(), rest.begin(), rest.end());
            return checked;
        }
        std::string word = checkWord(argument, words.front());
        if (argument.kind == ArgumentKind::Device) word = network.alMacOf(word);
        if (argument.kind == ArgumentKind::Interface) word = network.interfaceOf(checked.front(), word);
        checked.push_back(word);
        if (argument.count == ArgumentCount::Optional) hasOptional = false;
        words = words.subspan(1);
    }
    if (!words.empty()) refuse(command, "unexpected argument '" + words.front() + "'");
    return checked;
}

}  // namespace kv1905d
