// The words of a step or an outcome: bare, "quoted" or 'quoted', with C escapes in quotes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/fake_host.h"

namespace kvtest {

// Throws std::invalid_argument with the fault and the word that has it.
[[noreturn]] void misread(const std::string &fault, const std::string &word);

const std::map<std::string, Mac> &namedMacs();

// Returns the name of a known address, the hexadecimal digits of another.
std::string macText(const uint8_t *mac);
std::string hexText(const uint8_t *bytes, size_t count);

// Returns one printable line: \n and \xHH for what is not printable.
std::string escapedText(const std::string &text);

// Splits at a separator outside quotes and removes blanks around the parts.
std::vector<std::string> split(const std::string &text, const std::string &separator);

// Reads one word after the other; throws std::invalid_argument at a word that does not fit.
class Words {
  public:
    explicit Words(const std::string &text);

    bool empty() const { return at_ == words_.size(); }
    std::string text();
    int64_t number();
    Mac mac();

    // Throws if a word is left.
    void expectEnd() const;

    // Reads the next word if it is this one, and returns whether it was.
    bool accept(const std::string &word);

    // Reads a word NAME=VALUE, if the next one is such.
    bool acceptSetting(std::string &name, std::string &value);

    // Read the rest: as bytes up to "...", as their hexadecimal pattern, as lines (a last "$" leaves out the last
    // newline), and as text with single blanks.
    Bytes bytes();
    std::string bytePattern();
    std::string lines();
    std::string rest() { return join(" "); }

  private:
    struct Word {
        std::string text;
        bool isQuoted = false;
    };

    std::string join(const char *separator);

    std::vector<Word> words_;
    size_t at_ = 0;
};

}  // namespace kvtest
