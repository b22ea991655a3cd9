#include "support/captured_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "kv1905/kos.h"
#include "kv1905/kvlog.h"
#include "kv1905/nvram.h"

namespace kvtest {

namespace {
std::vector<LogLine> lines;

int capture(int facility, int level, const char *format, va_list arguments) {
    char text[2048];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    lines.push_back({facility, level, text});
    return length;
}
}  // namespace

const std::vector<LogLine> &logLines() {
    return lines;
}

std::array<int, 3> &lastLogSetting() {
    static std::array<int, 3> values = {};
    return values;
}

bool &shellCannotRun() {
    static bool cannot = false;
    return cannot;
}

std::map<std::string, std::string> &nvram() {
    static std::map<std::string, std::string> settings;
    return settings;
}

void clearLog() {
    lines.clear();
}

size_t logCount(int level, const std::string &text) {
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine &line) {
        return line.level == level && line.text.find(text) != std::string::npos;
    }));
}

std::string loggedAtMost(int level) {
    std::string all;
    for (const LogLine &line : lines) {
        if (line.level != kPrint && line.level <= level) {
            all += line.text;
        }
    }
    return all;
}

}  // namespace kvtest

int kvMAP_syslog(int facility, int level, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    kvtest::capture(facility, level, format, arguments);
    va_end(arguments);
    return 0;
}

int kos_fpk(FILE *file, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vfprintf(file, format, arguments);
    va_end(arguments);
    return length;
}

void kvlog(int level, const char *, int, const char *, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    kvtest::capture(0, level, format, arguments);
    va_end(arguments);
}

int kos_snprintf(char *text, size_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, size, format, arguments);
    va_end(arguments);
    return length;
}

int kos_formsys(int, const char *command) {
    return kvtest::shellCannotRun() ? -1 : std::system(command);
}

char *nvram_get(const char *name) {
    const auto setting = kvtest::nvram().find(name);
    return setting == kvtest::nvram().end() ? nullptr : setting->second.data();
}

void kvMAP_log_setting(int first, int second, int third) {
    kvtest::lastLogSetting() = {first, second, third};
}

int kos_pk(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = kvtest::capture(kvtest::kPrint, kvtest::kPrint, format, arguments);
    va_end(arguments);
    return length;
}
