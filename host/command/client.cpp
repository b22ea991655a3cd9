#include "command/client.h"

#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <system_error>

namespace kv1905d {
namespace {

std::system_error systemError(const std::string &path, const char *step) {
    const int error = errno == EAGAIN || errno == EINPROGRESS ? ETIMEDOUT : errno;
    return {error, std::generic_category(), path + ": " + step};
}

}  // namespace

FileDescriptor newCommandSocket(const std::string &path, int flags) {
    FileDescriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
    if (!fd.valid()) throw systemError(path, "open a socket");
    return fd;
}

sockaddr_un commandAddress(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    errno = ENAMETOOLONG;
    if (path.empty() || path.size() >= sizeof address.sun_path) throw systemError(path, "name of a socket");
    path.copy(address.sun_path, path.size());
    return address;
}

FileDescriptor connectToDaemon(const std::string &path, std::optional<Duration> timeout) {
    FileDescriptor fd = newCommandSocket(path, timeout ? 0 : SOCK_NONBLOCK);
    if (timeout) {
        const timeval limit{timeout->count() / 1000, timeout->count() % 1000 * 1000};
        setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
        setsockopt(fd.get(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
    }
    const sockaddr_un address = commandAddress(path);
    if (connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0)
        throw systemError(path, "connect");
    return fd;
}

Reply postCommand(const std::string &path, const Post &post, Duration timeout) {
    const FileDescriptor fd = connectToDaemon(path, timeout);
    const Bytes message = encodePost(post);
    if (send(fd.get(), message.data(), message.size(), MSG_NOSIGNAL) < 0) throw systemError(path, "send the command");
    std::array<uint8_t, kReplySize + 1> answer;  // one more, so that a longer reply is seen to be one
    const ssize_t size = recv(fd.get(), answer.data(), answer.size(), 0);
    if (size < 0) throw systemError(path, "wait for the daemon's reply");
    const std::optional<Reply> reply = parseReply(ByteView(answer).first(static_cast<size_t>(size)));
    errno = EPROTO;
    if (!reply) throw systemError(path, "the daemon ended or sent no valid reply");
    return *reply;
}

}  // namespace kv1905d
