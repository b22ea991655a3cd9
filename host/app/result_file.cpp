#include "result_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <system_error>
#include <thread>

#include "outcome.h"

namespace kv1905d {
namespace {

constexpr Duration kPollEvery{20};
constexpr Duration kSettled{300};  // without a further result

// Returns the first true value of the probe, or its last one when the time is up.
template <typename Probe>
auto poll(Duration timeout, const Probe &probe) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        auto value = probe();
        if (value || std::chrono::steady_clock::now() >= deadline) return value;
        std::this_thread::sleep_for(kPollEvery);
    }
}

support::FileLock waitTurn(const std::string &path, Duration timeout) {
    try {
        return support::FileLock(path + ".lock", timeout);
    } catch (const std::system_error &error) {
        const int code = error.code().value();
        if (code != ETIMEDOUT) throw Failure(code == ENOENT ? Status::Failure : statusOf(code), error.what());
        throw Failure(Status::NoAnswer,
                      "another kv1905App waits for its answer; try again, or with a longer --timeout");
    }
}

}  // namespace

std::optional<uint8_t> parseResult(std::string_view text) {
    if (text.size() != 3 || text[2] != '\n') return std::nullopt;
    uint8_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + 2, value, 16);
    if (error != std::errc{} || end != text.data() + 2) return std::nullopt;
    return value;
}

ResultFile::ResultFile(const std::string &path, Duration timeout) : path_(path), lock_(waitTurn(path, timeout)) {
    if (unlink(path.c_str()) == 0 || errno == ENOENT) return;
    throw support::systemError(path, "remove an earlier result");
}

std::optional<uint8_t> ResultFile::read() const {
    const support::FileDescriptor fd(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
    struct stat facts {};
    if (!fd.valid() || fstat(fd.get(), &facts) != 0 || !S_ISREG(facts.st_mode)) return std::nullopt;
    if (facts.st_uid != 0 && facts.st_uid != geteuid()) return std::nullopt;  // another local user's
    char text[4];  // one more than a result, to detect a longer file
    const ssize_t size = ::read(fd.get(), text, sizeof text);
    return size < 0 ? std::nullopt : parseResult({text, static_cast<size_t>(size)});
}

std::optional<uint8_t> ResultFile::await(Duration timeout) const {
    return poll(timeout, [this] { return read(); });
}

std::optional<uint8_t> ResultFile::awaitLast(Duration timeout) const {
    const auto changed = [this] {
        struct stat facts {};
        stat(path_.c_str(), &facts);
        return std::pair(facts.st_mtim.tv_sec, facts.st_mtim.tv_nsec);
    };
    std::optional<uint8_t> code = await(timeout);
    for (auto before = changed(); code;) {
        std::this_thread::sleep_for(kSettled);
        if (const auto next = read()) code = next;  // nothing while the daemon writes one
        if (std::exchange(before, changed()) == before) break;
    }
    return code;
}

}  // namespace kv1905d
