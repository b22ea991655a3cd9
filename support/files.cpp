#include "support/files.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <thread>

namespace support {

namespace {

constexpr std::chrono::milliseconds kLockPoll{5};
constexpr mode_t kLockMode = 0600;

FileDescriptor openLock(const std::string &path) {
    // Opens without O_CREAT first: with it the kernel refuses even root another user's file in /tmp.
    for (const int flags : {0, O_CREAT | O_EXCL, 0}) {
        FileDescriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK | flags, kLockMode));
        if (fd.valid()) return fd;
    }
    throw systemError(path, "open");
}

void writeAll(const FileDescriptor &fd, std::string_view content, const std::string &path) {
    while (!content.empty()) {
        const ssize_t written = write(fd.get(), content.data(), content.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) throw systemError(path, "write");
        content.remove_prefix(static_cast<size_t>(written));
    }
}

// The new file is in place already, so a failure here changes nothing.
void syncDirectoryOf(const std::string &path) {
    const std::string directory = path.substr(0, path.rfind('/') + 1);
    const FileDescriptor fd(open(directory.empty() ? "." : directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (fd.valid()) fsync(fd.get());
}

// Removes what was not put in place, and before that also another user's empty directory.
class TemporaryFile {
  public:
    explicit TemporaryFile(std::string path) : path_(std::move(path)) { std::remove(path_.c_str()); }
    ~TemporaryFile() { unlink(path_.c_str()); }
    TemporaryFile(const TemporaryFile &) = delete;
    TemporaryFile &operator=(const TemporaryFile &) = delete;

    const char *path() const { return path_.c_str(); }

  private:
    std::string path_;
};

}  // namespace

std::system_error systemError(const std::string &subject, const char *step, int error) {
    return {error, std::generic_category(), subject + ": " + step};
}

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
}

FileDescriptor openRegular(const std::string &path) {
    FileDescriptor fd(open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    struct stat facts = {};
    if (!fd.valid() || fstat(fd.get(), &facts) != 0) throw systemError(path, "open");
    if (!S_ISREG(facts.st_mode)) throw systemError(path, "open", S_ISDIR(facts.st_mode) ? EISDIR : EINVAL);
    return fd;
}

std::string readFile(const std::string &path, size_t limit) {
    const FileDescriptor fd = openRegular(path);
    std::string content;
    char piece[4096];
    for (;;) {
        const ssize_t got = read(fd.get(), piece, sizeof piece);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) throw systemError(path, "read");
        if (got == 0) return content;
        content.append(piece, static_cast<size_t>(got));
        if (content.size() > limit) throw systemError(path, "read", EFBIG);
    }
}

FileLock::FileLock(const std::string &path, std::chrono::milliseconds timeout) : fd_(openLock(path)) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (flock(fd_.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno != EWOULDBLOCK && errno != EINTR) throw systemError(path, "lock");
        if (std::chrono::steady_clock::now() >= deadline)
            throw systemError(path, "wait for another process's lock", ETIMEDOUT);
        std::this_thread::sleep_for(kLockPoll);
    }
}

void replaceFile(const std::string &path, std::string_view content, mode_t mode, Durable durable) {
    // Must be in the same directory: only there a rename is atomic.
    const TemporaryFile next(path + ".new");
    const FileDescriptor fd(open(next.path(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, mode & 0600));
    if (!fd.valid()) throw systemError(path, "create a temporary file next to it");
    if (fchmod(fd.get(), mode) != 0) throw systemError(path, "set the mode");
    writeAll(fd, content, path);
    if (durable == Durable::Yes && fsync(fd.get()) != 0) throw systemError(path, "write");
    if (rename(next.path(), path.c_str()) != 0) throw systemError(path, "replace");
    if (durable == Durable::Yes) syncDirectoryOf(path);
}

}  // namespace support
