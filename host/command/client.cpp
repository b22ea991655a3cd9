#include "command/client.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

namespace kv1905d {
namespace {

constexpr size_t kLargestEvent = 70000;  // bytes: a TLV value has at most 65535

constexpr const char *kSocketInRun = "/run/kv1905d.sock";
constexpr const char *kSocketInTmp = "/tmp/kv1905d.sock";

// A socket with a time limit reports EAGAIN or EINPROGRESS when the time is up.
std::system_error failureOf(const std::string &path, const char *step) {
    return support::systemError(path, step, errno == EAGAIN || errno == EINPROGRESS ? ETIMEDOUT : errno);
}

// Checks the peer, because any user may be the first to listen at a path in /tmp.
void requireTrusted(const support::FileDescriptor &fd, const std::string &path) {
    const ucred peer = peerOf(fd);
    if (mayCommand(peer)) return;
    const std::string owner = "served by process " + std::to_string(peer.pid) + " of user " + std::to_string(peer.uid) +
                              ", who is neither root nor this user";
    throw support::systemError(path, owner.c_str(), EPERM);
}

Reply exchange(const support::FileDescriptor &fd, const std::string &path, const Post &post) {
    const Bytes message = encodePost(post);
    if (send(fd.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) throw failureOf(path, "send the command");
    std::array<uint8_t, kReplySize + 1> answer;  // one more, to detect a longer reply
    const ssize_t size = recv(fd.get(), answer.data(), answer.size(), 0);
    if (size < 0) throw failureOf(path, "wait for the daemon's reply");
    const std::optional<Reply> reply = parseReply(ByteView(answer).first(static_cast<size_t>(size)));
    if (!reply) throw support::systemError(path, "the daemon ended or sent no valid reply", EPROTO);
    return *reply;
}

}  // namespace

std::string newSocketPath() {
    return access("/run", W_OK) == 0 ? kSocketInRun : kSocketInTmp;
}

std::string usualSocketPath() {
    return access(kSocketInRun, F_OK) == 0 ? kSocketInRun : kSocketInTmp;
}

ucred peerOf(const support::FileDescriptor &fd) {
    ucred peer{0, static_cast<uid_t>(-1), 0};
    socklen_t size = sizeof peer;
    getsockopt(fd.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
    return peer;
}

bool mayCommand(const ucred &peer) {
    return peer.uid == 0 || peer.uid == geteuid();
}

support::FileDescriptor newCommandSocket(const std::string &path, int flags) {
    support::FileDescriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
    if (!fd.valid()) throw failureOf(path, "open a socket");
    return fd;
}

sockaddr_un commandAddress(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path)
        throw support::systemError(path, "name of a socket", ENAMETOOLONG);
    path.copy(address.sun_path, path.size());
    return address;
}

support::FileDescriptor connectToDaemon(const std::string &path, std::optional<Duration> timeout) {
    support::FileDescriptor fd = newCommandSocket(path, timeout ? 0 : SOCK_NONBLOCK);
    if (timeout) {
        const timeval limit{timeout->count() / 1000, timeout->count() % 1000 * 1000};
        setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    const sockaddr_un address = commandAddress(path);
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw failureOf(path, "connect");
    requireTrusted(fd, path);
    return fd;
}

Reply postCommand(const std::string &path, const Post &post, Duration timeout) {
    return exchange(connectToDaemon(path, timeout), path, post);
}

MonitorConnection::MonitorConnection(const std::string &path, Duration timeout)
    : path_(path), fd_(connectToDaemon(path, timeout)) {
    const Reply reply = exchange(fd_, path, {kCommandMonitor, {}});
    if (reply.verdict != Verdict::Accepted) throw support::systemError(path, rowOf(reply.verdict).printed, EACCES);
}

std::optional<Event> MonitorConnection::next(Duration timeout) {
    pollfd ready{fd_.get(), POLLIN, 0};
    if (poll(&ready, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    packet_.resize(kLargestEvent);
    const ssize_t size = recv(fd_.get(), packet_.data(), packet_.size(), 0);
    if (size <= 0) throw support::systemError(path_, "the daemon ended", ECONNREFUSED);
    return parseEvent(ByteView(packet_).first(static_cast<size_t>(size)));
}

}  // namespace kv1905d
