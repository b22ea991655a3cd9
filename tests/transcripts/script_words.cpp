#include "transcripts/script_words.h"

#include <algorithm>
#include <cstring>
#include <span>
#include <stdexcept>

namespace kvtest {

void misread(const std::string &what, const std::string &word) {
    throw std::invalid_argument(what + ": " + word);
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

ScriptWords::ScriptWords(const std::string &line) {
    for (size_t at = line.find_first_not_of(' '); at < line.size(); at = line.find_first_not_of(' ', at)) {
        Word &word = words_.emplace_back();
        if (line[at] == '"' || line[at] == '\'') {
            at = readQuoted(line, at, word);
        } else {
            const size_t end = std::min(line.find(' ', at), line.size());
            word.text = line.substr(at, end - at);
            at = end;
        }
    }
}

// Returns what stands behind the closing quote.
size_t ScriptWords::readQuoted(const std::string &line, size_t at, Word &word) {
    const char quote = line[at++];
    word.isQuoted = true;
    for (; at < line.size() && line[at] != quote; ++at) {
        if (line[at] != '\\') {
            word.text += line[at];
        } else if (line[++at] == 'x') {
            word.text += static_cast<char>(fromHex(line.substr(at + 1, 2)).at(0));
            at += 2;
        } else {
            word.text += line[at] == 'n' ? '\n' : line[at] == 'r' ? '\r' : line[at] == 't' ? '\t' : line[at];
        }
    }
    return at + 1;
}

std::string ScriptWords::text() {
    if (empty()) {
        misread("a word is missing", words_.empty() ? "" : "behind " + words_.back().text);
    }
    return words_[at_++].text;
}

uint32_t ScriptWords::number() {
    const std::string word = text();
    char *end = nullptr;
    const long value = std::strtol(word.c_str(), &end, 0);
    if (*end != '\0' || word.empty()) {
        misread("no number", word);
    }
    return static_cast<uint32_t>(value);
}

bool ScriptWords::accept(const std::string &word) {
    const bool is = !empty() && words_[at_].text == word && !words_[at_].isQuoted;
    at_ += is ? 1 : 0;
    return is;
}

Mac ScriptWords::mac() {
    const std::string word = text();
    if (const auto known = namedMacs().find(word); known != namedMacs().end()) {
        return known->second;
    }
    Mac mac;
    const Bytes bytes = fromHex(word);
    if (bytes.size() != mac.size()) {
        misread("no MAC address", word);
    }
    std::copy(bytes.begin(), bytes.end(), mac.begin());
    return mac;
}

Bytes ScriptWords::bytes() {
    Bytes all;
    for (; !empty(); ++at_) {
        const auto &[text, isQuoted] = words_[at_];
        const size_t star = isQuoted ? std::string::npos : text.find('*');
        const std::string once = text.substr(0, star);
        const size_t times = star == std::string::npos ? 1 : std::stoul(text.substr(star + 1));
        for (size_t n = 0; n < times; ++n) {
            if (isQuoted) {
                append(all, once);
            } else if (once[0] == '@') {
                all.resize(std::stoul(once.substr(1)));
            } else if (once.starts_with("h16:")) {
                const auto number = static_cast<uint16_t>(std::stol(once.substr(4), nullptr, 0));
                append(all, std::span(reinterpret_cast<const uint8_t *>(&number), sizeof number));
            } else if (once.starts_with("h32:")) {
                const auto number = static_cast<uint32_t>(std::stol(once.substr(4), nullptr, 0));
                append(all, std::span(reinterpret_cast<const uint8_t *>(&number), sizeof number));
            } else if (const auto mac = namedMacs().find(once); mac != namedMacs().end()) {
                append(all, mac->second);
            } else {
                append(all, fromHex(once));
            }
        }
    }
    return all;
}

std::string ScriptWords::lines() {
    std::string text;
    while (!empty()) {
        text += words_[at_++].text + "\n";
    }
    if (text.ends_with("$\n")) {
        text.resize(text.size() - 2);
    }
    return text;
}

}  // namespace kvtest
