#include "scenarios/words.h"

#include <strings.h>

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>

namespace kvtest {

namespace {

bool isQuote(char c) {
    return c == '"' || c == '\'';
}

// Reads the quoted text that begins at `at` and returns the position after the closing quote.
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
            const auto escape = escapes.find(line[at]);
            text += escape == escapes.end() ? line[at] : escape->second;
        }
    }
    if (at >= line.size()) {
        misread("no closing quote", line);
    }
    return at + 1;
}

template <typename Number>
Bytes inMachineOrder(const std::string &word) {
    const auto number = static_cast<Number>(std::stol(word.substr(4), nullptr, 0));
    Bytes bytes;
    append(bytes, std::span(reinterpret_cast<const uint8_t *>(&number), sizeof number));
    return bytes;
}

Bytes bytesOf(const std::string &word) {
    if (const auto mac = namedMacs().find(word); mac != namedMacs().end()) {
        return Bytes(mac->second.begin(), mac->second.end());
    }
    if (word.starts_with("h16:")) {
        return inMachineOrder<uint16_t>(word);
    }
    if (word.starts_with("h32:")) {
        return inMachineOrder<uint32_t>(word);
    }
    if (word.size() % 2 != 0 || word.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
        misread("no bytes", word);
    }
    return fromHex(word);
}

}  // namespace

void misread(const std::string &fault, const std::string &word) {
    throw std::invalid_argument(fault + ": " + word);
}

const std::map<std::string, Mac> &namedMacs() {
    static const std::map<std::string, Mac> macs = {{"local", kLocal},
                                                    {"agent", kAgent},
                                                    {"stranger", kStranger},
                                                    {"zero", {}},
                                                    {"everybody", {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF}},
                                                    {"radio24", {2, 0, 0, 0, 0, 0x24}},
                                                    {"radio5", {2, 0, 0, 0, 0, 5}}};
    return macs;
}

std::string hexText(const uint8_t *bytes, size_t count) {
    constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < count; ++i) {
        text += {kDigits[bytes[i] >> 4], kDigits[bytes[i] & 15]};
    }
    return text;
}

std::string macText(const uint8_t *mac) {
    for (const auto &[name, known] : namedMacs()) {
        if (std::memcmp(mac, known.data(), KV_MAC_LEN) == 0) {
            return name;
        }
    }
    return hexText(mac, KV_MAC_LEN);
}

std::string escapedText(const std::string &text) {
    std::string shown;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        const bool isPlain = byte >= ' ' && byte <= '~';
        shown += isPlain ? std::string(1, c) : c == '\n' ? "\\n" : "\\x" + hexText(&byte, 1);
    }
    return shown;
}

std::vector<std::string> split(const std::string &text, const std::string &separator) {
    std::vector<std::string> parts(1);
    for (size_t at = 0; at < text.size();) {
        if (text.compare(at, separator.size(), separator) == 0) {
            parts.emplace_back();
            at += separator.size();
            continue;
        }
        std::string ignored;
        const size_t end = isQuote(text[at]) ? readQuoted(text, at, ignored) : at + 1;
        parts.back() += text.substr(at, end - at);
        at = end;
    }
    for (std::string &part : parts) {
        part.erase(0, part.find_first_not_of(' '));
        part.erase(part.find_last_not_of(' ') + 1);
    }
    return parts;
}

Words::Words(const std::string &text) {
    for (size_t at = text.find_first_not_of(' '); at < text.size(); at = text.find_first_not_of(' ', at)) {
        Word &word = words_.emplace_back(Word{"", isQuote(text[at])});
        while (at < text.size() && text[at] != ' ') {
            if (isQuote(text[at])) {
                at = readQuoted(text, at, word.text);
            } else {
                word.text += text[at++];
            }
        }
    }
}

std::string Words::text() {
    if (empty()) {
        misread("a word is missing", words_.empty() ? "" : "after " + words_.back().text);
    }
    const auto &[text, isQuoted] = words_[at_++];
    for (const auto &[name, mac] : namedMacs()) {
        if (!isQuoted && text != name && strcasecmp(text.c_str(), name.c_str()) == 0) {  // AGENT
            std::string shown = hexText(mac.data(), mac.size());
            for (size_t colon = 2; colon < shown.size(); colon += 3) {
                shown.insert(colon, ":");
            }
            return shown;
        }
    }
    return text;
}

int64_t Words::number() {
    const std::string word = text();
    char *end = nullptr;
    const int64_t value = std::strtoll(word.c_str(), &end, 0);
    if (*end != '\0' || word.empty()) {
        misread("no number", word);
    }
    return value;
}

void Words::expectEnd() const {
    if (!empty()) {
        misread("unexpected word", words_[at_].text);
    }
}

bool Words::accept(const std::string &word) {
    const bool is = !empty() && words_[at_].text == word && !words_[at_].isQuoted;
    at_ += is ? 1 : 0;
    return is;
}

bool Words::acceptSetting(std::string &name, std::string &value) {
    const size_t equals = empty() || words_[at_].isQuoted ? std::string::npos : words_[at_].text.find('=');
    if (equals == std::string::npos) {
        return false;
    }
    name = words_[at_].text.substr(0, equals);
    value = words_[at_++].text.substr(equals + 1);
    return true;
}

Mac Words::mac() {
    const std::string word = text();
    const Bytes bytes = bytesOf(word);
    Mac mac;
    if (bytes.size() != mac.size()) {
        misread("no MAC address", word);
    }
    std::copy(bytes.begin(), bytes.end(), mac.begin());
    return mac;
}

Bytes Words::bytes() {
    Bytes all;
    for (; !empty() && (words_[at_].isQuoted || words_[at_].text != "..."); ++at_) {
        const auto &[text, isQuoted] = words_[at_];
        const size_t star = isQuoted ? std::string::npos : text.find('*');
        if (text[0] == '@' && !isQuoted) {
            all.resize(std::stoul(text.substr(1)));
            continue;
        }
        const Bytes once = isQuoted ? Bytes(text.begin(), text.end()) : bytesOf(text.substr(0, star));
        for (size_t times = star == std::string::npos ? 1 : std::stoul(text.substr(star + 1)); times > 0; --times) {
            append(all, once);
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
    std::string all = empty() ? "" : words_[at_++].text;
    while (!empty()) {
        all += separator + words_[at_++].text;
    }
    return all;
}

std::string Words::lines() {
    const std::string all = join("\n") + "\n";
    return all.ends_with("$\n") ? all.substr(0, all.size() - 2) : all;
}

}  // namespace kvtest
