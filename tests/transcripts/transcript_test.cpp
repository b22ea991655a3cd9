// Plays tests/transcripts, whose lines are steps with their outcomes, and fails each call to the outside of
// tests/transcripts/failure_sweep.txt once. Both files say what a run says: one that ends otherwise is written anew
// into the build tree, to be compared, and copied when the change is meant.
#include <gtest/gtest.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <sstream>

#include "protocol/message_row.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/sample_messages.h"
#include "transcripts/scripted_device.h"

using namespace kvtest;

namespace {

const std::string kDirectory = KV_SOURCE_DIRECTORY "/tests/transcripts/";

std::vector<std::string> linesOf(const std::string &path) {
    std::ifstream file(path);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) {
        lines.push_back(line);
    }
    EXPECT_FALSE(lines.empty()) << path;
    return lines;
}

bool isOutcome(const std::string &line) {
    return line.starts_with("  ");
}

bool isStep(const std::string &line) {
    return !line.empty() && line[0] != '#' && line[0] != '=' && !isOutcome(line);
}

void expectSame(const std::string &path, const std::vector<std::string> &expected,
                const std::vector<std::string> &found) {
    const auto [old, now] = std::mismatch(expected.begin(), expected.end(), found.begin(), found.end());
    if (old == expected.end() && now == found.end()) {
        return;
    }
    const std::string copy = std::filesystem::absolute(std::filesystem::path(path).filename());  // in the build tree
    std::ofstream file(copy);
    for (const std::string &line : found) {
        file << line << '\n';
    }
    std::string scenario, step;
    for (auto at = found.begin(); at != now; ++at) {
        scenario = at->starts_with("==") ? *at : scenario;
        step = isStep(*at) ? *at : step;
    }
    const auto show = [](const auto &at, const auto &end) { return at == end ? std::string("(the end)") : *at; };
    ADD_FAILURE() << std::filesystem::path(path).filename().string() << ":" << old - expected.begin() + 1 << "\n"
                  << scenario << "\n"
                  << step << "\nexpected\n"
                  << show(old, expected.end()) << "\nfound\n"
                  << show(now, found.end()) << "\nwhich may not be all. The whole is in " << copy
                  << ": compare it with that in tests/transcripts, and copy it over when every line is meant.";
}

// "== name" starts a fresh device, "#" a comment, two blanks an outcome; all else are steps.
std::vector<std::string> replay(const std::vector<std::string> &script) {
    std::vector<std::string> found;
    auto device = std::make_unique<ScriptedDevice>();
    for (const std::string &line : script) {
        if (isOutcome(line)) {
            continue;
        }
        found.push_back(line);
        if (line.starts_with("==")) {
            device.reset();
            device = std::make_unique<ScriptedDevice>();
        } else if (isStep(line)) {
            for (const std::string &each : device->play(line)) {
                found.push_back("  " + each);
            }
        }
    }
    return found;
}

class Transcripts : public testing::TestWithParam<std::string> {};

std::vector<std::string> transcripts() {
    std::vector<std::string> names;
    for (const auto &entry : std::filesystem::directory_iterator(kDirectory)) {
        if (entry.path().extension() == ".txt" && entry.path().stem() != "failure_sweep") {
            names.push_back(entry.path().stem());
        }
    }
    std::sort(names.begin(), names.end());
    return names;
}

}  // namespace

TEST_P(Transcripts, EndAsTheySay) {
    const std::string path = kDirectory + GetParam() + ".txt";
    const std::vector<std::string> script = linesOf(path);
    std::vector<std::string> found = replay(script);
    EXPECT_EQ(std::count(found.begin(), found.end(), "  the failure did not happen"), 0);
    expectSame(path, script, found);
}

INSTANTIATE_TEST_SUITE_P(Plugin, Transcripts, testing::ValuesIn(transcripts()),
                         [](const auto &file) { return file.param; });

