// Plays the scenarios of this directory; README.md explains their form.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>

#include "scenarios/scripted_device.h"

using namespace kvtest;

namespace {

const std::string kDirectory = KV_SOURCE_DIRECTORY "/tests/scenarios/";

// Whether text matches a pattern, in which "..." stands for any characters.
bool matches(const std::string &text, const std::string &pattern) {
    const size_t gap = pattern.find("...");
    if (gap == std::string::npos) {
        return text == pattern;
    }
    if (text.compare(0, gap, pattern, 0, gap) != 0) {
        return false;
    }
    const std::string rest = pattern.substr(gap + 3);
    for (size_t at = gap; at <= text.size(); ++at) {
        if (matches(text.substr(at), rest)) {
            return true;
        }
    }
    return false;
}

// The effect that a step must have, as a pattern for its text.
struct Outcome {
    bool isState;
    std::string pattern;
};

// "[to MAC|neighbours|all] [id N|new-id|no-id] TYPE BYTES"
std::string messagePattern(const ScriptedDevice &device, Words &in) {
    const auto hexId = [](int64_t id) {
        char text[8];
        std::snprintf(text, sizeof text, "%04x", static_cast<unsigned>(id));
        return std::string(text);
    };
    const std::string slot = in.accept("to") ? in.text() : device.sender ? macText(device.sender->data()) : "agent";
    const bool isOfRequest = !in.accept("new-id") && device.sender.has_value();
    const std::string id = in.accept("no-id") ? ""
                           : in.accept("id")  ? hexId(in.number())
                                              : hexId(isOfRequest ? device.requestId : 0);
    const std::string type = in.text();
    return device.messageText(slot, id, type + " " + in.bytePattern());
}

// "logs LEVEL", "prints" or "reads", then ["whole"] "text"
std::string linePattern(const std::string &kind, Words &in) {
    const std::string begin = kind + " " + (kind == "logs" ? in.text() + " " : "");
    const bool isWhole = in.accept("whole");
    const std::string text = escapedText(in.rest());
    return begin + (isWhole ? text : "..." + text + "...");
}

Outcome readOutcome(const ScriptedDevice &device, const std::string &text) {
    constexpr const char *kPlain[] = {"writes", "sleeps", "log-setting", "posts", "config", "gives", "result", "runs"};
    Words in(text);
    if (text == "malformed") {
        return {false, "logs 3 ...failed to parse the vendor specific TLV"};
    }
    if (text.starts_with("gives bytes ")) {
        return {false, "gives bytes " + Words(text.substr(12)).bytePattern()};
    }
    if (text.find_first_not_of("-0123456789") == std::string::npos) {
        return {true, text};
    }
    for (const char *kind : {"logs", "prints", "reads"}) {
        if (in.accept(kind)) {
            return {false, linePattern(kind, in)};
        }
    }
    if (const size_t equals = text.find(" = "); equals != std::string::npos) {
        const std::string value = text.substr(equals + 3);
        return {true, text.substr(0, equals + 3) + (value[0] == '"' ? escapedText(Words(value).rest()) : value)};
    }
    if (std::any_of(std::begin(kPlain), std::end(kPlain), [&](const char *kind) { return in.accept(kind); })) {
        return {false, text};
    }
    return {false, messagePattern(device, in)};
}

// Where two messages of one type differ; empty for other effects.
std::string firstDifference(const std::string &found, const std::string &expected) {
    const size_t at = static_cast<size_t>(
        std::mismatch(found.begin(), found.end(), expected.begin(), expected.end()).first - found.begin());
    const size_t payload = found.rfind(' ') + 1;
    return at <= payload || expected.rfind(' ') + 1 != payload
               ? ""
               : "\n  the first difference is in payload byte " + std::to_string((at - payload) / 2);
}

// Returns the difference in words, empty when there is none.
std::string compare(const std::vector<Effect> &effects, const std::vector<Outcome> &expected, bool isOpen) {
    std::vector<Outcome> ordered, states;
    for (const Outcome &outcome : expected) {
        (outcome.isState ? states : ordered).push_back(outcome);
    }
    std::string difference;
    auto next = ordered.begin();
    for (const Effect &effect : effects) {
        if (effect.kind == Effect::State) {
            const auto state = std::find_if(states.begin(), states.end(),
                                            [&](const Outcome &each) { return matches(effect.text, each.pattern); });
            if (state != states.end()) {
                states.erase(state);
            } else if (!isOpen) {
                difference += "\n  unexpected change: " + effect.text;
            }
        } else if (next != ordered.end() && matches(effect.text, next->pattern)) {
            ++next;
        } else if (effect.kind != Effect::Optional && next != ordered.end()) {
            return difference + "\n  found: " + effect.text + "\n  where this is expected: " + next->pattern +
                   firstDifference(effect.text, next->pattern);
        } else if (effect.kind != Effect::Optional && !isOpen) {
            difference += "\n  unexpected: " + effect.text;
        }
    }
    for (; next != ordered.end(); ++next) {
        difference += "\n  missing, or not in this order: " + next->pattern;
    }
    for (const Outcome &state : states) {
        difference += "\n  missing: " + state.pattern;
    }
    return difference;
}

// Returns what is wrong with a step or its outcome, empty when nothing is.
std::string playStep(ScriptedDevice &device, const std::string &line) try {
    const std::vector<std::string> halves = split(line, "=>");
    const bool isAction = ScriptedDevice::isAction(halves[0]);
    if (isAction != (halves.size() == 2)) {
        return isAction ? "\n  an action needs an outcome" : "\n  a preparation has no outcome";
    }
    const std::vector<Effect> effects = device.play(halves[0]);
    if (!isAction) {
        return "";
    }
    if (device.failureIsMissing) {
        return "\n  the failure does not happen: the plug-in makes fewer such calls";
    }
    std::vector<Outcome> expected;
    bool isOpen = false;
    for (std::string part : split(halves[1], ",")) {
        size_t times = device.repeats;
        if (const size_t x = part.find(" x "); x != std::string::npos && part.find_first_not_of("0123456789") == x) {
            times *= std::stoul(part);
            part = part.substr(x + 3);
        }
        if (isOpen) {
            misread("* is not the last outcome, but", part);
        }
        isOpen = part == "*";
        if (!isOpen && part != "nothing") {
            expected.insert(expected.end(), times, readOutcome(device, part));
        }
    }
    std::string difference = compare(effects, expected, isOpen);
    if (!difference.empty()) {
        difference += "\n  all that the step does:";
        for (const Effect &effect : effects) {
            difference += "\n    " + effect.text.substr(0, 300);
        }
    }
    return difference;
} catch (const std::exception &error) {
    return std::string("\n  ") + error.what();
}

class Scenarios : public testing::TestWithParam<std::string> {};

std::vector<std::string> scenarios() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(kDirectory)) {
        if (entry.path().extension() == ".txt") {
            names.push_back(entry.path().stem());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST_P(Scenarios, HaveTheOutcomesThatTheyName) {
    const std::string path = kDirectory + GetParam() + ".txt";
    std::ifstream file(path);
    std::unique_ptr<ScriptedDevice> device;
    int number = 0;
    for (std::string line; std::getline(file, line);) {
        ++number;
        if (line.empty() || line[0] == '#') continue;
        if (line.starts_with("==")) {
            device.reset();
            device = std::make_unique<ScriptedDevice>();
            continue;
        }
        ASSERT_NE(device, nullptr) << "a step before the first ==";
        if (const std::string fault = playStep(*device, line); !fault.empty()) {
            ADD_FAILURE_AT(path.c_str(), number) << line << fault;
        }
    }
    ASSERT_NE(device, nullptr);
}

INSTANTIATE_TEST_SUITE_P(Plugin, Scenarios, testing::ValuesIn(scenarios()),
                         [](const auto &file) { return file.param; });
