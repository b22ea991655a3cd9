// The tool's end of the command socket.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <optional>
#include <string>

#include "command/protocol.h"
#include "ieee1905/clock.h"
#include "support/files.h"

namespace kv1905d {

// Returns the peer process of a connected socket. Only root and this process's user may send or receive commands.
ucred peerOf(const support::FileDescriptor &fd);
bool mayCommand(const ucred &peer);

// Return where a daemon of this user listens by default, and where a tool looks for it: in /run if it is writable, else
// in /tmp, where any user may be the first.
std::string newSocketPath();
std::string usualSocketPath();

// The functions below throw std::system_error that names the path.

// Return a socket with additional flags, such as SOCK_NONBLOCK, and the address of the path.
support::FileDescriptor newCommandSocket(const std::string &path, int flags);
sockaddr_un commandAddress(const std::string &path);

// Connects to the daemon; ETIMEDOUT when it does not accept in time, EPERM when it is another user's. timeout: for each
// step of an exchange; without one, the socket does not block.
support::FileDescriptor connectToDaemon(const std::string &path, std::optional<Duration> timeout);

// Receives the events that the daemon publishes.
class MonitorConnection {
  public:
    // Connects; waits at most `timeout` for the daemon.
    MonitorConnection(const std::string &path, Duration timeout);

    // Returns the next event, valid until the next call; nullopt after `timeout`. ECONNREFUSED when the daemon ended.
    std::optional<Event> next(Duration timeout);

  private:
    std::string path_;
    support::FileDescriptor fd_;
    Bytes packet_;
};

// Posts one command and receives the reply; ETIMEDOUT when the daemon does not accept or answer it in time.
Reply postCommand(const std::string &path, const Post &post, Duration timeout);

}  // namespace kv1905d
