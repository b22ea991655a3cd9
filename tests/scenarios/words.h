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
std::string hexText(const void *bytes, size_t count);

// Returns one printable line: \n and \xHH for what is not printable.
std::string escapedText(const std::string &text);

// Reads one word after the other. A bare comma is a word; a bare word W*N is W repeated.
class Words {
  public:
    Words(const std::string &line);

    bool empty() const { return words_.empty(); }

    // Removes and returns the words before a bare separator, which is removed as well, or all words.
    Words until(const std::string &separator);

    // Returns how many words are before this bare one, npos when there is none.
    static constexpr size_t npos = static_cast<size_t>(-1);
    size_t find(const std::string &word) const;

    // Remove and return the next word. Throw std::invalid_argument when there is none or it does not fit.
    std::string text();
    int64_t number();
    Mac mac();

    // Removes the next word if it is this bare one, and returns whether it was.
    bool accept(const std::string &word);

    // Removes a word NAME=VALUE, if the next one is such.
    bool acceptSetting(std::string &name, std::string &value);

    // Remove and return the rest: as bytes up to "...", as their hexadecimal pattern, and as text.
    Bytes bytes();
    std::string bytePattern();
    std::string join(const char *separator = " ");

  private:
    struct Word {
        std::string text;
        bool isQuoted;
    };

    std::vector<Word> words_;
};

}  // namespace kvtest
