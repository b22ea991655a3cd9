// The platform stand-in through the public calls of its library.
#include <gtest/gtest.h>
#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <kv1905/nvram.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <utility>

// Takes the C library's place, so that lines for the system log can be seen.
extern "C" void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vdprintf(STDERR_FILENO, ("SYSLOG " + std::to_string(priority) + " " + format).c_str(), arguments);
    va_end(arguments);
}

namespace {

// A log line from its facility on, behind time and program; a line that was cut in time is only told as such.
std::string tail(const std::string &line) {
    constexpr std::string_view kStamp = "2000-01-01 00:00:00.000", kProgram = " platform_tests ";
    if (line.size() > 4088 && line.size() <= 4096) return "cut " + line.substr(line.size() - 5);
    return line.find(kProgram) == kStamp.size() ? line.substr(kStamp.size() + kProgram.size()) : line;
}

// Runs body in a process of its own, where nothing of the library was used before. Returns its status and what it said
// on stdout and stderr, with a bar behind each write.
std::pair<int, std::string> inChild(const std::function<void()> &body) {
    int ends[2];
    EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);  // keeps writes apart
    fflush(stdout);
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        dup2(ends[1], STDERR_FILENO);
        body();
        std::exit(0);
    }
    close(ends[1]);
    std::string said;
    std::array<char, 16384> text;
    for (ssize_t got = 0; (got = read(ends[0], text.data(), text.size())) > 0;)
        said += tail({text.data(), static_cast<size_t>(got)}) + "|";
    close(ends[0]);
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, said};
}

TEST(Library, LogsPrintsAndRunsCommands) {
    const auto [status, said] = inChild([] {
        setenv("KV_LOG_LEVEL", "\n", 1);
        kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_DEBUG, "filtered");
        kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_INFO, "a\nb\t\x7f\xc2\x9b~ \\x0a\n\n");
        kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_ERROR, "%s", std::string(100000, 'x').c_str());
        bool right = kos_formsys(0, "echo out; echo err >&2") == 0 && kos_formsys(1, "echo 3; exit 3") == 3 &&
                     kos_formsys(1, "kill -9 $$") == 128 + 9 && kos_formsys(1, "/no/such/command") == -1;
        setenv("KV_NVRAM_FILE", "/tmp", 1);
        right = right && nvram_get("a") == nullptr && nvram_get("b") == nullptr;  // its reason is logged once
        errno = EXDEV;
        kvMAP_log_setting(0, 0, KV_LOG_ERROR);
        kvMAP_log_setting(2, 1, KV_LOG_DEBUG);
        kvMAP_syslog(2, KV_LOG_DEBUG, "own level %d\n", 7);
        kvMAP_syslog(99, KV_LOG_ERROR, "as the host's\n");
        kos_pk("filtered\n");
        kvMAP_log_setting(0, 0, KV_LOG_DEBUG);
        kvMAP_log_setting(0, 2, 7);
        kvlog(KV_LOG_ERROR, "some/file.c", 12, "work", "%d\n", 3);
        kos_pk("=== Start ===");
        kos_pk("\n%02x ", 0u);
        kos_pk("%02x ", 1u);
        kos_pk("\nname %s", "a\nb");
        kvMAP_syslog(1, KV_LOG_ERROR, "between\n");
        right = right && kos_pk("%s", std::string(5000, 'x').c_str()) == 5000;
        kos_pk("unfinished");
        std::exit(errno == EXDEV && right ? 0 : 1);
    });
    EXPECT_EQ(status, 0);
    EXPECT_EQ(said,
              "KV_LOG_LEVEL=\\x0a is not one of 0 1 2 3 4 5 6 7; using 6\n|msg info: "
              "a\\x0ab\\x09\\x7f\\xc2\\x9b~ \\x5cx0a\n|cut x...\n|out\n|err\n|"
              "host warning: cannot read the settings: /tmp: open: Is a directory\n|"
              "SYSLOG 7 apcfg debug: own level 7|99 error: as the host's\n|"
              "host warning: log setting 0 2 7 ignored: want a facility from 0 to 15, a target 0 or 1 and a level from "
              "0 to 7\n|host error: file.c:12 work: 3\n|print: === Start ===\n|print: 00 01 \n|"
              "print: name a\\x0ab\n|msg error: between\n|cut x...\n|print: unfinished\n|");
}

TEST(Settings, AreReadAsTheyAreNow) {
    const std::string store = "/tmp/platform_test_nvram";
    setenv("KV_NVRAM_FILE", store.c_str(), 1);
    for (int i = 100; i < 200; i++) {  // same size, same file, same clock tick
        std::ofstream(store) << "a=" << i << "\n";
        ASSERT_STREQ(nvram_get("a"), std::to_string(i).c_str());
    }
    std::filesystem::remove(store);
    EXPECT_EQ(nvram_get("a"), nullptr);
}

}  // namespace
