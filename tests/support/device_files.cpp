#include "support/device_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <filesystem>
#include <fstream>
#include <sstream>

namespace kvtest {

void writeFile(const std::string &path, const std::string &text) {
    static std::time_t stamp = 4'200'000'000;  // beyond 2038, the end of 32 bits with a sign
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), 0755);
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

}  // namespace kvtest
