// Log and trace lines, written without waiting for their reader.
#pragma once

#include <string_view>

namespace support {

// Writes to a descriptor, which the caller owns. Drops and counts lines that do not fit a pipe or a terminal, and
// reports the number as soon as lines fit again.
class LineOutput {
  public:
    explicit constexpr LineOutput(int fd) noexcept : fd_(fd) {}

    // Appends the newline. At most PIPE_BUF bytes are written, which a pipe accepts in one piece, so that lines of
    // several processes do not mix.
    void write(std::string_view line);

  private:
    bool put(std::string_view line) const;

    int fd_;
    unsigned dropped_ = 0;
};

}  // namespace support
