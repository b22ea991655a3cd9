#include "support/device_files.h"

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <utime.h>

#include <fstream>
#include <sstream>

namespace kvtest {

void writeFile(const std::string &path, const std::string &text) {
    static std::time_t step = 0;
    step = step < 0 ? 1 - step : -step - 1;
    const std::time_t modified = 2'147'483'648 + step;  // 2038, the end of 32 bits with a sign
    std::ofstream(path, std::ios::binary) << text;
    chmod(path.c_str(), 0755);
    const utimbuf times = {modified, modified};
    ASSERT_EQ(utime(path.c_str(), &times), 0) << path << ": run the tests through lab/room";
}

std::string readFile(const std::string &path) {
    std::ostringstream text;
    text << std::ifstream(path, std::ios::binary).rdbuf();
    return text.str();
}

bool exists(const std::string &path) {
    struct stat facts {};  // not of the C++ library, whose times end in 2038 on 32-bit machines
    return stat(path.c_str(), &facts) == 0 && S_ISREG(facts.st_mode);
}

}  // namespace kvtest
