// Files that close themselves, and the line conventions of the device's text files.
#pragma once

#include <sys/stat.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>

namespace kv {

struct CloseFile {
    void operator()(std::FILE *file) const { std::fclose(file); }
};
using File = std::unique_ptr<std::FILE, CloseFile>;

// Returns null if the file cannot be opened, or is not a regular one: a FIFO would block the host's thread.
inline File openFile(const char *path, const char *mode) {
    struct stat facts {};
    if (stat(path, &facts) == 0 && !S_ISREG(facts.st_mode)) return nullptr;
    return File(std::fopen(path, mode));
}

// Reads a line of at most N - 1 characters, a longer one in several calls. Returns false at the end of the file.
template <size_t N>
bool readLine(std::FILE *file, char (&line)[N]) {
    return std::fgets(line, static_cast<int>(N), file) != nullptr;
}

// A line of a device file: at most 127 characters.
using ConfigLine = char[128];

// Copies a text into a fixed field, cut to it, NUL-terminated, the rest of the field zeroed.
template <size_t N>
void setText(char (&field)[N], const char *text) {
    const size_t length = std::min(std::strlen(text), N - 1);
    std::memcpy(field, text, length);
    std::memset(field + length, 0, N - length);
}

}  // namespace kv
