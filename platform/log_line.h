// One line of a log, in fixed room and safe to show on a terminal.
#ifndef KV1905_PLATFORM_LOG_LINE_H
#define KV1905_PLATFORM_LOG_LINE_H

#include <climits>
#include <cstddef>
#include <string_view>

namespace kvplatform {

// Longest line with its newline. Pipes take this much in one piece, so lines of several processes do not mix.
inline constexpr size_t kLogLineSize = PIPE_BUF;

class LogLine {
  public:
    // Appends text. Bytes other than printable ASCII, and the backslash, become \xNN: text received from a
    // neighbour can neither start a line of its own nor control a terminal.
    void add(std::string_view text);

    bool empty() const { return size_ == 0; }
    void clear();

    // The line without its newline. Text that did not fit is replaced by "...".
    std::string_view text();

    // The line with its newline.
    std::string_view textWithNewline();

  private:
    bool put(std::string_view piece);

    char bytes_[kLogLineSize] = {};
    size_t size_ = 0;
    bool cut_ = false;
};

}  // namespace kvplatform

#endif
