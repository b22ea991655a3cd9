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
    const char *value;  // that follows, in [] when it may be missing; null for a flag
    const char *help;
    std::function<void(const std::string &value)> set;  // throws BadOption
    char letter = 0;                                    // short form; 0: none
    bool isGiven = false;                               // on the command line
};

// One line that names the option and the value at fault.
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

    // Sets the options up to the next other word and returns that word, nothing at the end. Throws BadOption.
    std::optional<std::string> nextWord();

    // The words not read yet, options included; none is left.
    std::vector<std::string> rest();

  private:
    void set(OptionRow &row);

    const char *program_;
    int argc_;
    char *const *argv_;
    std::span<OptionRow> rows_;
};

// "--name VALUE", after the short form if there is one.
std::string synopsis(const OptionRow &row);

// Two columns, a line for each option, as --help prints them.
std::string optionHelp(std::span<const OptionRow> rows);

}  // namespace support
