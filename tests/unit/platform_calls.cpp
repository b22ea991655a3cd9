// Calls of the platform's library; platform_commands.sh compares what they print.
#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <kv1905/nvram.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

constexpr sockaddr_un kLog = {AF_UNIX, "log"};
const auto *const gLogName = reinterpret_cast<const sockaddr *>(&kLog);
const int gLogDaemon = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0);

// Replaces the C library's function, so that lines for the system log arrive here.
extern "C" int connect(int fd, const sockaddr *, socklen_t) {
    bind(gLogDaemon, gLogName, sizeof kLog);  // at the first line
    return static_cast<int>(syscall(SYS_connect, fd, gLogName, sizeof kLog));
}

namespace {

const std::string kLong(5000, 'x');

// Returns the next line that waits for the log daemon, if any.
std::string nextLine() {
    char line[8192];
    return {line, static_cast<size_t>(std::max<ssize_t>(recv(gLogDaemon, line, sizeof line, 0), 0))};
}

void log() {
    kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_DEBUG, "filtered");
    kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_INFO, "a\nb\t\x7f\xc2\x9b~ \\x0a\n\n");
    kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_ERROR, "%s", kLong.c_str());
    kvMAP_log_setting(0, 0, KV_LOG_ERROR);
    kvMAP_log_setting(2, 1, KV_LOG_DEBUG);
    kvMAP_syslog(2, KV_LOG_DEBUG, "own level %d\n", 7);
    kvMAP_syslog(99, KV_LOG_ERROR, "as the host's\n");
    kos_pk("filtered\n");
    kvMAP_log_setting(0, 0, KV_LOG_DEBUG);
    kvMAP_log_setting(0, 2, 7);
    kvlog(KV_LOG_ERROR, "some/file.c", 12, "work", "%d\n", 3);
    std::fputs(nextLine().c_str(), stderr);
}

// The library does not wait for a log daemon that does not read.
int logToStopped() {
    int missing = 2000;
    kvMAP_log_setting(0, 1, KV_LOG_INFO);
    for (int i = 0; i < missing; ++i)
        kvMAP_syslog(1, KV_LOG_INFO, "line");
    while (!nextLine().empty())
        --missing;
    kvMAP_syslog(1, KV_LOG_INFO, "next");
    return std::atoi(nextLine().c_str()) - missing;
}

int print() {
    kvMAP_log_setting(0, 0, KV_LOG_DEBUG);
    kos_pk("=== Start ===");
    kos_pk("\n%02x ", 0u);
    kos_pk("%02x ", 1u);
    kos_pk("\nname %s", "a\nb");
    kvMAP_syslog(1, KV_LOG_ERROR, "between\n");
    const int length = kos_pk("%s", kLong.c_str());
    kos_pk("unfinished");
    return length == 5000 ? 0 : 1;
}

// Statuses of commands, two reads of settings that cannot be read, then settings that change within a clock tick.
int run() {
    std::printf("%d %d %d %d\n", kos_formsys(0, "echo out; echo err >&2"), kos_formsys(1, "echo 3; exit 3"),
                kos_formsys(1, "kill -9 $$"), kos_formsys(1, "/no/such/command"));
    errno = EXDEV;
    setenv("KV_NVRAM_FILE", "/tmp", 1);
    bool right = nvram_get("a") == nullptr && nvram_get("b") == nullptr && errno == EXDEV;
    setenv("KV_NVRAM_FILE", "n", 1);
    for (int i = 100; i < 200; ++i) {
        std::ofstream("n") << "a=" << i << "\n";
        const char *value = nvram_get("a");
        right = right && value != nullptr && value == std::to_string(i);
    }
    return right ? 0 : 1;
}

}  // namespace

int main(int, char **argv) {
    const std::string what = argv[1];
    return what == "log" ? (log(), 0) : what == "stopped" ? logToStopped() : what == "print" ? print() : run();
}
