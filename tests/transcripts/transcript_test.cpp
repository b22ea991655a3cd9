// Plays tests/transcripts, whose lines are steps with their outcomes. A file that ends otherwise is written anew into the
// build tree.
#include <gtest/gtest.h>

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
