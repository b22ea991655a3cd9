// The words of a step: bare, "quoted" or 'quoted', with C escapes in quotes.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "support/fake_host.h"

namespace kvtest {

// Ends the test with what is wrong with a script and the word at fault.
[[noreturn]] void misread(const std::string &what, const std::string &word);

const std::map<std::string, Mac> &namedMacs();

// The name of a known address, hexadecimal digits of another.
std::string macText(const uint8_t *mac);
std::string hexText(const uint8_t *bytes, size_t count);

// One line, printable: \n and \xHH for what is not.
std::string escapedText(const std::string &text);

// Reads the words of a step one after the other; throws std::invalid_argument at a word that does not fit.
class ScriptWords {
  public:
    explicit ScriptWords(const std::string &line);

    bool empty() const { return at_ == words_.size(); }
    std::string text();
    uint32_t number();
    Mac mac();

    // Whether the next word is this one, which is then read.
    bool accept(const std::string &word);

    // The rest: hexadecimal bytes, names of devices, 'text', BYTES*COUNT, @SIZE (zeros up to there), h16:NUMBER and
    // h32:NUMBER in this machine's byte order.
    Bytes bytes();

    // The rest as lines; a last "$" leaves the last newline away.
    std::string lines();

  private:
    struct Word {
        std::string text;
        bool isQuoted = false;
    };

    size_t readQuoted(const std::string &line, size_t at, Word &word);

    std::vector<Word> words_;
    size_t at_ = 0;
};

}  // namespace kvtest
