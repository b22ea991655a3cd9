#include "frame/parameters.h"

#include <cstdlib>
#include <cstring>

#include "frame/file.h"
#include "frame/local_files.h"
#include "frame/log.h"
#include "frame/shell.h"

uint32_t kvFlags = 0;

namespace kv {

namespace {

constexpr unsigned kControllerBit = 0x1;

// A key with a number, and the flag that it sets when the number is not 0.
struct NumberFlag {
    const char *key;
    uint32_t flag;
};

constexpr NumberFlag kNumberFlags[] = {
    {"autoRoleSelect=", KV_FLAG_AUTO_ROLE_SELECT},
    {"autoRoleSelectOnlyWhenGwFound=", KV_FLAG_AUTO_ROLE_SELECT_ONLY_WHEN_GW_FOUND},
};

constexpr char kModeKey[] = "Mode=";

uint32_t modeFlag(const char *line) {
    char word[16] = "";
    if (std::strncmp(line, kModeKey, sizeof kModeKey - 1) == 0) std::sscanf(line + sizeof kModeKey - 1, "%15s", word);
    if (std::strncmp(word, "ap", 2) == 0) return KV_FLAG_MODE_AP;
    return std::strncmp(word, "repeater", 8) == 0 ? KV_FLAG_MODE_REPEATER : 0;
}

// Returns the flag that a line sets. A number that does not parse, or a key that is not at the line's start, repeats
// the last value.
uint32_t flagOfLine(const char *line, int &value) {
    for (const NumberFlag &row : kNumberFlags) {
        if (std::strstr(line, row.key) != nullptr) {
            if (const size_t length = std::strlen(row.key); std::strncmp(line, row.key, length) == 0) {
                std::sscanf(line + length, "%d", &value);
            }
            return value != 0 ? row.flag : 0;
        }
    }
    return std::strstr(line, kModeKey) != nullptr ? modeFlag(line) : 0;
}

}  // namespace

int updateParameters() {
    const File file = openFile(kDeviceConfigPath, "r");
    if (file == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Can't open the file %s\n", kDeviceConfigPath);
        return KV_RET_ERR;
    }
    kvFlags = 0;
    int value = 0;
    ConfigLine line;
    while (readLine(file.get(), line)) {
        kvFlags |= flagOfLine(line, value);
    }
    kos_pk("%s(%d) kvFlags = 0x%04X\n", "kvMAP1905_param_update", __LINE__, kvFlags);
    return KV_RET_OK;
}

int findController() {
    int mode = 0;
    readOutput("nvram show | grep multiap_mode", kNvramScratchPath, [&](std::FILE *file) {
        char line[64];
        if (readLine(file, line)) {
            if (const char *equals = std::strchr(line, '=')) {
                mode = std::atoi(equals + 1);
            }
        }
    });
    return (static_cast<unsigned>(mode) & kControllerBit) != 0 ? 1 : 0;
}

}  // namespace kv
