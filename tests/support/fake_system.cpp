#include "support/fake_system.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "kv1905/kos.h"
#include "kv1905/kvlog.h"
#include "kv1905/nvram.h"

namespace {

std::time_t clockNow = kvtest::kScriptStart;

// Notes the formatted text of a variadic function whose last named parameter is `format`.
#define NOTE_TEXT(begin)                                  \
    char text[2048];                                      \
    va_list arguments;                                    \
    va_start(arguments, format);                          \
    std::vsnprintf(text, sizeof text, format, arguments); \
    va_end(arguments);                                    \
    kvtest::notes.push_back((begin) + text)

}  // namespace

// ---- The platform's calls

int kvMAP_syslog(int facility, int level, const char *format, ...) {
    NOTE_TEXT("logs " + (facility == KV_LOG_FACILITY_MSG ? "" : std::to_string(facility) + ".") +
              std::to_string(level) + " ");
    return 0;
}

void kvlog(int level, const char *, int, const char *, const char *format, ...) {
    NOTE_TEXT("logs 0." + std::to_string(level) + " ");
}

int kos_pk(const char *format, ...) {
    NOTE_TEXT(std::string("prints "));
    return 0;
}

int kos_formsys(int, const char *command) {
    return std::system(command);
}

void kvMAP_log_setting(int first, int second, int third) {
    kvtest::notes.push_back("log-setting " + std::to_string(first) + " " + std::to_string(second) + " " +
                            std::to_string(third));
}

char *nvram_get(const char *name) {
    return kvtest::nvram.contains(name) ? kvtest::nvram[name].data() : nullptr;
}

// ---- The C library's calls. time and sleep are replaced for plug-in and test alike. The linker's --wrap leads the
// other calls of the program's objects here, but not those of shared libraries.

extern "C" {

std::time_t time(std::time_t *out) noexcept {
    if (out != nullptr) *out = clockNow;
    return clockNow;
}

unsigned sleep(unsigned seconds) {
    kvtest::notes.push_back("sleeps " + std::to_string(seconds));
    return 0;
}

void *__real_malloc(size_t size);
void *__real_calloc(size_t count, size_t size);
std::FILE *__real_fopen(const char *path, const char *mode);
std::FILE *__real_popen(const char *command, const char *mode);
int __real_system(const char *command);

// The tests' own C allocations are made by reallocarray.
void *__wrap_malloc(size_t size) {
    return kvtest::callFails("allocation") ? nullptr : __real_malloc(size);
}

void *__wrap_calloc(size_t count, size_t size) {
    return kvtest::callFails("allocation") ? nullptr : __real_calloc(count, size);
}

std::FILE *__wrap_fopen(const char *path, const char *mode) {
    return kvtest::callFails("fopen") ? nullptr : __real_fopen(path, mode);
}

// The 32-bit C library has another name for fopen with 64-bit file offsets.
std::FILE *__wrap_fopen64(const char *path, const char *mode) {
    return __wrap_fopen(path, mode);
}

// Weak, because fuzzing answers commands instead of running them.
[[gnu::weak]] std::FILE *__wrap_popen(const char *command, const char *mode) {
    kvtest::notes.push_back(std::string("reads ") + command);
    return kvtest::callFails("popen") ? nullptr : __real_popen(command, mode);
}

[[gnu::weak]] int __wrap_system(const char *command) {
    kvtest::notes.push_back(std::string("runs ") + command);
    return kvtest::callFails("system") ? -1 : __real_system(command);
}

}  // extern "C"

namespace kvtest {

size_t logCount(int level, const std::string &text) {
    const auto isOfLevel = [=](const std::string &note) {
        return level == kPrint ? note.starts_with("prints ")
                               : note.starts_with("logs ") && note[note.find(' ', 5) - 1] == '0' + level;
    };
    return static_cast<size_t>(std::count_if(notes.begin(), notes.end(), [&](const std::string &note) {
        return isOfLevel(note) && note.find(text) != std::string::npos;
    }));
}

void setClock(std::time_t now) {
    clockNow = now;
}

bool callFails(const char *kind) {
    ++callCounts[kind];
    return failure.nth != 0 && failure.kind == kind && --failure.nth == 0;
}

}  // namespace kvtest
