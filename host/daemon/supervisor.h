// Runs the daemon in a child process and watches it from outside: a command that the plug-in runs blocks the daemon,
// which can then neither report that nor end at a signal.
#pragma once

#include <functional>
#include <utility>

#include "ieee1905/clock.h"
#include "support/files.h"

namespace kv1905d {

// Reports to the supervisor that the daemon is responsive. Does nothing without a pipe.
class Heartbeat {
  public:
    Heartbeat() = default;
    explicit Heartbeat(support::FileDescriptor pipe) : pipe_(std::move(pipe)) {}

    void beat() const { write('.'); }  // once a second
    void end() const { write('e'); }   // the daemon ends on its own, which may take long

  private:
    void write(char byte) const;

    support::FileDescriptor pipe_;
};

struct SupervisorTimes {
    Duration name{5000};   // without a heartbeat until the commands that run are named
    Duration kill{10000};  // that one of them may run until it is killed
    Duration stop{800};    // between SIGTERM and the end of a daemon that does not respond
};

/*
 * Calls `daemon` in a child process and returns its result there. The parent returns when that process has ended: its
 * exit status, or 0 after SIGTERM or SIGINT. When it ended by a signal, the parent ends by the same one. The child
 * leads a process group, to which the commands that it runs belong. Passes SIGUSR1 on. Reports to systemd, where that
 * started it. Throws std::system_error.
 */
int supervise(const std::function<int(Heartbeat)> &daemon, const SupervisorTimes &times = {});

}  // namespace kv1905d
