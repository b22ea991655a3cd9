// Runs the scenarios of this directory; docs/scenarios.md explains their form.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>

#include "features/wifi_clients/station_list.h"
#include "protocol/message_row.h"
#include "scenarios/scripted_device.h"
#include "support/sample_messages.h"

using namespace kvtest;

namespace {

// Returns whether text matches a pattern, in which "..." matches any characters.
bool matches(const std::string &text, const std::string &pattern) {
    const size_t gap = pattern.find("...");
    if (gap == std::string::npos) return text == pattern;
    bool isMatch = false;
    const std::string rest = pattern.substr(gap + 3);
    for (size_t at = gap; at <= text.size() && !isMatch && text.compare(0, gap, pattern, 0, gap) == 0; ++at)
        isMatch = matches(text.substr(at), rest);
    return isMatch;
}

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

// Adds the pattern of an outcome to what is expected.
void readOutcome(const ScriptedDevice &device, Words in, Effects &expected) {
    const std::string all = Words(in).join();
    if (all.find_first_not_of("-0123456789") == std::string::npos) return expected.state.push_back(all);
    if (in.accept("result")) return expected.state.push_back("result = " + in.text() + "\\n");
    if (in.find("=") != Words::npos) {
        const std::string name = in.until("=").join();
        return expected.state.push_back(name + " = " + escapedText(in.join()));
    }
    for (const std::string kind :
         {"logs", "prints", "reads", "writes", "sleeps", "log-setting", "posts", "config", "gives", "runs"}) {
        if (in.accept(kind)) {
            const std::string begin = kind + " " + (kind == "logs" ? in.text() + " " : "");
            const bool isPart = !in.accept("whole") && (kind == "logs" || kind == "prints" || kind == "reads");
            const std::string text = in.accept("bytes") ? "bytes " + in.bytePattern() : escapedText(in.join());
            return expected.ordered.push_back(begin + (isPart ? "..." + text + "..." : text));
        }
    }
    expected.ordered.push_back(in.accept("malformed") ? "logs 3 ...failed to parse the vendor specific TLV"
                                                      : messagePattern(device, in));
}

// Returns whether an effect counts only if an outcome names it: lines of level 5 to 7, printed lines and reads.
bool isOptional(const std::string &effect) {
    return effect.starts_with("prints ") || effect.starts_with("reads ") ||
           (effect.starts_with("logs ") && effect[effect.find(' ', 5) - 1] > '4');
}

// Returns the difference in words, empty when there is none.
std::string compare(const Effects &found, Effects expected, bool isOpen) {
    std::string difference;
    for (const std::string &text : found.state) {
        const auto at = std::find_if(expected.state.begin(), expected.state.end(),
                                     [&](const std::string &pattern) { return matches(text, pattern); });
        if (at != expected.state.end()) {
            expected.state.erase(at);
        } else if (!isOpen) {
            difference += "\n  unexpected change: " + text;
        }
    }
    auto next = expected.ordered.begin();
    for (const std::string &text : found.ordered) {
        if (next != expected.ordered.end() && matches(text, *next)) {
            ++next;
        } else if (next != expected.ordered.end() && !isOptional(text)) {
            return difference + "\n  found:    " + text + "\n  expected: " + *next;
        } else if (!isOptional(text) && !isOpen) {
            difference += "\n  unexpected: " + text;
        }
    }
    expected.state.insert(expected.state.end(), next, expected.ordered.end());
    for (const std::string &pattern : expected.state)
        difference += "\n  missing, or not in this order: " + pattern;
    return difference;
}

// Returns the error of a step or its outcome, empty if there is none.
std::string checkStep(ScriptedDevice &device, const std::string &line) try {
    Words in(line);
    const bool hasOutcome = in.find("=>") != Words::npos;
    auto effects = device.run(in.until("=>"));
    if (effects.has_value() != hasOutcome)
        return hasOutcome ? "\n  a preparation has no outcome" : "\n  an action needs an outcome";
    if (!hasOutcome) return "";
    if (device.failureIsMissing) return "\n  the failure does not happen: the plug-in makes fewer such calls";
    Effects expected;
    bool isOpen = false;
    do {
        Words outcome = in.until(",");
        if (isOpen) misread("* is not the last outcome, but", outcome.text());
        isOpen = outcome.accept("*");
        int64_t times = outcome.find("x") == 1 ? outcome.until("x").number() : 1;
        if (!isOpen && !outcome.accept("nothing")) {
            for (; times > 0; --times)
                readOutcome(device, outcome, expected);
        }
    } while (!in.empty());
    std::string difference = compare(*effects, expected, isOpen);
    if (!difference.empty()) {
        difference += "\n  all that the step does:";
        effects->ordered.insert(effects->ordered.end(), effects->state.begin(), effects->state.end());
        for (const std::string &effect : effects->ordered)
            difference += "\n    " + effect.substr(0, 300);
    }
    return difference;
} catch (const std::exception &error) {
    return std::string("\n  ") + error.what();
}

}  // namespace

