#include "support/captured_log.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <utility>

#include "kv1905/kos.h"
#include "kv1905/kvlog.h"
#include "kv1905/nvram.h"

namespace kvtest {

namespace {
std::vector<LogLine> lines;
std::vector<std::string> notes;

int capture(int facility, int level, const char *format, va_list arguments) {
    char text[2048];
    const int length = std::vsnprintf(text, sizeof text, format, arguments);
    lines.push_back({facility, level, text});
    const std::string source = facility == KV_LOG_FACILITY_MSG ? "" : std::to_string(facility) + ".";
    note((level == kPrint ? "prints " : "logs " + source + std::to_string(level) + " ") + text);
    return length;
}
}  // namespace

const std::vector<LogLine> &logLines() {
    return lines;
}

void note(const std::string &event) {
    notes.push_back(event);
}

std::vector<std::string> takeNotes() {
    return std::exchange(notes, {});
}

std::map<std::string, std::string> &nvram() {
    static std::map<std::string, std::string> settings;
    return settings;
}

void clearLog() {
    lines.clear();
    notes.clear();
}

size_t logCount(int level, const std::string &text) {
    return static_cast<size_t>(std::count_if(lines.begin(), lines.end(), [&](const LogLine &line) {
        return line.level == level && line.text.find(text) != std::string::npos;
    }));
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
    return std::system(command);
}

char *nvram_get(const char *name) {
    const auto setting = kvtest::nvram().find(name);
    return setting == kvtest::nvram().end() ? nullptr : setting->second.data();
}

void kvMAP_log_setting(int first, int second, int third) {
    kvtest::note("log-setting " + std::to_string(first) + " " + std::to_string(second) + " " + std::to_string(third));
}

int kos_pk(const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = kvtest::capture(kvtest::kPrint, kvtest::kPrint, format, arguments);
    va_end(arguments);
    return length;
}
