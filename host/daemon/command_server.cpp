#include "daemon/command_server.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstddef>
#include <stdexcept>
#include <system_error>

#include "command/client.h"

namespace kv1905d {
namespace {

constexpr int kBacklog = 8;

Verdict verdictOn(const CommandRow &row, ByteView buffer, const CommandActions &actions) {
    if (row.target == Target::None) return Verdict::Accepted;
    const MacAddress target = MacAddress::copyOf(buffer.data());
    if (row.target == Target::DeviceOrZero && target.isZero()) return Verdict::NoTarget;
    constexpr Verdict verdicts[] = {Verdict::UnknownTarget, Verdict::Accepted, Verdict::LocalTarget};  // by Presence
    return verdicts[static_cast<size_t>(actions.find(target))];
}

// Sets the mode by umask, because another user could connect before a chmod.
bool bindTo(const std::string &path, const support::FileDescriptor &fd) {
    const sockaddr_un address = commandAddress(path);
    const mode_t before = umask(0177);
    const bool bound = bind(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    const int error = errno;
    umask(before);
    errno = error;
    return bound;
}

bool isRefused(const std::string &path) {
    try {
        connectToDaemon(path, std::nullopt);
    } catch (const std::system_error &error) {
        return error.code().value() == ECONNREFUSED;
    }
    return false;
}

// Removes the socket of a daemon that has ended, as root also another user's. Throws if a process listens, or if it is
// not a socket.
void removeStale(const std::string &path) {
    struct stat facts {};
    if (lstat(path.c_str(), &facts) == 0 && !S_ISSOCK(facts.st_mode)) {
        throw std::runtime_error(path + ": exists and is not a socket; remove it or choose another --socket");
    }
    const bool isForeign = geteuid() == 0 && facts.st_uid != 0;
    if (!isForeign && !isRefused(path)) {
        throw std::runtime_error(path + ": another daemon serves it; stop that one or choose another --socket");
    }
    if (unlink(path.c_str()) != 0 && errno != ENOENT)
        throw support::systemError(path, "remove the socket of an earlier daemon");
}

}  // namespace

Reply handlePost(ByteView message, const CommandActions &actions) {
    const std::optional<Post> post = parsePost(message);
    if (!post) return {Verdict::Malformed};
    if (!actions.run) return {Verdict::NoPlugin};
    const CommandRow *row = findCommandRow(post->code);
    if (row != nullptr && post->buffer.size() < row->size) return {Verdict::ShortBuffer, row->size};
    // Exceeds any post: a text is terminated, and a code without a row reads zeros past its end.
    alignas(std::max_align_t) std::array<uint8_t, kMaxCommandSize + alignof(std::max_align_t)> copy{};
    std::copy(post->buffer.begin(), post->buffer.end(), copy.begin());
    const Verdict verdict = row == nullptr ? Verdict::Accepted : verdictOn(*row, post->buffer, actions);
    if (row != nullptr && row->target == Target::OtherDevice && verdict != Verdict::Accepted) return {verdict};
    const CommandEffect effect = actions.run(post->code, copy.data());
    if (row == nullptr || row->target == Target::None || verdict != Verdict::Accepted) return {verdict};
    if (effect.sent == 0) return {Verdict::NothingSent};
    return {effect.result != KV_RET_OK ? Verdict::UnknownStation : Verdict::Accepted};
}

CommandServer::CommandServer(const std::string &path) : path_(path), fd_(newCommandSocket(path, SOCK_NONBLOCK)) {
    if (!bindTo(path, fd_)) {
        if (errno != EADDRINUSE) throw support::systemError(path, "create the command socket");
        removeStale(path);
        if (!bindTo(path, fd_)) throw support::systemError(path, "create the command socket");
    }
    struct stat facts {};
    if (listen(fd_.get(), kBacklog) != 0 || lstat(path.c_str(), &facts) != 0)
        throw support::systemError(path, "listen");
    spare_ = support::FileDescriptor(fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0));
    fileDevice_ = facts.st_dev;
    fileNumber_ = facts.st_ino;
}

CommandServer::~CommandServer() {
    struct stat facts {};
    const bool ours = lstat(path_.c_str(), &facts) == 0 && facts.st_dev == fileDevice_ && facts.st_ino == fileNumber_;
    if (ours) unlink(path_.c_str());
}

void CommandServer::start(EventLoop &loop, CommandActions actions) {
    actions_ = std::move(actions);
    const int result = uv_poll_init(&loop.handle(), &handle_, fd_.get());
    if (result < 0) throw support::systemError(path_, "watch the command socket", -result);
    handle_.data = this;
    const auto callback = [](uv_poll_t *handle, int, int) {
        auto *server = static_cast<CommandServer *>(handle->data);
        EventLoop::call(handle->loop, [server] { server->acceptClient(); });
    };
    uv_poll_start(&handle_, UV_READABLE, callback);
}

// A client that could not be accepted would wake the loop again and again.
void CommandServer::refuseClient() {
    spare_ = support::FileDescriptor();
    { const support::FileDescriptor refused(accept4(fd_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC)); }
    spare_ = support::FileDescriptor(fcntl(fd_.get(), F_DUPFD_CLOEXEC, 0));
    problemLog_.log(KV_LOG_WARNING, TimePoint(Duration(uv_now(handle_.loop))), "%s: no descriptor for a client",
                    path_.c_str());
}

void CommandServer::acceptClient() {
    support::FileDescriptor fd(accept4(fd_.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    if (!fd.valid() && (errno == EMFILE || errno == ENFILE)) return refuseClient();
    if (!fd.valid()) return;
    if (clients_.size() >= kMaxClients) {
        end(clients_.front(), "replaced by a newer connection");
    }
    Client &client = clients_.emplace_back();
    client.server = this;
    client.fd = std::move(fd);
    client.handle.data = &client;
    if (uv_poll_init(handle_.loop, &client.handle, client.fd.get()) < 0) {
        clients_.pop_back();
        return;
    }
    const auto callback = [](uv_poll_t *handle, int, int) {
        auto *ready = static_cast<Client *>(handle->data);
        EventLoop::call(handle->loop, [ready] { ready->server->serve(*ready); });
    };
    uv_poll_start(&client.handle, UV_READABLE, callback);
}

void CommandServer::serve(Client &client) {
    std::array<uint8_t, kPostHeader + kMaxCommandSize> message;
    // The true length, also of a packet that does not fit.
    const ssize_t size = recv(client.fd.get(), message.data(), message.size(), MSG_TRUNC);
    if (size < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (size > 0) {
        const auto length = static_cast<size_t>(size);
        const ByteView packet = length > message.size() ? ByteView() : ByteView(message).first(length);
        const Reply reply = answer(client, packet);
        if (const char *reason = rowOf(reply.verdict).logged) {
            const std::optional<Post> post = parsePost(packet);
            logProblem(client, (post ? "command " + std::to_string(post->code) : "post") + " refused: " + reason);
        }
        const Bytes answer = encodeReply(reply);
        if (send(client.fd.get(), answer.data(), answer.size(), MSG_NOSIGNAL) < 0) {
            logProblem(client, "did not wait for the reply");
        }
        if (client.isMonitor) return;
    }
    end(client);
}

Reply CommandServer::answer(Client &client, ByteView packet) {
    if (!mayCommand(peerOf(client.fd))) return {Verdict::NotPermitted};
    const std::optional<Post> post = parsePost(packet);
    client.isMonitor = post && post->code == kCommandMonitor;
    return client.isMonitor ? Reply{Verdict::Accepted} : handlePost(packet, actions_);
}

void CommandServer::publish(const Event &event) {
    Bytes packet;
    for (Client &client : clients_) {
        if (!client.isMonitor || uv_is_closing(reinterpret_cast<uv_handle_t *>(&client.handle))) continue;
        if (packet.empty()) packet = encodeEvent(event);
        if (send(client.fd.get(), packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT) < 0)
            end(client, "does not read its events");
    }
}

void CommandServer::logProblem(const Client &client, const std::string &what) {
    const ucred peer = peerOf(client.fd);
    problemLog_.log(KV_LOG_WARNING, TimePoint(Duration(uv_now(handle_.loop))), "%s: process %d of user %u: %s",
                    path_.c_str(), peer.pid, peer.uid, what.c_str());
}

void CommandServer::end(Client &client, const char *reason) {
    auto *handle = reinterpret_cast<uv_handle_t *>(&client.handle);
    if (uv_is_closing(handle)) return;
    if (reason != nullptr) logProblem(client, reason);
    uv_close(handle, [](uv_handle_t *closed) {
        auto *gone = static_cast<Client *>(closed->data);
        gone->server->clients_.remove_if([gone](const Client &each) { return &each == gone; });
    });
}

}  // namespace kv1905d
