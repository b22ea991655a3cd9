#include "scenarios/words.h"

#include <algorithm>
#include <cctype>
#include <cstring>
#include <span>
#include <stdexcept>

namespace kvtest {

namespace {

// Reads the quoted text that begins at `at` and returns the position after the closing quote.
size_t readQuoted(const std::string &line, size_t at, std::string &text) {
    const char quote = line[at++];
    for (; at < line.size() && line[at] != quote; ++at) {
        const std::string escaped = line[at] == '\\' ? line.substr(++at, 1) : "";
        if (escaped == "x") {
            text += static_cast<char>(fromHex(line.substr(at + 1, 2)).at(0));
            at += 2;
        } else {
            text += escaped == "n" ? '\n' : escaped == "r" ? '\r' : escaped == "t" ? '\t' : line[at];
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
        std::string ignored;
        const bool isQuote = text[at] == '"' || text[at] == '\'';
        const size_t end = isQuote ? readQuoted(text, at, ignored) : at + 1;
        if (text.compare(at, separator.size(), separator) == 0) {
            parts.emplace_back();
            at += separator.size();
        } else {
            parts.back() += text.substr(at, end - at);
            at = end;
        }
    }
    for (std::string &part : parts) {
        const size_t begin = std::min(part.find_first_not_of(' '), part.size());
        part = part.substr(begin, part.find_last_not_of(' ') + 1 - begin);
    }
    return parts;
}

Words::Words(const std::string &text) {
    for (size_t at = text.find_first_not_of(' '); at < text.size(); at = text.find_first_not_of(' ', at)) {
        Word &word = words_.emplace_back();
        while (at < text.size() && text[at] != ' ') {
            const bool isValue = !word.text.empty() && word.equals == word.text.size() - 1;
            if ((text[at] == '"' || text[at] == '\'') && (word.text.empty() || isValue)) {
                word.isQuoted = word.text.empty();
                at = readQuoted(text, at, word.text);
                continue;
            }
            if (text[at] == '=' && word.equals == std::string::npos && !word.isQuoted) {
                word.equals = word.text.size();
            }
            word.text += text[at++];
        }
    }
}

std::string Words::text() {
    if (empty()) {
        misread("a word is missing", words_.empty() ? "" : "after " + words_.back().text);
    }
    const auto &[text, isQuoted, equals] = words_[at_++];
    std::string lower = text;
    std::transform(text.begin(), text.end(), lower.begin(), [](unsigned char c) { return std::tolower(c); });
    const auto named = namedMacs().find(lower);
    if (isQuoted || lower == text || named == namedMacs().end()) {
        return text;
    }
    const Mac &mac = named->second;
    char shown[18];
    std::snprintf(shown, sizeof shown, "%02X:%02X:%02X:%02X:%02X:%02X", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
    return shown;
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
    if (empty() || words_[at_].equals == std::string::npos) {
        return false;
    }
    const Word &word = words_[at_++];
    name = word.text.substr(0, word.equals);
    value = word.text.substr(word.equals + 1);
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
        const auto &[text, isQuoted, equals] = words_[at_];
        const size_t star = isQuoted ? std::string::npos : text.find('*');
        const std::string once = text.substr(0, star);
        const size_t times = star == std::string::npos ? 1 : std::stoul(text.substr(star + 1));
        if (once[0] == '@' && !isQuoted) {
            all.resize(std::stoul(once.substr(1)));
            continue;
        }
        const Bytes one = isQuoted ? Bytes(once.begin(), once.end()) : bytesOf(once);
        for (size_t n = 0; n < times; ++n) {
            append(all, one);
        }
    }
    return all;
}

std::string Words::bytePattern() {
    std::string pattern;
    for (bool isMore = true; isMore;) {
        const Bytes fixed = bytes();
        pattern += hexText(fixed.data(), fixed.size());
        isMore = accept("...");
        pattern += isMore ? "..." : "";
    }
    return pattern;
}

std::string Words::lines() {
    std::string all;
    while (!empty()) {
        all += words_[at_++].text + "\n";
    }
    if (all.ends_with("$\n")) {
        all.resize(all.size() - 2);
    }
    return all;
}

std::string Words::rest() {
    std::string all;
    while (!empty()) {
        all += (all.empty() ? "" : " ") + words_[at_++].text;
    }
    return all;
}

}  // namespace kvtest
