#include "support/options.h"

#include <getopt.h>

#include <algorithm>
#include <utility>

namespace support {
namespace {

bool mayLackValue(const OptionRow &row) {
    return row.value != nullptr && row.value[0] == '[';
}

}  // namespace

std::function<void(const std::string &)> store(std::string &target) {
    return [&target](const std::string &value) { target = value; };
}

std::function<void(const std::string &)> raise(bool &flag) {
    return [&flag](const std::string &) { flag = true; };
}

OptionReader::OptionReader(const char *program, int argc, const char *const *argv, std::span<OptionRow> rows)
    // getopt_long does not change the words where the options end at the first other word ("+").
    : program_(program), argc_(argc), argv_(const_cast<char *const *>(argv)), rows_(rows) {
    opterr = 0;
    optind = 0;  // starts afresh
}

std::optional<std::string> OptionReader::nextWord() {
    std::string letters = "+:";
    std::vector<option> options;
    for (const OptionRow &row : rows_) {
        const int has = row.value == nullptr ? no_argument : mayLackValue(row) ? optional_argument : required_argument;
        options.push_back({row.name, has, nullptr, 0});
        if (row.letter != 0) letters.append(1, row.letter).append(row.value == nullptr ? "" : ":");
    }
    options.push_back({});
    int index = 0;
    for (int found; (found = getopt_long(argc_, argv_, letters.c_str(), options.data(), &index)) >= 0;) {
        if (found == '?' || found == ':') {
            const std::string word = optopt == 0 ? argv_[optind - 1] : std::string("-") + static_cast<char>(optopt);
            throw BadOption((found == '?' ? "unknown option '" : "a value is missing after '") + word + "'; see " +
                            program_ + " --help");
        }
        const auto isIt = [found](const OptionRow &row) { return row.letter == found; };
        set(found == 0 ? rows_[static_cast<size_t>(index)] : *std::find_if(rows_.begin(), rows_.end(), isIt));
    }
    return optind < argc_ ? std::optional<std::string>(argv_[optind++]) : std::nullopt;
}

// Takes the next word as an optional value if it is a number.
void OptionReader::set(OptionRow &row) {
    std::string value = optarg == nullptr ? "" : optarg;
    const std::string next = mayLackValue(row) && optarg == nullptr && optind < argc_ ? argv_[optind] : "";
    if (!next.empty() && next.find_first_not_of("0123456789") == std::string::npos) value = argv_[optind++];
    row.set(value);
    row.isGiven = true;
}

std::vector<std::string> OptionReader::rest() {
    return {argv_ + std::exchange(optind, argc_), argv_ + argc_};
}

std::string synopsis(const OptionRow &row) {
    const std::string letter = row.letter == 0 ? "" : std::string("-") + row.letter + ", ";
    return letter + "--" + row.name + (row.value == nullptr ? "" : std::string(" ") + row.value);
}

std::string optionHelp(std::span<const OptionRow> rows) {
    size_t width = 0;
    for (const OptionRow &row : rows)
        width = std::max(width, synopsis(row).size());
    std::string text;
    for (const OptionRow &row : rows) {
        const std::string name = synopsis(row);
        text += "  " + name + std::string(width - name.size() + 2, ' ') + row.help + "\n";
    }
    return text;
}

}  // namespace support
