#include <fcntl.h>
#include <kv1905/kos.h>
#include <signal.h>
#include <spawn.h>
#include <stdarg.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include "platform_api.h"

namespace {

// Keeps SIGCHLD away from a host's handler, which could collect our child before we do.
class ChildSignalBlock {
  public:
    ChildSignalBlock() {
        sigset_t childSignal;
        sigemptyset(&childSignal);
        sigaddset(&childSignal, SIGCHLD);
        pthread_sigmask(SIG_BLOCK, &childSignal, &before_);
    }
    ~ChildSignalBlock() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
    ChildSignalBlock(const ChildSignalBlock &) = delete;
    ChildSignalBlock &operator=(const ChildSignalBlock &) = delete;

    const sigset_t &before() const { return before_; }

  private:
    sigset_t before_;
};

// What a child starts with: the host's signal mask, and its output where the mode wants it.
class SpawnPlan {
  public:
    SpawnPlan(const sigset_t &mask, bool silent) {
        posix_spawnattr_init(&attributes_);
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK);
        posix_spawnattr_setsigmask(&attributes_, &mask);
        if (!silent) return;
        complete_ = posix_spawn_file_actions_addopen(&actions_, STDOUT_FILENO, "/dev/null", O_WRONLY, 0) == 0 &&
                    posix_spawn_file_actions_adddup2(&actions_, STDOUT_FILENO, STDERR_FILENO) == 0;
    }
    ~SpawnPlan() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    SpawnPlan(const SpawnPlan &) = delete;
    SpawnPlan &operator=(const SpawnPlan &) = delete;

    // Returns the child, -1 on failure.
    pid_t runShell(const char *command) {
        const char *arguments[] = {"sh", "-c", command, nullptr};
        pid_t child = -1;
        const bool started = complete_ && posix_spawn(&child, "/bin/sh", &actions_, &attributes_,
                                                      const_cast<char **>(arguments), environ) == 0;
        return started ? child : -1;
    }

  private:
    posix_spawnattr_t attributes_;
    posix_spawn_file_actions_t actions_;
    bool complete_ = true;
};

// The shell's own words for a command that it could not start.
constexpr int kNotExecutable = 126;
constexpr int kNotFound = 127;
constexpr int kSignalBase = 128;

int exitStatus(int waitStatus) {
    if (WIFSIGNALED(waitStatus)) return kSignalBase + WTERMSIG(waitStatus);
    const int status = WEXITSTATUS(waitStatus);
    return status == kNotExecutable || status == kNotFound ? -1 : status;
}

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

KV_PLATFORM_API int kos_formsys(int mode, const char *command) {
    if (command == nullptr) return -1;
    const ChildSignalBlock block;
    const pid_t child = SpawnPlan(block.before(), mode != 0).runShell(command);
    if (child < 0) return -1;
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) return -1;
    }
    return exitStatus(status);
}
