// The device's non-volatile settings: a text file of "name=value" lines, shared by the library and the commands.
#ifndef KV1905_PLATFORM_SETTINGS_STORE_H
#define KV1905_PLATFORM_SETTINGS_STORE_H

#include <sys/stat.h>

#include <span>
#include <string_view>

#include "safe_file.h"

namespace kvplatform {

struct Setting {
    char *name;
    char *value;
};

// Largest store, in bytes, that is read or written.
inline constexpr size_t kStoreLimit = size_t{1} << 20;

// Path of the store: KV_NVRAM_FILE, or the device's own place. Belongs to the environment.
const char *storePath();

// Letters, digits and ". _ : -", at least one.
bool isSettingName(std::string_view text);

// Anything that fits one line.
bool isSettingValue(std::string_view text);

// The store as one process sees it.
class SettingsStore {
  public:
    // Reads the file again when it changed since the last call. Returns 0, or an errno value after which the store
    // is empty. A missing file is an empty store. Ends the life of everything handed out before.
    int refresh(const char *path);

    // Value of a setting, null when there is none.
    char *find(std::string_view name) const;

    // Sorted by name, each name once; of repeated lines the last counts.
    std::span<const Setting> settings() const { return {settings_.get(), count_}; }

    // 1-based number of the first line that is no setting and was skipped, 0 when all were good.
    unsigned damagedLine() const { return damagedLine_; }

  private:
    int load(const char *path);
    int parse();
    void keepLastOfEachName();
    void clear();

    MallocArray<char> text_;  // the file, cut into NUL-terminated names and values
    size_t textSize_ = 0;
    MallocArray<Setting> settings_;
    size_t count_ = 0;
    unsigned damagedLine_ = 0;
    struct stat seen_ = {};  // the file that text_ came from
    bool reusable_ = false;  // seen_ is certain to differ once the file changes
};

// Stores a setting, or removes it when value is null. The file changes as a whole or not at all, and writers wait
// for one another. Damaged lines are not written again. name and value must be valid. Returns 0 or an errno value
// (EFBIG: beyond kStoreLimit).
int changeSetting(const char *path, const char *name, const char *value);

}  // namespace kvplatform

#endif
