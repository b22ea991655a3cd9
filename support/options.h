// Reads a command line by a program's table of options.
#pragma once

#include <functional>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

namespace support {

struct OptionRow {
    const char *name;
    const char *value;  // its name in help, in [] if optional; null for a flag
    const char *help;
    std::function<void(const std::string &value)> set;  // throws BadOption
    char letter = 0;                                    // short form; 0: none
    bool isGiven = false;                               // on the command line
};

// One line with the option and the invalid value.
struct BadOption : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Setters for OptionRow.
std::function<void(const std::string &)> store(std::string &target);
std::function<void(const std::string &)> raise(bool &flag);

// Reads the words of main() from left to right. One reader at a time: getopt_long has one state.
class OptionReader {
  public:
    // `program` is named in errors. The rows must outlive the reader.
    OptionReader(const char *program, int argc, const char *const *argv, std::span<OptionRow> rows);

    // Sets all options before the next other word and returns that word; nothing at the end. Throws BadOption.
    std::optional<std::string> nextWord();

    // Returns all remaining words, options included.
    std::vector<std::string> rest();

  private:
    void set(OptionRow &row);

    const char *program_;
    int argc_;
    char *const *argv_;
    std::span<OptionRow> rows_;
};

// Returns "-n, --name VALUE", without the first part if there is no short form.
std::string synopsis(const OptionRow &row);

// Returns the table that --help prints: a line for each option, in two columns.
std::string optionHelp(std::span<const OptionRow> rows);

}  // namespace support
