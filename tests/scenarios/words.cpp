#include "scenarios/words.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>
#include <utility>

namespace kvtest {

namespace {

bool isQuote(char c) {
    return c == '"' || c == '\'';
}

// Appends the quoted text that begins at `at` and returns the position after the closing quote.
size_t readQuoted(const std::string &line, size_t at, std::string &text) {
    static const std::map<char, char> escapes = {{'n', '\n'}, {'r', '\r'}, {'t', '\t'}};
    const char quote = line[at++];
    for (; at < line.size() && line[at] != quote; ++at) {
        if (line[at] != '\\') {
            text += line[at];
        } else if (line[++at] == 'x') {
            text += static_cast<char>(fromHex(line.substr(at + 1, 2)).at(0));
            at += 2;
        } else {
            text += escapes.contains(line[at]) ? escapes.at(line[at]) : line[at];
        }
    }
    if (at >= line.size()) misread("no closing quote", line);
    return at + 1;
}

// Returns W repeated N times for a word W*N.
std::string repeated(const std::string &word) {
    const size_t star = word.find('*');
    if (star == 0 || star == std::string::npos || word.find_first_not_of("0123456789", star + 1) != std::string::npos)
        return word;
    std::string all;
    for (size_t times = std::stoul(word.substr(star + 1)); times > 0; --times)
        all += word.substr(0, star);
    return all;
}

Bytes bytesOf(const std::string &word) {
    if (const auto mac = namedMacs().find(word); mac != namedMacs().end())
        return Bytes(mac->second.begin(), mac->second.end());
    if (word.starts_with("h16:") || word.starts_with("h32:")) {  // a number in the machine's order
        const auto number = static_cast<uint32_t>(std::stol(word.substr(4), nullptr, 0));
        const auto half = static_cast<uint16_t>(number);
        return fromHex(word[1] == '1' ? hexText(&half, sizeof half) : hexText(&number, sizeof number));
    }
    if (word.size() % 2 != 0 || word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos)
        misread("no bytes", word);
    return fromHex(word);
}

}  // namespace

void misread(const std::string &fault, const std::string &word) {
    throw std::invalid_argument(fault + ": " + word);
}

const std::map<std::string, Mac> &namedMacs() {
    static const std::map<std::string, Mac> macs = {{"local", kLocal},
                                                    {"agent", kAgent},
                                                    {"unknown", kUnknown},
                                                    {"zero", {}},
                                                    {"broadcast", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
                                                    {"radio24", {2, 0, 0, 0, 0, 0x24}},
                                                    {"radio5", {2, 0, 0, 0, 0, 5}}};
    return macs;
}

std::string hexText(const void *bytes, size_t count) {
    std::string text;
    for (const uint8_t byte : std::span(static_cast<const uint8_t *>(bytes), count))
        text += {"0123456789abcdef"[byte >> 4], "0123456789abcdef"[byte & 15]};
    return text;
}

std::string macText(const uint8_t *mac) {
    for (const auto &[name, known] : namedMacs()) {
        if (std::memcmp(mac, known.data(), KV_MAC_LEN) == 0) return name;
    }
    return hexText(mac, KV_MAC_LEN);
}

std::string escapedText(const std::string &text) {
    std::string shown;
    for (const char c : text) {
        const bool isPlain = c >= ' ' && c <= '~';
        shown += isPlain ? std::string(1, c) : c == '\n' ? "\\n" : "\\x" + hexText(&c, 1);
    }
    return shown;
}

Words::Words(const std::string &line) {
    for (size_t at = line.find_first_not_of(' '); at < line.size(); at = line.find_first_not_of(' ', at)) {
        const bool isQuoted = isQuote(line[at]);
        std::string text(line[at] == ',' ? 1 : 0, ',');
        at += text.size();
        while (text != "," && at < line.size() && line[at] != ' ' && line[at] != ',') {
            if (isQuote(line[at])) {
                at = readQuoted(line, at, text);
            } else {
                text += line[at++];
            }
        }
        words_.push_back({isQuoted ? text : repeated(text), isQuoted});
    }
}

size_t Words::find(const std::string &word) const {
    const auto at = std::find_if(words_.begin(), words_.end(),
                                 [&](const Word &each) { return each.text == word && !each.isQuoted; });
    return at == words_.end() ? npos : static_cast<size_t>(at - words_.begin());
}

Words Words::until(const std::string &separator) {
    Words before("");
    while (!empty() && !accept(separator)) {
        before.words_.push_back(words_.front());
        words_.erase(words_.begin());
    }
    return before;
}

std::string Words::text() {
    static const std::map<std::string, std::string> addresses = {{"AGENT", "66:77:88:99:AA:BB"},
                                                                 {"LOCAL", "00:11:22:33:44:55"}};
    if (empty()) misread("a word is missing", "at the end");
    const Word word = words_.front();
    words_.erase(words_.begin());
    return !word.isQuoted && addresses.contains(word.text) ? addresses.at(word.text) : word.text;
}

int64_t Words::number() {
    const std::string word = text();
    char *end = nullptr;
    const int64_t value = std::strtoll(word.c_str(), &end, 0);
    if (*end != '\0' || word.empty()) misread("no number", word);
    return value;
}

bool Words::accept(const std::string &word) {
    const bool isNext = find(word) == 0;
    words_.erase(words_.begin(), words_.begin() + (isNext ? 1 : 0));
    return isNext;
}

bool Words::acceptSetting(std::string &name, std::string &value) {
    const size_t equals = empty() || words_[0].isQuoted ? std::string::npos : words_[0].text.find('=');
    if (equals == std::string::npos) return false;
    const std::string word = text();
    name = word.substr(0, equals);
    value = word.substr(equals + 1);
    return true;
}

Mac Words::mac() {
    const std::string word = text();
    const Bytes bytes = bytesOf(word);
    if (bytes.size() != KV_MAC_LEN) misread("no MAC address", word);
    Mac mac;
    std::copy(bytes.begin(), bytes.end(), mac.begin());
    return mac;
}

Bytes Words::bytes() {
    Bytes all;
    while (!empty() && find("...") != 0) {
        const bool isText = words_[0].isQuoted;
        const std::string word = text();
        if (word[0] == '@' && !isText) {
            all.resize(std::stoul(word.substr(1)));
        } else {
            append(all, isText ? Bytes(word.begin(), word.end()) : bytesOf(word));
        }
    }
    return all;
}

std::string Words::bytePattern() {
    const Bytes fixed = bytes();
    const std::string pattern = hexText(fixed.data(), fixed.size());
    return accept("...") ? pattern + "..." + bytePattern() : pattern;
}

std::string Words::join(const char *separator) {
    std::string all = empty() ? "" : text();
    while (!empty())
        all += separator + text();
    return all;
}

}  // namespace kvtest
