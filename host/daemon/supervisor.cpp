#include "daemon/supervisor.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include "support/log.h"
#include "support/terminal_text.h"

namespace kv1905d {
namespace {

using support::FileDescriptor;

constexpr Duration kLongestEnd{10000};  // of a daemon that ends on its own

TimePoint now() {
    return std::chrono::time_point_cast<Duration>(std::chrono::steady_clock::now());
}

// Sends a message of systemd's notification protocol, if systemd started this process.
void notify(std::string_view state) {
    const char *path = std::getenv("NOTIFY_SOCKET");
    sockaddr_un address{};
    if (path == nullptr || std::string_view(path).size() >= sizeof address.sun_path) return;
    address.sun_family = AF_UNIX;
    const size_t length = std::string_view(path).copy(address.sun_path, sizeof address.sun_path);
    if (address.sun_path[0] == '@') address.sun_path[0] = '\0';
    const FileDescriptor fd(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    sendto(fd.get(), state.data(), state.size(), MSG_NOSIGNAL | MSG_DONTWAIT, reinterpret_cast<sockaddr *>(&address),
           static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + length));
}

struct Process {
    pid_t pid;
    std::string name;
};

// Returns the processes of a group except its leader and zombies.
std::vector<Process> commandsOf(pid_t leader) {
    std::vector<Process> commands;
    std::error_code error;  // ends the iteration
    const std::filesystem::directory_iterator end;
    for (std::filesystem::directory_iterator entry("/proc", error); entry != end; entry.increment(error)) {
        std::ifstream file(entry->path() / "stat");
        std::string stat;
        if (!std::getline(file, stat)) continue;
        const size_t open = stat.find('('), close = stat.rfind(')');  // a name may hold both
        if (open == std::string::npos || close == std::string::npos) continue;
        char state = 'Z';
        pid_t parent = 0, group = 0;
        std::istringstream(stat.substr(close + 1)) >> state >> parent >> group;
        const pid_t pid = std::atoi(stat.c_str());
        if (group != leader || pid == leader || state == 'Z') continue;
        commands.push_back({pid, support::escaped(stat.substr(open + 1, close - open - 1))});
    }
    return commands;
}

std::string namesOf(const std::vector<Process> &commands) {
    std::string names;
    for (const Process &command : commands)
        names += (names.empty() ? "" : ", ") + command.name;
    return names.empty() ? "no command runs" : "commands: " + names;
}

class Supervisor {
  public:
    Supervisor(pid_t daemon, FileDescriptor heartbeats, FileDescriptor signals, const SupervisorTimes &times)
        : daemon_(daemon), heartbeats_(std::move(heartbeats)), signals_(std::move(signals)), times_(times) {}

    // Returns the daemon's wait status after its end.
    int watch() {
        while (!status_) {
            pollfd ready[] = {{signals_.get(), POLLIN, 0}, {heartbeats_.get(), POLLIN, 0}};
            const Duration wait = stopAt_      ? Duration(50)
                                  : isSilent() ? times_.name / 10
                                               : std::min(Duration(1000), times_.name / 2);
            poll(ready, std::size(ready), static_cast<int>(wait.count()));
            readHeartbeats();
            readSignals();
            if (stopAt_) {
                checkStop();
            } else if (isSilent()) {
                checkStall();
            }
        }
        kill(-daemon_, SIGKILL);  // its remaining commands
        return *status_;
    }
    bool isStopped() const { return stopAt_.has_value(); }

  private:
    bool isSilent() const { return now() - lastBeat_ >= times_.name / 2; }

    void readHeartbeats() {
        char bytes[64];
        const ssize_t size = read(heartbeats_.get(), bytes, sizeof bytes);
        if (size == 0) heartbeats_ = FileDescriptor();  // the daemon is about to end
        if (size <= 0) return;
        if (bytes[size - 1] == 'e') {
            if (!stopAt_) stopAt_ = now() + kLongestEnd;
            return notify("STOPPING=1");
        }
        notify("READY=1\nWATCHDOG=1");
        lastBeat_ = now();
        isNamed_ = false;
        firstSeen_.clear();
    }

