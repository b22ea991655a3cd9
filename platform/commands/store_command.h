// What the commands on the settings store have in common: exit statuses and the lines that go with them.
#ifndef KV1905_PLATFORM_STORE_COMMAND_H
#define KV1905_PLATFORM_STORE_COMMAND_H

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "settings_store.h"

namespace kvplatform {

inline constexpr int kExitOk = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// Names the argument at fault; empty when it is one that is missing.
inline int badArgument(const char *program, const char *argument, const char *reason) {
    if (*argument == '\0') {
        fprintf(stderr, "%s: %s; see %s --help\n", program, reason, program);
    } else {
        fprintf(stderr, "%s: %s: %s; see %s --help\n", program, argument, reason, program);
    }
    return kExitUsage;
}

inline int outOfMemory(const char *program) {
    fprintf(stderr, "%s: out of memory\n", program);
    return kExitFailed;
}

// Output that did not arrive is a failure.
inline int finishOutput(const char *program) {
    if (fflush(stdout) == 0 && ferror(stdout) == 0) return kExitOk;
    fprintf(stderr, "%s: standard output: %s\n", program, strerror(errno));
    return kExitFailed;
}

inline bool readStore(const char *program, SettingsStore &store) {
    const char *path = storePath();
    if (const int failure = store.refresh(path); failure != 0) {
        fprintf(stderr, "%s: %s: cannot read the settings: %s\n", program, path, strerror(failure));
        return false;
    }
    if (store.damagedLine() != 0) {
        fprintf(stderr, "%s: %s:%u: skipped, not a NAME=VALUE line\n", program, path, store.damagedLine());
    }
    return true;
}

// Removes the setting when value is null.
inline int writeStore(const char *program, const char *name, const char *value) {
    const char *path = storePath();
    const int failure = changeSetting(path, name, value);
    if (failure == 0) return kExitOk;
    fprintf(stderr, "%s: %s: cannot store %s: %s; KV_NVRAM_FILE names the file to use\n", program, path, name,
            strerror(failure));
    return kExitFailed;
}

}  // namespace kvplatform

#endif
