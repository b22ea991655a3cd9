// Files: descriptors, bounded reads, locks, atomic replacement. Every failure throws systemError(PATH, STEP).
#pragma once

#include <sys/types.h>

#include <cerrno>
#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace support {

// Exception of a failed system call; its text begins with "SUBJECT: STEP".
std::system_error systemError(const std::string &subject, const char *step, int error = errno);

// Closes its file descriptor at the end of its life.
class FileDescriptor {
  public:
    FileDescriptor() = default;
    explicit FileDescriptor(int fd) : fd_(fd) {}
    FileDescriptor(FileDescriptor &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    FileDescriptor &operator=(FileDescriptor &&other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~FileDescriptor();

    int get() const { return fd_; }
    bool valid() const { return fd_ >= 0; }

  private:
    int fd_ = -1;
};

// Opens a regular file for reading. Anything else is refused (EISDIR, EINVAL): a FIFO would block its reader.
FileDescriptor openRegular(const std::string &path);

// Reads a regular file of at most `limit` bytes; EFBIG beyond.
std::string readFile(const std::string &path, size_t limit);

// Locks a separate file against other processes. The file is created where it is missing, readable by its owner only,
// and stays.
class FileLock {
  public:
    // Waits at most `timeout`; ETIMEDOUT after that.
    explicit FileLock(const std::string &path, std::chrono::milliseconds timeout = std::chrono::seconds(2));

  private:
    FileDescriptor fd_;
};

// Selects whether a replaced file must survive a power cut.
enum class Durable : bool { No, Yes };

// Replaces `path` by a new file with exactly this mode; readers see the old content or the new. Writes the content to
// PATH.new first, so concurrent writers need a lock. Removes a file or link of that name, and never follows it.
void replaceFile(const std::string &path, std::string_view content, mode_t mode, Durable durable);

}  // namespace support
