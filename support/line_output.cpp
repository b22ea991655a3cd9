#include "support/line_output.h"

#include <limits.h>
#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <string>

namespace support {

void LineOutput::write(std::string_view line) {
    if (dropped_ > 0 && put(std::to_string(dropped_) + " lines dropped: their reader was too slow")) dropped_ = 0;
    if (dropped_ > 0 || !put(line)) ++dropped_;
}

bool LineOutput::put(std::string_view line) const {
    pollfd output{fd_, POLLOUT, 0};  // ready when a pipe accepts PIPE_BUF bytes
    if (poll(&output, 1, 0) != 1) return false;
    const std::string text = std::string(line.substr(0, PIPE_BUF - 1)) + '\n';
    ssize_t size = 0;
    do {
        size = ::write(fd_, text.data(), text.size());
    } while (size < 0 && errno == EINTR);
    return size >= 0;
}

}  // namespace support
