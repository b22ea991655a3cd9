#include "log_line.h"

#include <cstring>

namespace kvplatform {

namespace {

constexpr std::string_view kEllipsis = "...";
constexpr size_t kRoom = kLogLineSize - kEllipsis.size() - 1;  // what is left for text

bool isPlain(char c) {
    return c >= ' ' && c <= '~' && c != '\\';
}

}  // namespace

void LogLine::add(std::string_view text) {
    constexpr char kHex[] = "0123456789abcdef";
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        const char escaped[] = {'\\', 'x', kHex[byte >> 4], kHex[byte & 15]};
        if (!put(isPlain(c) ? std::string_view(&c, 1) : std::string_view(escaped, sizeof escaped))) return;
    }
}

bool LogLine::put(std::string_view piece) {
    cut_ = cut_ || piece.size() > kRoom - size_;
    if (cut_) return false;
    memcpy(&bytes_[size_], piece.data(), piece.size());
    size_ += piece.size();
    return true;
}

void LogLine::clear() {
    size_ = 0;
    cut_ = false;
}

std::string_view LogLine::text() {
    if (!cut_) return {bytes_, size_};
    memcpy(&bytes_[size_], kEllipsis.data(), kEllipsis.size());
    return {bytes_, size_ + kEllipsis.size()};
}

std::string_view LogLine::textWithNewline() {
    const size_t length = text().size();
    bytes_[length] = '\n';
    return {bytes_, length + 1};
}

}  // namespace kvplatform
