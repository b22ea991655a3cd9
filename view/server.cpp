// The page's server: HTTP for GET and HEAD, one request per connection, one thread. A client that is slow or sends
// without end costs 8 KiB and two seconds, and one client too many ends the oldest connection.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <strings.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <iostream>
#include <iterator>
#include <list>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "app/outcome.h"
#include "support/files.h"
#include "view/view.h"

namespace kv1905d {
namespace {

using Clock = std::chrono::steady_clock;
using support::FileDescriptor;

constexpr const char *kAddress = "127.0.0.1";  // every client can read the whole network
constexpr size_t kMostConnections = 64;
constexpr size_t kLongestRequest = 8192;         // bytes; a body is never read
constexpr std::chrono::seconds kPatience{2};     // for a request and its answer
constexpr std::chrono::milliseconds kTick{100};  // between two looks at the time

struct Answer {
    const char *status;
    const char *type;
    std::string body;
};

Answer failure(const char *status, const std::string &text) {
    return {status, "text/plain; charset=utf-8", text + "\n"};
}

std::string modelOrNull(const std::string &path) {
    try {
        return modelText(path);
    } catch (const std::exception &) {
        return "null";  // the page tries again and shows the failure
    }
}

Answer resource(std::string_view path, const std::string &dataModel) {
    if (path == "/") return {"200 OK", "text/html; charset=utf-8", viewPage(modelOrNull(dataModel), kViewDataPath)};
    if (path != kViewDataPath) return failure("404 Not Found", "there is only / and " + std::string(kViewDataPath));
    try {
        return {"200 OK", "application/json", modelText(dataModel)};
    } catch (const std::exception &error) {
        return failure("503 Service Unavailable", error.what());
    }
}

// Removes the text up to the separator, or all of it, and returns it without the separator.
std::string_view take(std::string_view &text, std::string_view separator) {
    const std::string_view part = text.substr(0, text.find(separator));
    text.remove_prefix(std::min(text.size(), part.size() + separator.size()));
    return part;
}

std::string_view trimmed(std::string_view text) {
    const size_t begin = std::min(text.find_first_not_of(" \t"), text.size());
    return text.substr(begin, text.find_last_not_of(" \t") + 1 - begin);
}

// Returns whether the header lines have one Host, which names this machine.
bool isForThisMachine(std::string_view lines) {
    std::vector<std::string_view> hosts;
    while (!lines.empty()) {
        std::string_view line = take(lines, "\r\n");
        const std::string_view name = take(line, ":");
        if (name.size() == 4 && strncasecmp(name.data(), "Host", 4) == 0) hosts.push_back(trimmed(line));
    }
    return hosts.size() == 1 && isLoopbackHost(hosts.front());
}

Answer answerTo(std::string_view method, std::string_view target, std::string_view headers, const std::string &model) {
    if (method != "GET" && method != "HEAD")
        return failure("405 Method Not Allowed", "only GET and HEAD are answered here");
    if (!isForThisMachine(headers))
        return failure("403 Forbidden", "only http://127.0.0.1 and http://localhost are answered here");
    return resource(take(target, "?"), model);
}

std::string encoded(const Answer &answer, bool withBody) {
    return std::string("HTTP/1.1 ") + answer.status + "\r\nContent-Type: " + answer.type +
           "\r\nContent-Length: " + std::to_string(answer.body.size()) +
           "\r\nAllow: GET, HEAD\r\nConnection: close\r\nCache-Control: no-store"
           "\r\nX-Content-Type-Options: nosniff\r\nCross-Origin-Resource-Policy: same-origin"
           "\r\nContent-Security-Policy: " +
           kViewPolicy + "; connect-src 'self'; frame-ancestors 'none'\r\n\r\n" + (withBody ? answer.body : "");
}

// The response to what was received, once that is a request or too long for one.
std::string responseTo(std::string_view received, const std::string &dataModel) {
    const size_t end = received.find("\r\n\r\n");
    if (std::min(end, received.size()) > kLongestRequest)
        return encoded(failure("431 Request Header Fields Too Large", "the request is too long"), true);
    if (end == std::string_view::npos) return "";
    std::string_view headers = received.substr(0, end);
    std::string_view line = take(headers, "\r\n");
    const std::string_view method = take(line, " "), target = take(line, " ");
    return encoded(answerTo(method, target, headers, dataModel), method != "HEAD");
}

class Connection {
  public:
    explicit Connection(FileDescriptor fd) : fd_(std::move(fd)) {}

