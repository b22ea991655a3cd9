// Plays the scenarios of this directory; README.md explains their form.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "scenarios/scripted_device.h"

using namespace kvtest;

namespace {

// Whether text matches a pattern, in which "..." stands for any characters.
bool matches(const std::string &text, const std::string &pattern) {
    const size_t gap = pattern.find("...");
    if (gap == std::string::npos) {
        return text == pattern;
    }
    bool isMatch = false;
    const std::string rest = pattern.substr(gap + 3);
    for (size_t at = gap; at <= text.size() && !isMatch && text.compare(0, gap, pattern, 0, gap) == 0; ++at) {
        isMatch = matches(text.substr(at), rest);
    }
    return isMatch;
}

// The effect that a step must have, as a pattern for its text.
struct Outcome {
    bool isState;
    std::string pattern;
};

// "[to MAC|neighbours|all] [id N|new-id|no-id] TYPE BYTES"
std::string messagePattern(const ScriptedDevice &device, Words &in) {
    const std::string to = in.accept("to") ? in.text() : device.sender ? macText(device.sender->data()) : "agent";
    const std::string id = in.accept("no-id")    ? "no-id"
                           : in.accept("id")     ? idText(static_cast<uint16_t>(in.number()))
                           : in.accept("new-id") ? "new-id"
                                                 : idText(device.sender ? device.requestId : 0);
    const std::string type = in.text();
    return "to " + to + " " + id + " " + type + " " + in.bytePattern();
}

Outcome readOutcome(const ScriptedDevice &device, Words in) {
    if (in.accept("malformed")) {
        return {false, "logs 3 ...failed to parse the vendor specific TLV"};
    }
    if (in.accept("result")) {
        return {true, "result = " + in.text() + "\\n"};
    }
    if (in.find("=") != Words::npos) {
        const std::string name = in.until("=").join();
        return {true, name + " = " + escapedText(in.join())};
    }
    for (const char *kind : {"logs", "prints", "reads"}) {
        if (in.accept(kind)) {
            const std::string begin = std::string(kind) + " " + (kind[0] == 'l' ? in.text() + " " : "");
            const bool isWhole = in.accept("whole");
            const std::string text = escapedText(in.join());
            return {false, begin + (isWhole ? text : "..." + text + "...")};
        }
    }
    for (const std::string kind : {"writes", "sleeps", "log-setting", "posts", "config", "gives", "runs"}) {
        if (in.accept(kind)) {
            const bool isBytes = in.accept("bytes");
            return {false, kind + " " + (isBytes ? "bytes " + in.bytePattern() : escapedText(in.join()))};
        }
    }
    const std::string text = Words(in).join();
    const bool isNumber = text.find_first_not_of("-0123456789") == std::string::npos;
    return {isNumber, isNumber ? text : messagePattern(device, in)};
}

// Returns where two messages of one type differ; nothing for other effects.
std::string firstDifference(const std::string &found, const std::string &expected) {
    const auto at = std::mismatch(found.begin(), found.end(), expected.begin(), expected.end()).first - found.begin();
    const auto payload = static_cast<ptrdiff_t>(found.rfind(' ')) + 1;
    return at <= payload || !found.starts_with("to ")
               ? ""
               : "\n  the first difference is in payload byte " + std::to_string((at - payload) / 2);
}

// Returns the difference in words, empty when there is none.
std::string compare(const std::vector<Effect> &effects, std::vector<Outcome> expected, bool isOpen) {
    std::string difference;
    for (const Effect &effect : effects) {
        const bool isState = effect.kind == Effect::State;
        const auto next = std::find_if(expected.begin(), expected.end(), [&](const Outcome &each) {
            return each.isState == isState && (!isState || matches(effect.text, each.pattern));
        });
        if (next != expected.end() && matches(effect.text, next->pattern)) {
            expected.erase(next);
        } else if (effect.kind == Effect::Ordered && next != expected.end()) {
            return difference + "\n  found: " + effect.text + "\n  where this is expected: " + next->pattern +
                   firstDifference(effect.text, next->pattern);
        } else if (effect.kind != Effect::Optional && !isOpen) {
            difference += "\n  unexpected: " + effect.text;
        }
    }
    for (const Outcome &outcome : expected) {
        difference += "\n  missing, or not in this order: " + outcome.pattern;
    }
    return difference;
}

// Returns what is wrong with a step or its outcome, empty when nothing is.
std::string playStep(ScriptedDevice &device, const std::string &line) try {
    Words in(line);
    const bool hasOutcome = in.find("=>") != Words::npos;
    const auto effects = device.play(in.until("=>"));
    if (effects.has_value() != hasOutcome) {
        return hasOutcome ? "\n  a preparation has no outcome" : "\n  an action needs an outcome";
    }
    if (!hasOutcome) {
        return "";
    }
    if (device.failureIsMissing) {
        return "\n  the failure does not happen: the plug-in makes fewer such calls";
    }
    std::vector<Outcome> expected;
    bool isOpen = false;
    do {
        Words outcome = in.until(",");
        if (isOpen) {
            misread("* is not the last outcome, but", outcome.text());
        }
        isOpen = outcome.accept("*");
        const size_t times = outcome.find("x") == 1 ? static_cast<size_t>(outcome.until("x").number()) : 1;
        if (!isOpen && !outcome.accept("nothing")) {
            expected.insert(expected.end(), times * device.repeats, readOutcome(device, outcome));
        }
    } while (!in.empty());
    std::string difference = compare(*effects, expected, isOpen);
    if (!difference.empty()) {
        difference += "\n  all that the step does:";
        for (const Effect &effect : *effects) {
            difference += "\n    " + effect.text.substr(0, 300);
        }
    }
    return difference;
} catch (const std::exception &error) {
    return std::string("\n  ") + error.what();
}

}  // namespace

TEST(Scenarios, HaveTheOutcomesThatTheyName) {
    for (const auto &entry : std::filesystem::directory_iterator(KV_SOURCE_DIRECTORY "/tests/scenarios")) {
        std::unique_ptr<ScriptedDevice> device;
        std::ifstream file(entry.path());
        int number = 0;
        for (std::string line; entry.path().extension() == ".txt" && std::getline(file, line);) {
            ++number;
            if (line.starts_with("==")) {
                device.reset();  // one exists at a time
                device = std::make_unique<ScriptedDevice>();
            } else if (!line.empty() && line[0] != '#') {
                const std::string fault =
                    device == nullptr ? "\n  a step before the first ==" : playStep(*device, line);
                if (!fault.empty()) {
                    ADD_FAILURE_AT(entry.path().c_str(), number) << line << fault;
                }
            }
        }
    }
}