    void readSignals() {
        signalfd_siginfo info{};
        while (read(signals_.get(), &info, sizeof info) == sizeof info) {
            if (info.ssi_signo == SIGUSR1) kill(daemon_, SIGUSR1);
            if (info.ssi_signo == SIGTERM || info.ssi_signo == SIGINT) {
                kill(daemon_, SIGTERM);
                stopAt_ = std::min(stopAt_.value_or(TimePoint::max()), now() + times_.stop);
            }
        }
        int status = 0;
        if (waitpid(daemon_, &status, WNOHANG) == daemon_) status_ = status;
    }

    void checkStop() {
        if (status_ || now() < *stopAt_) return;
        KV_HOST_LOG(KV_LOG_WARNING, "the daemon does not end and is killed; %s", namesOf(commandsOf(daemon_)).c_str());
        kill(-daemon_, SIGKILL);
        stopAt_ = now() + kLongestEnd;
    }

    void checkStall() {
        const TimePoint time = now();
        const auto silence = static_cast<long>((time - lastBeat_) / std::chrono::seconds(1));
        std::vector<Process> commands = commandsOf(daemon_);
        if (!isNamed_ && time - lastBeat_ >= times_.name) {
            isNamed_ = true;
            KV_HOST_LOG(KV_LOG_WARNING, "the daemon has not responded for %ld s; %s", silence,
                        namesOf(commands).c_str());
        }
        std::erase_if(commands, [&](const Process &command) {
            return time - firstSeen_.try_emplace(command.pid, time).first->second < times_.kill;
        });
        if (commands.empty()) return;
        for (const Process &command : commands) {
            kill(command.pid, SIGKILL);
            firstSeen_.erase(command.pid);
        }
        KV_HOST_LOG(KV_LOG_ERROR, "the daemon did not respond for %ld s; killed %s", silence,
                    namesOf(commands).c_str());
    }

    pid_t daemon_;
    FileDescriptor heartbeats_, signals_;
    SupervisorTimes times_;
    TimePoint lastBeat_ = now();
    bool isNamed_ = false;
    std::map<pid_t, TimePoint> firstSeen_;  // the commands since the last beat
    std::optional<TimePoint> stopAt_;       // when a daemon that has to end is killed
    std::optional<int> status_;
};

[[noreturn]] void fail(const char *step) {
    throw std::system_error(errno, std::generic_category(), step);
}

// Ends this process by the daemon's signal, as a shell or systemd expects.
void endBySignal(int number) {
    const rlimit noCore{0, 0};  // the daemon has left one
    setrlimit(RLIMIT_CORE, &noCore);
    std::signal(number, SIG_DFL);
    std::raise(number);
}

}  // namespace

void Heartbeat::write(char byte) const {
    if (!pipe_.valid()) return;
    [[maybe_unused]] const ssize_t size = ::write(pipe_.get(), &byte, 1);  // a full pipe holds heartbeats enough
}

int supervise(const std::function<int(Heartbeat)> &daemon, const SupervisorTimes &times) {
    std::signal(SIGCHLD, SIG_DFL);  // an inherited SIG_IGN hides how children end
    sigset_t handled, before;
    sigemptyset(&handled);
    for (const int number : {SIGTERM, SIGINT, SIGUSR1, SIGCHLD})
        sigaddset(&handled, number);
    int ends[2];
    if (pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) fail("pipe to the daemon");
    FileDescriptor heartbeats(ends[0]), beating(ends[1]);
    FileDescriptor signals(signalfd(-1, &handled, SFD_CLOEXEC | SFD_NONBLOCK));
    if (!signals.valid()) fail("receive signals");
    sigprocmask(SIG_BLOCK, &handled, &before);
    const pid_t supervisor = getpid();
    const pid_t child = fork();
    if (child < 0) fail("start the daemon's process");
    if (child == 0) {
        setpgid(0, 0);
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        if (getppid() != supervisor) _exit(EXIT_FAILURE);  // it has ended already
        heartbeats = FileDescriptor();
        signals = FileDescriptor();
        sigprocmask(SIG_SETMASK, &before, nullptr);
        return daemon(Heartbeat(std::move(beating)));
    }
    setpgid(child, child);  // in both processes, so that neither waits for the other
    beating = FileDescriptor();
    Supervisor watcher(child, std::move(heartbeats), std::move(signals), times);
    const int status = watcher.watch();
    sigprocmask(SIG_SETMASK, &before, nullptr);
    if (WIFEXITED(status)) return WEXITSTATUS(status);
    if (!watcher.isStopped()) endBySignal(WTERMSIG(status));
    return 0;
}

}  // namespace kv1905d