    pollfd awaited() const { return {fd_.get(), static_cast<short>(isSending() ? POLLOUT : POLLIN), 0}; }
    bool isLate() const { return Clock::now() >= end_; }
    // Returns whether the connection continues.
    bool proceed(const std::string &dataModel) { return isSending() ? send() : receive(dataModel); }

  private:
    bool isSending() const { return sent_ < response_.size(); }

    bool receive(const std::string &dataModel) {
        char bytes[4096];
        const ssize_t size = recv(fd_.get(), bytes, sizeof bytes, 0);
        if (size <= 0) return size < 0 && errno == EAGAIN;
        if (!response_.empty()) return true;  // dropped: a client whose bytes are not read may lose its response
        received_.append(bytes, static_cast<size_t>(size));
        response_ = responseTo(received_, dataModel);
        return true;
    }

    bool send() {
        const ssize_t size = ::send(fd_.get(), &response_[sent_], response_.size() - sent_, MSG_NOSIGNAL);
        if (size < 0) return errno == EAGAIN;
        sent_ += static_cast<size_t>(size);
        if (!isSending()) shutdown(fd_.get(), SHUT_WR);
        return true;
    }

    FileDescriptor fd_;
    Clock::time_point end_ = Clock::now() + kPatience;
    std::string received_, response_;
    size_t sent_ = 0;
};

void accept(const FileDescriptor &listener, std::list<Connection> &connections) {
    FileDescriptor fd(accept4(listener.get(), nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC));
    const bool isFull = fd.valid() ? connections.size() == kMostConnections : errno == EMFILE || errno == ENFILE;
    if (isFull && !connections.empty()) connections.pop_front();
    if (!fd.valid()) return std::this_thread::sleep_for(kTick);  // the client may still wait, and poll returns at once
    connections.emplace_back(std::move(fd));
}

// The socket of 127.0.0.1 and its port; invalid where that cannot be had.
std::pair<FileDescriptor, uint16_t> listenAt(uint16_t port) {
    FileDescriptor fd(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
    const int yes = 1;
    setsockopt(fd.get(), SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in name{};
    name.sin_family = AF_INET;
    name.sin_port = htons(port);
    inet_pton(AF_INET, kAddress, &name.sin_addr);
    auto *address = reinterpret_cast<sockaddr *>(&name);
    socklen_t size = sizeof name;
    if (bind(fd.get(), address, size) != 0 || listen(fd.get(), SOMAXCONN) != 0 ||
        getsockname(fd.get(), address, &size) != 0)
        return {FileDescriptor(), port};
    return {std::move(fd), ntohs(name.sin_port)};
}

}  // namespace

bool isLoopbackHost(std::string_view host) {
    const size_t colon = host.find(':');
    if (colon != std::string_view::npos) {
        const std::string_view port = host.substr(colon + 1);
        if (port.empty() || port.find_first_not_of("0123456789") != std::string_view::npos) return false;
        host = host.substr(0, colon);
    }
    return host == kAddress || host == "localhost";
}

void serveView(const std::string &dataModel, uint16_t port) {
    const auto [listener, bound] = listenAt(port);
    if (!listener.valid()) {
        throw Failure(Status::Failure, "port " + std::to_string(port) + " of " + kAddress + ": " +
                                           std::strerror(errno) + "; choose another --port");
    }
    std::cout << "http://" << kAddress << ':' << bound << "/ shows the mesh; Ctrl-C ends this" << std::endl;
    for (std::list<Connection> connections;;) {  // the oldest first
        std::vector<pollfd> awaited{{listener.get(), POLLIN, 0}};
        for (const Connection &connection : connections)
            awaited.push_back(connection.awaited());
        poll(awaited.data(), awaited.size(), connections.empty() ? -1 : static_cast<int>(kTick.count()));
        auto ready = awaited.begin();
        const bool isCalled = ready->revents != 0;
        for (auto at = connections.begin(); at != connections.end();) {
            const bool goesOn = (++ready)->revents == 0 || at->proceed(dataModel);
            at = goesOn && !at->isLate() ? std::next(at) : connections.erase(at);
        }
        if (isCalled) accept(listener, connections);
    }
}

}  // namespace kv1905d
