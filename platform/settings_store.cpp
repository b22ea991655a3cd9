#include "settings_store.h"

#include <stdio.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <cerrno>

namespace kvplatform {

namespace {

constexpr char kDefaultPath[] = "/data/nvram";
constexpr mode_t kNewStoreMode = 0600;  // settings hold pass phrases

// File times move in steps of a clock tick, so a file that changed just now may change again without looking
// different. A copy is only trusted when the file had been at rest for this long.
constexpr double kRestSeconds = 0.1;

bool sameTime(const timespec &a, const timespec &b) {
    return a.tv_sec == b.tv_sec && a.tv_nsec == b.tv_nsec;
}

bool sameFile(const struct stat &a, const struct stat &b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size && sameTime(a.st_mtim, b.st_mtim) &&
           sameTime(a.st_ctim, b.st_ctim);
}

bool hasRested(const struct stat &file) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    const double age =
        difftime(now.tv_sec, file.st_ctim.tv_sec) + static_cast<double>(now.tv_nsec - file.st_ctim.tv_nsec) / 1e9;
    return age > kRestSeconds;
}

bool isNameCharacter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
           c == ':' || c == '-';
}

bool nameBefore(const Setting &a, const Setting &b) {
    const int order = strcmp(a.name, b.name);
    return order != 0 ? order < 0 : a.name < b.name;  // equal names in the order of their lines
}

void writeSettings(FILE *out, std::span<const Setting> settings, const Setting &changed) {
    for (const Setting &setting : settings) {
        if (strcmp(setting.name, changed.name) != 0) fprintf(out, "%s=%s\n", setting.name, setting.value);
    }
    if (changed.value != nullptr) fprintf(out, "%s=%s\n", changed.name, changed.value);
}

}  // namespace

const char *storePath() {
    const char *path = getenv("KV_NVRAM_FILE");
    return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

bool isSettingName(std::string_view text) {
    return !text.empty() && std::all_of(text.begin(), text.end(), isNameCharacter);
}

bool isSettingValue(std::string_view text) {
    return text.find('\n') == std::string_view::npos;
}

int SettingsStore::refresh(const char *path) {
    struct stat now = {};
    if (reusable_ && stat(path, &now) == 0 && sameFile(now, seen_)) return 0;
    clear();
    const int result = load(path);
    if (result != 0) clear();
    return result;
}

int SettingsStore::load(const char *path) {
    File file;
    if (const int result = openRegular(path, kStoreLimit, file, seen_); result != 0) {
        return result == ENOENT ? 0 : result;
    }
    const bool rested = hasRested(seen_);
    if (const int result = readWhole(file, static_cast<size_t>(seen_.st_size), text_, textSize_); result != 0) {
        return result;
    }
    const int result = parse();
    reusable_ = result == 0 && rested;
    return result;
}

int SettingsStore::parse() {
    char *const end = text_.get() + textSize_;
    const auto lines = static_cast<size_t>(std::count(text_.get(), end, '\n')) + 1;
    settings_.reset(static_cast<Setting *>(calloc(lines, sizeof(Setting))));
    if (!settings_) return ENOMEM;

    unsigned number = 0;
    char *next = nullptr;
    for (char *line = text_.get(); line < end; line = next) {
        number++;
        char *const lineEnd = std::find(line, end, '\n');
        next = lineEnd + 1;
        *lineEnd = '\0';  // the last line may end at text_'s own NUL
        if (line == lineEnd) continue;
        char *const equals = std::find(line, lineEnd, '=');
        const bool whole = memchr(line, '\0', static_cast<size_t>(lineEnd - line)) == nullptr;
        if (!whole || equals == lineEnd || !isSettingName({line, static_cast<size_t>(equals - line)})) {
            if (damagedLine_ == 0) damagedLine_ = number;
            continue;
        }
        *equals = '\0';
        settings_[count_++] = {line, equals + 1};
    }
    std::sort(settings_.get(), settings_.get() + count_, nameBefore);
    keepLastOfEachName();
    return 0;
}

void SettingsStore::keepLastOfEachName() {
    size_t kept = 0;
    for (size_t i = 0; i < count_; i++) {
        const bool repeated = i + 1 < count_ && strcmp(settings_[i].name, settings_[i + 1].name) == 0;
        if (!repeated) settings_[kept++] = settings_[i];
    }
    count_ = kept;
}

void SettingsStore::clear() {
    text_.reset();
    textSize_ = 0;
    settings_.reset();
    count_ = 0;
    damagedLine_ = 0;
    seen_ = {};
    reusable_ = false;
}

char *SettingsStore::find(std::string_view name) const {
    const std::span<const Setting> all = settings();
    const auto found = std::lower_bound(
        all.begin(), all.end(), name, [](const Setting &setting, std::string_view key) { return setting.name < key; });
    return found != all.end() && found->name == name ? found->value : nullptr;
}

int changeSetting(const char *path, const char *name, const char *value) {
    WriterLock lock;
    if (const int result = lock.acquire(path); result != 0) return result;

    SettingsStore store;
    if (const int result = store.refresh(path); result != 0) return result;
    if (value == nullptr && store.find(name) == nullptr) return 0;

    struct stat old = {};
    const mode_t mode = stat(path, &old) == 0 ? old.st_mode & 07777 : kNewStoreMode;
    Replacement next(path);
    if (const int result = next.begin(mode); result != 0) return result;
    writeSettings(next.out(), store.settings(), {const_cast<char *>(name), const_cast<char *>(value)});
    return next.commit(kStoreLimit);
}

}  // namespace kvplatform
