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
const std::string kPath = std::getenv("PATH") == nullptr ? "" : std::getenv("PATH");
}  // namespace

void writeFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary) << text;
    touchFile(path);
}

void touchFile(const std::string &path) {
    static std::time_t stamp = 4'200'000'000;  // beyond 2038, the end of 32 bits with a sign
    ++stamp;
    const utimbuf times = {stamp, stamp};
    ASSERT_EQ(utime(path.c_str(), &times), 0) << path << ": run the tests through lab/room";
}

std::string readFile(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool exists(const std::string &path) {
    return std::filesystem::exists(path);
}

std::string commandPath(const std::string &name) {
    return kCommands + "/" + name;
}

void fakeCommand(const std::string &name, const std::string &script) {
    std::filesystem::create_directories(kCommands);
    const std::string path = commandPath(name);
    std::ofstream(path) << "#!/bin/sh\n" << script;
    chmod(path.c_str(), 0755);
    setenv("PATH", (kCommands + ":" + kPath).c_str(), 1);
}

void emptyDevice() {
    for (const std::string &path : {kConfigFile, kVersionFile, kCommands, std::string("/data/nvram")}) {
        std::filesystem::remove_all(path);
    }
    setenv("PATH", kPath.c_str(), 1);
}

}  // namespace kvtest
