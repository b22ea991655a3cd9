#include "safe_file.h"

#include <fcntl.h>
#include <string.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>

namespace kvplatform {

namespace {

constexpr mode_t kLockMode = 0600;

// Makes a rename survive a power cut. The new file is in place already, so a failure here changes nothing.
void syncDirectoryOf(const BesidePath &path) {
    char directory[PATH_MAX];
    memcpy(directory, path.text(), sizeof directory);
    char *slash = strrchr(directory, '/');
    if (slash != nullptr) slash[1] = '\0';
    const File handle(open(slash != nullptr ? directory : ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (handle) fsync(handle.number());
}

}  // namespace

File::~File() {
    if (number_ >= 0) close(number_);
}

BesidePath::BesidePath(const char *path, const char *ending) {
    const int length = snprintf(text_, sizeof text_, "%s%s", path, ending);
    fits_ = length > 0 && static_cast<size_t>(length) < sizeof text_;
}

int openRegular(const char *path, size_t limit, File &file, struct stat &seen) {
    file = File(open(path, O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (!file) return errno;
    if (fstat(file.number(), &seen) != 0) return errno;
    if (S_ISDIR(seen.st_mode)) return EISDIR;
    if (!S_ISREG(seen.st_mode)) return EINVAL;
    return static_cast<unsigned long long>(seen.st_size) > limit ? EFBIG : 0;
}

int readWhole(const File &file, size_t size, MallocArray<char> &text, size_t &textSize) {
    textSize = 0;
    text.reset(static_cast<char *>(malloc(size + 1)));
    if (!text) return ENOMEM;
    while (textSize < size) {
        const ssize_t got = read(file.number(), &text[textSize], size - textSize);
        if (got < 0 && errno == EINTR) continue;
        if (got < 0) return errno;
        if (got == 0) break;
        textSize += static_cast<size_t>(got);
    }
    text[textSize] = '\0';
    return 0;
}

int WriterLock::acquire(const char *path) {
    const BesidePath lockPath(path, ".lock");
    if (!lockPath.fits()) return ENAMETOOLONG;
    File file(open(lockPath.text(), O_RDWR | O_CREAT | O_CLOEXEC, kLockMode));
    if (!file) return errno;
    while (flock(file.number(), LOCK_EX) != 0) {
        if (errno != EINTR) return errno;
    }
    file_ = std::move(file);
    return 0;
}

Replacement::~Replacement() {
    if (out_ != nullptr) fclose(out_);
    if (begun_) unlink(newPath_.text());
}

int Replacement::begin(mode_t mode) {
    if (!newPath_.fits()) return ENAMETOOLONG;
    unlink(newPath_.text());
    File file(open(newPath_.text(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode & 0600));
    if (!file) return errno;
    begun_ = true;
    if (fchmod(file.number(), mode) != 0) return errno;
    out_ = fdopen(file.number(), "w");
    if (out_ == nullptr) return errno;
    file.release();
    errno = 0;
    return 0;
}

int Replacement::finish(size_t limit) {
    const bool written = fflush(out_) == 0 && ferror(out_) == 0 && fsync(fileno(out_)) == 0;
    int result = written ? 0 : (errno != 0 ? errno : EIO);
    if (result == 0 && ftell(out_) > static_cast<long>(limit)) result = EFBIG;
    if (fclose(std::exchange(out_, nullptr)) != 0 && result == 0) result = errno;
    return result;
}

int Replacement::commit(size_t limit) {
    if (const int result = finish(limit); result != 0) return result;
    if (rename(newPath_.text(), path_) != 0) return errno;
    begun_ = false;
    syncDirectoryOf(newPath_);
    return 0;
}

}  // namespace kvplatform