TEST(Scenarios, OutcomesMatch) {
    std::set<Bytes> received;  // and not malformed
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
                    device == nullptr ? "\n  a step before the first ==" : checkStep(*device, line);
                if (!fault.empty()) ADD_FAILURE_AT(entry.path().c_str(), number) << line << fault;
                if (device != nullptr && !line.ends_with("malformed")) received.insert(device->received);
            }
        }
    }
    for (const SampleMessage &sample : kSampleMessages) {
        const Bytes value = message(kAgent, sample.type, fromHex(sample.payload));
        EXPECT_TRUE(received.contains(Bytes(value.begin() + 11, value.end())))
            << "no scenario receives sample " << sample.type;
    }
}

// A message is shorter than its length field, or has the right length field and too few bytes for its type.
TEST(Scenarios, ShorterMessagesAreMalformed) {
    ScriptedDevice device;
    for (const SampleMessage &sample : kSampleMessages) {
        const Bytes payload = fromHex(sample.payload), whole = message(kAgent, sample.type, payload);
        const auto before = device.observe();
        notes.clear();
        for (size_t length = 0; length < whole.size(); ++length)
            device.host.receive(kAgent, head(whole, length), 1);
        const size_t required = payload.size() - sample.optional;
        for (size_t length = 0; length < required; ++length)
            device.host.receive(kAgent, message(kAgent, sample.type, head(payload, length)), 1);
        const size_t count = whole.size() + required;
        EXPECT_EQ(logCount(3, "failed to parse the vendor specific TLV"), count) << "type " << sample.type;
        EXPECT_TRUE(device.host.sent.empty()) << "type " << sample.type;
        EXPECT_EQ(device.observe(), before) << "type " << sample.type;
    }
}

// Trace, dissector and documentation are compared with the samples: one without a new field would hide it from them.
TEST(Scenarios, SamplesHaveEachFieldThatIsEncoded) {
    ScriptedDevice device;
    for (const SampleMessage &sample : kSampleMessages) {
        const Bytes payload = fromHex(sample.payload);
        KvVendMsg msg = {};
        msg.payloadLen = static_cast<uint16_t>(payload.size());
        const kv::MessageRow &row = *kv::findMessageRow(sample.type);
        kv::ByteReader reader(payload.data(), payload.size());
        if (row.decode(reader, msg) == 0 || msg.payload == nullptr) continue;
        Bytes buffer(payload.size());
        kv::ByteWriter fits(buffer.data(), buffer.size()), isShort(buffer.data(), buffer.size() - 1);
        row.encode(msg, fits);
        row.encode(msg, isShort);
        EXPECT_TRUE(fits.ok() && !isShort.ok()) << "type " << sample.type << " is encoded with another length";
        if (sample.type == VEND_MSG_TYPE_WIFI_STATE_RESP)
            kv::freewifiMsgData(static_cast<WIFINeighborList *>(msg.payload));
        else
            std::free(msg.payload);
    }
}
