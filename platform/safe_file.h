// Files that change as a whole or not at all, under a lock that their writers share. Results are 0 or an errno value.
#ifndef KV1905_PLATFORM_SAFE_FILE_H
#define KV1905_PLATFORM_SAFE_FILE_H

#include <limits.h>
#include <stdio.h>
#include <sys/stat.h>

#include <cstdlib>
#include <memory>
#include <utility>

namespace kvplatform {

struct FreeDeleter {
    void operator()(void *block) const { std::free(block); }
};

template <typename T>
using MallocArray = std::unique_ptr<T[], FreeDeleter>;

class File {
  public:
    explicit File(int number = -1) : number_(number) {}
    ~File();
    File(const File &) = delete;
    File &operator=(const File &) = delete;
    File &operator=(File &&other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }

    explicit operator bool() const { return number_ >= 0; }
    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }

  private:
    int number_;
};

// A file's path with an ending.
class BesidePath {
  public:
    BesidePath(const char *path, const char *ending);
    bool fits() const { return fits_; }
    const char *text() const { return text_; }

  private:
    char text_[PATH_MAX];
    bool fits_;
};

// Opens a regular file of at most limit bytes (EFBIG) and says what it looked like then.
int openRegular(const char *path, size_t limit, File &file, struct stat &seen);

// Reads size bytes, or fewer when the file was shortened meanwhile, and appends a NUL.
int readWhole(const File &file, size_t size, MallocArray<char> &text, size_t &textSize);

// Keeps the other writers of a file away as long as it lives.
class WriterLock {
  public:
    // Waits for the others. The lock is a file of its own, path.lock, because the file itself is replaced.
    int acquire(const char *path);
    bool held() const { return static_cast<bool>(file_); }

  private:
    File file_;
};

// A file's next content, written to path.new. The file changes only when commit() succeeds. The caller holds the
// file's WriterLock, so one fixed name serves all writers; what a killed one left there is overwritten.
class Replacement {
  public:
    explicit Replacement(const char *path) : path_(path), newPath_(path, ".new") {}
    ~Replacement();
    Replacement(const Replacement &) = delete;
    Replacement &operator=(const Replacement &) = delete;

    int begin(mode_t mode);
    FILE *out() const { return out_; }

    // Brings the content to the disk and puts it in the file's place. EFBIG beyond limit bytes.
    int commit(size_t limit);

  private:
    int finish(size_t limit);

    const char *path_;
    BesidePath newPath_;
    FILE *out_ = nullptr;
    bool begun_ = false;
};

}  // namespace kvplatform

#endif
