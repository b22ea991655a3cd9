// Everything that shows text of other devices to people: log lines, and the JSON data model.
#include <kv1905/kos.h>
#include <kv1905/kvlog.h>

#include <climits>
#include <cstdarg>
#include <string_view>

#include "common/steps.h"
#include "data_model_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);
// What the log under test calls in the places of write and syslog.
extern "C" ssize_t kvfuzzWrite(int file, const void *data, size_t size);
extern "C" void kvfuzzSyslog(int level, const char *format, ...);

namespace {

using kvfuzz::require;

void checkShown(std::string_view text) {
    for (const char c : text) {
        require(c >= ' ' && c <= '~', "a line shows printable characters alone");
    }
}

}  // namespace

ssize_t kvfuzzWrite(int, const void *data, size_t size) {
    const std::string_view line(static_cast<const char *>(data), size);
    require(!line.empty() && line.back() == '\n', "a line ends");
    require(line.size() <= PIPE_BUF, "a line goes into a pipe in one piece");
    checkShown(line.substr(0, line.size() - 1));
    return static_cast<ssize_t>(size);
}

// Called with "%.*s".
void kvfuzzSyslog(int, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const auto length = static_cast<size_t>(va_arg(arguments, int));
    checkShown({va_arg(arguments, const char *), length});
    va_end(arguments);
}

namespace kvfuzz {

namespace {

// Well-formed as RFC 3629 has it, told by the lengths of its sequences and the first byte behind the leading one.
bool isUtf8(std::string_view text) {
    for (size_t at = 0; at < text.size();) {
        const auto lead = static_cast<uint8_t>(text[at]);
        const size_t length = lead < 0x80   ? 1
                              : lead < 0xC2 ? 0
                              : lead < 0xE0 ? 2
                              : lead < 0xF0 ? 3
                              : lead < 0xF5 ? 4
                                            : 0;
        if (length == 0 || length > text.size() - at) {
            return false;
        }
        const auto second = static_cast<uint8_t>(length > 1 ? text[at + 1] : 0x80);
        const bool tooLow = (lead == 0xE0 && second < 0xA0) || (lead == 0xF0 && second < 0x90);
        const bool tooHigh = (lead == 0xED && second > 0x9F) || (lead == 0xF4 && second > 0x8F);
        for (size_t i = 1; i < length; ++i) {
            if ((static_cast<uint8_t>(text[at + i]) & 0xC0) != 0x80) {
                return false;
            }
        }
        if (tooLow || tooHigh) {
            return false;
        }
        at += length;
    }
    return true;
}

void show(const Step &step) {
    const std::string text(step.body.begin(), step.body.end());
    switch (step.kind % 5) {
        case 0:
            kvMAP_syslog(step.argument % 20, step.argument / 32, "%s\n", text.c_str());
            break;
        case 1:
            kos_pk("%s", text.c_str());
            break;
        case 2:
            kos_pk("\n%.*s\n", static_cast<int>(step.body.size()), text.c_str());
            break;
        case 3:
            kvlog(step.argument % 10, text.c_str(), 1, "function", "%s", text.c_str());
            break;
        default:
            kvMAP_log_setting(step.argument % 18, step.argument / 32 % 3, step.argument / 64 * 3);
            break;
    }
    const std::string shown = kv1905d::validUtf8(text);
    require(isUtf8(shown), "what is shown is UTF-8");
    require(isUtf8(text) ? shown == text : shown != text, "what is UTF-8 already stays");
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    kvMAP_log_setting(0, 0, 7);
    for (const kvfuzz::Step &step : kvfuzz::readSteps(data, size)) {
        kvfuzz::show(step);
    }
    kos_pk("\n");
    return 0;
}
