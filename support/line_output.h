// Log and trace lines, written without waiting for their reader.
#pragma once

#include <string_view>

namespace support {

// Writes to a descriptor, which stays its owner's. Lines for which a pipe or a terminal has no room are dropped and
// counted; a note follows as soon as there is room again.
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
