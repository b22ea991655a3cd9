// Files and commands that cannot be opened or run on demand. In a program's own symbol table before the C library's.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/captured_log.h"
#include "support/fake_system.h"
#include "support/real_call.h"

using kvtest::callReal;

extern "C" std::FILE *fopen(const char *path, const char *mode) {
    const bool isOurs = std::strncmp(path, "/tmp/gtest_", 11) != 0;  // GoogleTest reads captured output from such a file
    if (isOurs && kvtest::callFails(kvtest::Call::OpenFile)) {
        errno = EMFILE;
        return nullptr;
    }
    return callReal<std::FILE *(const char *, const char *)>("fopen", path, mode);
}

extern "C" std::FILE *popen(const char *command, const char *mode) {
    kvtest::note(std::string("reads ") + command);
    if (kvtest::callFails(kvtest::Call::OpenPipe)) {
        errno = EAGAIN;
        return nullptr;
    }
    return callReal<std::FILE *(const char *, const char *)>("popen", command, mode);
}

extern "C" int system(const char *command) {
    kvtest::note(std::string("runs ") + command);
    if (kvtest::callFails(kvtest::Call::RunCommand)) {
        errno = EAGAIN;
        return -1;
    }
    return callReal<int(const char *)>("system", command);
}
