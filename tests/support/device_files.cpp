#include "support/device_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace kvtest {

namespace {
const std::string kCommands = "/tmp/commands";
[[maybe_unused]] const bool kIsInPath = setenv("PATH", (kCommands + ":" + std::getenv("PATH")).c_str(), 1) == 0;
}  // namespace

void writeFile(const std::string &path, const std::string &text) {
    static std::time_t stamp = 4'200'000'000;  // beyond 2038, the end of 32 bits with a sign
    std::ofstream(path, std::ios::binary) << text;
    touchFile(path, ++stamp);
}

void touchFile(const std::string &path, std::time_t modified) {
    const utimbuf times = {modified, modified};
    ASSERT_EQ(utime(path.c_str(), &times), 0) << path << ": run the tests through lab/room";
}

std::string readFile(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool exists(const std::string &path) {
    return std::filesystem::is_regular_file(path);
}

std::string commandPath(const std::string &name) {
    return kCommands + "/" + name;
}

void fakeCommand(const std::string &name, const std::string &script) {
    std::filesystem::create_directories(kCommands);
    writeFile(commandPath(name), "#!/bin/sh\n" + script);
    chmod(commandPath(name).c_str(), 0755);
}

void emptyDevice() {
    for (const std::string &path : {kConfigFile, kVersionFile, kCommands, std::string("/data/nvram")}) {
        std::filesystem::remove_all(path);
    }
}

}  // namespace kvtest
