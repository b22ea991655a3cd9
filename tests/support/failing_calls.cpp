// Files and commands that cannot be opened or run on demand. The linker's --wrap leads the calls of the plug-in's
// objects here, and those of no library: what a test itself opens never counts.
#include <cerrno>
#include <cstdio>
#include <string>

#include "support/captured_log.h"
#include "support/fake_system.h"

extern "C" {
std::FILE *__real_fopen(const char *path, const char *mode);
std::FILE *__real_popen(const char *command, const char *mode);
int __real_system(const char *command);

std::FILE *__wrap_fopen(const char *path, const char *mode) {
    if (kvtest::callFails(kvtest::Call::OpenFile)) {
        errno = EMFILE;
        return nullptr;
    }
    return __real_fopen(path, mode);
}

// With 64-bit file offsets, a 32-bit C library has a name of its own for fopen.
std::FILE *__wrap_fopen64(const char *path, const char *mode) {
    return __wrap_fopen(path, mode);
}

std::FILE *__wrap_popen(const char *command, const char *mode) {
    kvtest::note(std::string("reads ") + command);
    if (kvtest::callFails(kvtest::Call::OpenPipe)) {
        errno = EAGAIN;
        return nullptr;
    }
    return __real_popen(command, mode);
}

int __wrap_system(const char *command) {
    kvtest::note(std::string("runs ") + command);
    if (kvtest::callFails(kvtest::Call::RunCommand)) {
        errno = EAGAIN;
        return -1;
    }
    return __real_system(command);
}
}
