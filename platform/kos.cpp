#include <kv1905/kos.h>
#include <signal.h>
#include <stdarg.h>
#include <sys/wait.h>

#include <cstdlib>
#include <exception>
#include <string>

#include "platform_api.h"

namespace {

// The shell's own statuses for a command that it could not start.
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalBase = 128;

}  // namespace

KV_PLATFORM_API int kos_fpk(FILE *file, const char *format, ...) {
    if (file == nullptr) return -1;
    va_list arguments;
    va_start(arguments, format);
    const int printed = vfprintf(file, format, arguments);
    va_end(arguments);
    return printed;
}

KV_PLATFORM_API int kos_snprintf(char *text, size_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = vsnprintf(text, size, format, arguments);
    va_end(arguments);
    if (length < 0 && size > 0) text[0] = '\0';
    return length;
}

KV_PLATFORM_API int kos_formsys(int mode, const char *command) try {
    if (command == nullptr) return -1;
    const std::string line = (mode != 0 ? "exec >/dev/null 2>&1\n" : "") + std::string(command);
    const int status = system(line.c_str());  // NOLINT(cert-env33-c): callers check what they insert
    if (status == -1) return -1;
    if (WIFSIGNALED(status)) return kSignalBase + WTERMSIG(status);
    const int code = WEXITSTATUS(status);
    return code == kNotExecutable || code == kNotFound ? -1 : code;
} catch (const std::exception &) {
    return -1;
}
