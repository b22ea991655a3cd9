// Checks the arguments of operator commands before the plug-in reads them: it would make 0 of a word where it expects
// a number, and 0 switches an interface on.
#pragma once

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "ieee1905/mac_address.h"
#include "outcome.h"
#include "tool_commands.h"

namespace kv1905d {

inline constexpr size_t kMediaTypeDigits = 4;
inline constexpr size_t kLongestName = 31;  // characters; no command's name is longer
inline constexpr size_t kQuoted = 40;       // characters of a refused argument that are repeated

inline std::optional<uint32_t> numberOf(std::string_view word, int base) {
    uint32_t value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value, base);
    if (error != std::errc{} || end != word.data() + word.size()) return std::nullopt;
    return value;
}

inline bool isMediaType(std::string_view word) {
    if (word.starts_with("0x")) word.remove_prefix(2);
    return word.size() <= kMediaTypeDigits && numberOf(word, 16);
}

// A number that is not known may be an agent's own. What is too long for a name is left to the limit of the text.
inline bool mayBeRemote(std::string_view word) {
    const bool isNumber = !word.empty() && word.find_first_not_of("0123456789") == std::string_view::npos;
    return isNumber || word.size() > kLongestName;
}

inline bool isWithin(const Argument &argument, std::optional<size_t> value) {
    return value && *value >= argument.lowest && *value <= argument.highest;
}

inline bool accepts(const Argument &argument, std::string_view word) {
    switch (argument.kind) {
        case ArgumentKind::Mac:
            return MacAddress::parse(word).has_value();
        case ArgumentKind::Number:
            return isWithin(argument, numberOf(word, 10));
        case ArgumentKind::MediaType:
            return isMediaType(word);
        case ArgumentKind::Remote:
            return mayBeRemote(word);
        case ArgumentKind::Text:
            return isWithin(argument, word.size());
    }
    return false;
}

// "AL-MAC STATE; STATE: ..."
inline std::string usageOf(const ToolCommand &command) {
    std::string names;
    std::string values;
    for (const Argument &argument : command.arguments) {
        const std::string name = argument.name;
        names += names.empty() ? "" : " ";
        names += argument.count == ArgumentCount::One   ? name
                 : argument.count == ArgumentCount::Any ? "[" + name + "...]"
                                                        : "[" + name + "]";
        if (argument.kind != ArgumentKind::Mac) values += "; " + name + ": " + argument.values;
    }
    return names.empty() ? "none" : names + values;
}

// The word as the plug-in understands it. Throws Failure.
inline std::string checkWord(const Argument &argument, const std::string &word) {
    for (const NamedNumber &known : argument.words) {
        if (word == known.text) return known.number;
    }
    if (accepts(argument, word)) return word;
    const std::string quoted = word.size() > kQuoted ? word.substr(0, kQuoted) + "..." : word;
    throw Failure(Status::BadArguments,
                  std::string(argument.name) + " must be " + argument.values + ", not '" + quoted + "'");
}

// All arguments as the plug-in understands them; those of a known remote command are checked like its own.
// Throws Failure, which names the first that is wrong.
inline std::vector<std::string> checkArguments(const ToolCommand &command, std::span<const std::string> words) {
    std::vector<std::string> checked;
    for (const Argument &argument : command.arguments) {
        const size_t count = argument.count == ArgumentCount::Any ? words.size() : std::min<size_t>(words.size(), 1);
        if (count == 0 && argument.count == ArgumentCount::One) {
            throw Failure(Status::BadArguments,
                          std::string(argument.name) + " is missing; the arguments are: " + usageOf(command));
        }
        for (const std::string &word : words.first(count))
            checked.push_back(checkWord(argument, word));
        words = words.subspan(count);
        const ToolCommand *remote = argument.kind == ArgumentKind::Remote ? findRemoteCommand(checked.back()) : nullptr;
        if (remote == nullptr) continue;
        const std::vector<std::string> rest = checkArguments(*remote, words);
        checked.insert(checked.end(), rest.begin(), rest.end());
        return checked;
    }
    if (!words.empty()) {
        throw Failure(Status::BadArguments,
                      "'" + words.front() + "' is too much; the arguments are: " + usageOf(command));
    }
    return checked;
}

}  // namespace kv1905d
