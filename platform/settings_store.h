// The device's non-volatile settings: a text file of "name=value" lines, shared by the library and the command. What
// fails throws std::system_error.
#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace kvplatform {

// Largest store, in bytes, that is read or written.
inline constexpr size_t kStoreLimit = size_t{1} << 20;

struct Settings {
    std::map<std::string, std::string> values;
    unsigned damagedLine = 0;  // number of the first line that is no setting and was skipped, from 1; 0: none
};

// Returns the path of the store: KV_NVRAM_FILE, or the device's default.
std::string storePath();

// Returns whether the name has only letters, digits and ". _ : -", at least one.
bool isSettingName(std::string_view text);

// Reads the store; of repeated lines the last counts. A missing file is an empty store.
Settings readSettings();

// Stores a setting, or removes it without a value. Damaged lines are not written again. The name must be valid, the
// value without a newline. EFBIG beyond kStoreLimit.
void changeSetting(const std::string &name, const std::optional<std::string> &value);

}  // namespace kvplatform