namespace {

// A device on which every step of the sweep succeeds.
std::unique_ptr<ScriptedDevice> preparedDevice(const std::vector<std::string> &setUp) {
    auto device = std::make_unique<ScriptedDevice>();
    for (const std::string &step : setUp) {
        if (isStep(step)) {
            device->play(step);
        }
    }
    return device;
}

// Receives the sample of every message that somebody speaks.
std::vector<std::string> sampleSteps() {
    std::vector<std::string> steps;
    for (uint16_t type = 0; type < VEND_MSG_TYPE_LIMIT; ++type) {
        const kv::MessageRow *row = kv::findMessageRow(type);
        const auto *sample = std::find_if(std::begin(kSampleMessages), std::end(kSampleMessages),
                                          [type](const SampleMessage &each) { return each.type == type; });
        if (sample != std::end(kSampleMessages)) {
            steps.push_back(std::string("receive ") + kvVendorMessageName(type) + " " + sample->payload);
        } else {
            EXPECT_TRUE(row == nullptr || row->handle == nullptr) << type << " has no sample message";
        }
    }
    return steps;
}

// What only one of two outcomes has, a minus in front of what is missing. Lines that tell of success count for nothing.
std::string difference(const std::vector<std::string> &clean, const std::vector<std::string> &found) {
    std::string text;
    for (const auto &[lines, other, mark] : {std::tuple(&clean, &found, " -"), std::tuple(&found, &clean, " ")}) {
        for (const std::string &line : *lines) {
            const bool isSuccess = line[1] == '.' && line[2] > '4';
            if (!isSuccess && std::find(other->begin(), other->end(), line) == other->end()) {
                text += "\n   " + std::string(mark) + line;
            }
        }
    }
    return text;
}

std::vector<std::string> sends(std::vector<std::string> outcome) {
    std::erase_if(outcome, [](const std::string &line) { return !line.starts_with("sends"); });
    return outcome;
}

// Without the queries that wait, of which a failed call has none.
ScriptedDevice::State lastingState(const ScriptedDevice &device) {
    ScriptedDevice::State state = device.observe();
    std::erase_if(state, [](const auto &item) { return item.first.starts_with("query"); });
    return state;
}

}  // namespace

TEST(FailureSweep, EveryFailureTakesItsDocumentedPathAndTheNextCallWorks) {
    const std::string path = kDirectory + "failure_sweep.txt";
    const std::vector<std::string> listing = linesOf(path);
    const auto end = std::find(listing.begin(), listing.end(), "== steps");
    ASSERT_NE(end, listing.end());
    const std::vector<std::string> setUp(listing.begin(), end);
    std::vector<std::string> found(listing.begin(), end + 1);
    std::vector<std::string> steps = sampleSteps();
    std::copy_if(end + 1, listing.end(), std::back_inserter(steps),
                 [](const std::string &line) { return isStep(line) && !line.starts_with("receive "); });
    size_t failures = 0;
    for (const std::string &step : steps) {
        auto device = preparedDevice(setUp);
        const std::vector<std::string> clean = device->play(step);
        const std::vector<std::string> cleanAgain = device->play(step);
        const ScriptedDevice::State cleanState = lastingState(*device);
        found.push_back(step);
        for (const auto &[kind, call] : namedFailures()) {
            for (size_t nth = 1;; ++nth, ++failures) {
                device.reset();  // there is one at a time
                device = preparedDevice(setUp);
                device->play("fail " + kind + " " + std::to_string(nth));
                const std::vector<std::string> outcome = device->play(step);
                if (std::find(outcome.begin(), outcome.end(), "the failure did not happen") != outcome.end()) {
                    break;
                }
                std::istringstream told("  " + kind + " " + std::to_string(nth) + difference(clean, outcome));
                for (std::string line; std::getline(told, line);) {
                    found.push_back(line);
                }
                const std::vector<std::string> again = sends(device->play(step));
                EXPECT_TRUE(again == sends(clean) || again == sends(cleanAgain))
                    << step << ", " << kind << " " << nth << ": the next call sends something else";
                EXPECT_EQ(lastingState(*device), cleanState)
                    << step << ", " << kind << " " << nth << ": the next call leads elsewhere";
            }
        }
#if defined(__SANITIZE_ADDRESS__)
        ASSERT_EQ(__lsan_do_recoverable_leak_check(), 0) << step;
#endif
    }
    std::printf("%zu steps, %zu failures injected\n", steps.size(), failures);
    expectSame(path, listing, found);
}
