// The daemon's end of the command socket, and its checks before the plug-in receives a command.
#pragma once

#include <sys/types.h>
#include <uv.h>

#include <functional>
#include <list>
#include <string>

#include "command/protocol.h"
#include "daemon/event_loop.h"
#include "support/files.h"
#include "support/log.h"

namespace kv1905d {

enum class Presence { Unknown, Known, Local };

// Effect of a command that was run.
struct CommandEffect {
    uint64_t sent;           // messages
    int result = KV_RET_OK;  // of an own command; anything else after a message was sent: the station is not here
};

struct CommandActions {
    std::function<Presence(const MacAddress &)> find;  // in the topology
    // Passes code and buffer to the plug-in; empty without one.
    std::function<CommandEffect(uint32_t, void *)> run;
};

// Checks a post and runs it. The plug-in gets a copy, aligned and zero-filled to more than kMaxCommandSize bytes.
Reply handlePost(ByteView message, const CommandActions &actions);

// Accepts posts of the daemon's user and of root.
class CommandServer {
  public:
    // Listens at once. Replaces the file of a daemon that has ended. Throws std::runtime_error that names the path.
    explicit CommandServer(const std::string &path);
    // Removes the socket's file. The loop must have closed its handles by then.
    ~CommandServer();
    CommandServer(const CommandServer &) = delete;
    CommandServer &operator=(const CommandServer &) = delete;

    // Serves on that loop. Throws std::system_error.
    void start(EventLoop &loop, CommandActions actions);

    // Sends the event to every monitor. Disconnects one that does not read its events.
    void publish(const Event &event);

  private:
    static constexpr size_t kMaxClients = 8;  // the oldest is closed for another one

    struct Client {
        CommandServer *server;
        support::FileDescriptor fd;
        uv_poll_t handle{};
        bool isMonitor = false;
    };

    void acceptClient();
    void refuseClient();
    void serve(Client &client);
    Reply answer(Client &client, ByteView packet);
    void logProblem(const Client &client, const std::string &what);
    void end(Client &client, const char *reason = nullptr);

    std::string path_;
    support::FileDescriptor fd_;
    support::FileDescriptor spare_;  // closed to accept a client when no other descriptor is free
    dev_t fileDevice_ = 0;
    ino_t fileNumber_ = 0;
    uv_poll_t handle_{};
    CommandActions actions_;
    support::LogGate problemLog_;
    std::list<Client> clients_;  // those whose handle is still closing included
};

}  // namespace kv1905d
