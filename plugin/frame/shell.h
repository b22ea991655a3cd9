// Shell commands, and the characters that are safe in them.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "frame/file.h"

namespace kv {

struct ClosePipe {
    void operator()(std::FILE *pipe) const { pclose(pipe); }
};
using Pipe = std::unique_ptr<std::FILE, ClosePipe>;

// Returns the output of a command; null if it could not be started.
inline Pipe openCommand(const char *command) {
    return Pipe(popen(command, "r"));  // NOLINT(cert-env33-c): callers check inserted text
}

// Runs a command to its end. Most callers check the file that it writes, not its status.
inline int runCommand(const char *command) {
    return std::system(command);  // NOLINT(cert-env33-c): as above
}

// Runs a command with its output in a scratch file, passes the file to `use` and removes it. Returns false, without
// calling `use`, if the file cannot be opened.
template <typename Use>
bool readOutput(const char *command, const char *scratchPath, Use use) {
    char line[160];  // the commands are constants of this library
    std::snprintf(line, sizeof line, "%s > %s", command, scratchPath);
    runCommand(line);
    File file = openFile(scratchPath, "r");
    if (file == nullptr) return false;
    use(file.get());
    file.reset();
    std::remove(scratchPath);
    return true;
}

inline constexpr char kNvramScratchPath[] = "/tmp/.kv1905_nvram_tmp";

// Accepts text for a shell command: not empty, and only letters, digits and . _ : / - because it may come from the
// wire, nvram or a file.
inline bool isShellSafe(const char *text) {
    const auto allowed = [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
               c == ':' || c == '/' || c == '-';
    };
    const char *c = text;
    while (allowed(*c)) {
        ++c;
    }
    return c != text && *c == '\0';
}

// Accepts a country code: letters, digits and /, or empty.
inline bool isCountryText(const char *text) {
    return *text == '\0' || (isShellSafe(text) && std::strpbrk(text, "._:-") == nullptr);
}

}  // namespace kv
