#include "settings_store.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <system_error>

#include "support/files.h"

namespace kvplatform {

namespace {

constexpr mode_t kNewStoreMode = 0600;  // settings hold pass phrases

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == ':' || c == '-';
}

std::string readText(const std::string &path) {
    try {
        return support::readFile(path, kStoreLimit);
    } catch (const std::system_error &error) {
        if (error.code().value() == ENOENT) return "";
        throw;
    }
}

mode_t modeOf(const std::string &path) {
    struct stat facts = {};
    return stat(path.c_str(), &facts) == 0 ? facts.st_mode & 07777 : kNewStoreMode;
}

}  // namespace

std::string storePath() {
    const char *path = getenv("KV_NVRAM_FILE");
    return path != nullptr && *path != '\0' ? path : "/data/nvram";
}

bool isSettingName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isNameCharacter);
}

Settings readSettings() {
    Settings settings;
    const std::string text = readText(storePath());
    unsigned number = 0;
    for (std::string_view rest = text; !rest.empty();) {
        const std::string_view line = rest.substr(0, rest.find('\n'));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        number++;
        const size_t equals = line.find('=');
        const bool isSetting = equals != std::string_view::npos && isSettingName(line.substr(0, equals)) &&
                               line.find('\0') == std::string_view::npos;
        if (isSetting) {
            settings.values.insert_or_assign(std::string(line.substr(0, equals)), line.substr(equals + 1));
        } else if (!line.empty() && settings.damagedLine == 0) {
            settings.damagedLine = number;
        }
    }
    return settings;
}

void changeSetting(const std::string &name, const std::optional<std::string> &value) {
    const std::string path = storePath();
    const support::FileLock lock(path + ".lock");
    Settings settings = readSettings();
    if (value) {
        settings.values[name] = *value;
    } else if (settings.values.erase(name) == 0) {
        return;
    }
    std::string text;
    for (const auto &[key, content] : settings.values)
        text.append(key).append("=").append(content).append("\n");
    if (text.size() > kStoreLimit) throw support::systemError(path, "write", EFBIG);
    support::replaceFile(path, text, modeOf(path), support::Durable::Yes);
}

}  // namespace kvplatform
