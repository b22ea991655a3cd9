// Files and commands that cannot be opened or run on demand. In a program's own symbol table before the C library's.
#include <dlfcn.h>

#include <cerrno>
#include <cstdio>
#include <cstring>

#include "support/fake_system.h"

namespace {

// Calls what stands behind our own definition of a function.
template <typename Function, typename... Arguments>
auto callReal(const char *name, Arguments... arguments) {
    Function *real = nullptr;
    void *address = dlsym(RTLD_NEXT, name);
    std::memcpy(&real, &address, sizeof real);
    return real(arguments...);
}

}  // namespace

extern "C" std::FILE *fopen(const char *path, const char *mode) {
    if (kvtest::callFails(kvtest::Call::OpenFile)) {
        errno = EMFILE;
        return nullptr;
    }
    return callReal<std::FILE *(const char *, const char *)>("fopen", path, mode);
}

extern "C" std::FILE *popen(const char *command, const char *mode) {
    if (kvtest::callFails(kvtest::Call::OpenPipe)) {
        errno = EAGAIN;
        return nullptr;
    }
    return callReal<std::FILE *(const char *, const char *)>("popen", command, mode);
}

extern "C" int system(const char *command) {
    if (kvtest::callFails(kvtest::Call::RunCommand)) {
        errno = EAGAIN;
        return -1;
    }
    return callReal<int(const char *)>("system", command);
}
