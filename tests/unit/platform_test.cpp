// The platform stand-in: its library through the public calls, its commands as processes of their own.
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
#include <tuple>
#include <utility>

// Takes the C library's place, so that lines for the system log can be seen.
extern "C" void syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    vdprintf(STDERR_FILENO, ("SYSLOG " + std::to_string(priority) + " " + format).c_str(), arguments);
    va_end(arguments);
}

namespace {

const std::string kStore = "/tmp/platform_test_nvram";
const int kEnvironment = setenv("KV_NVRAM_FILE", kStore.c_str(), 1) | setenv("F", kStore.c_str(), 1);

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

std::pair<int, std::string> command(const std::string &line) {
    return inChild([&] { execl("/bin/sh", "sh", "-c", line.c_str(), nullptr); });
}

void writeStore(const std::string &text) {
    std::ofstream(kStore, std::ios::binary | std::ios::trunc) << text;
}

TEST(Log, LinesAreFilteredEscapedAndCut) {
    const std::tuple<const char *, int, std::string, std::string> kRows[] = {
        // KV_LOG_LEVEL, level, text, what is written
        {"6", KV_LOG_INFO, "two\n\n", "msg info: two\n|"},
        {"\n", KV_LOG_DEBUG, "x", "KV_LOG_LEVEL=\\x0a is not one of 0 1 2 3 4 5 6 7; using 6\n|"},
        {"4", KV_LOG_NOTICE, "x", ""},
        {"7", KV_LOG_DEBUG, "a\nb\t\x7f\xc2\x9b~ \\x0a", "msg debug: a\\x0ab\\x09\\x7f\\xc2\\x9b~ \\x5cx0a\n|"},
        {"3", KV_LOG_ERROR, std::string(100000, 'x'), "cut x...\n|"},
        {"3", KV_LOG_ERROR, std::string(1100, '\1'), "cut 1...\n|"},
    };
    for (const auto &row : kRows) {
        const auto [status, said] = inChild([&row] {
            setenv("KV_LOG_LEVEL", std::get<0>(row), 1);
            kvMAP_syslog(KV_LOG_FACILITY_MSG, std::get<1>(row), "%s", std::get<2>(row).c_str());
        });
        EXPECT_EQ(said, std::get<3>(row));
    }
}

TEST(Library, SettingsPrintsAndCommands) {
    const auto [status, said] = inChild([] {
        setenv("KV_LOG_TARGET", "syslog", 1);
        bool right = kos_formsys(0, "echo out; echo err >&2") == 0 &&
                     kos_formsys(1, "echo 3; echo 3 >&2; exit 3") == 3 && kos_formsys(1, "kill -9 $$") == 128 + 9 &&
                     kos_formsys(1, "/no/such/command") == -1;
        setenv("KV_NVRAM_FILE", "/tmp", 1);
        right = right && nvram_get("a") == nullptr && nvram_get("b") == nullptr;  // its reason is told once
        errno = EXDEV;
        kvMAP_log_setting(0, 0, KV_LOG_ERROR);
        kvMAP_log_setting(2, 1, KV_LOG_DEBUG);
        kvMAP_syslog(2, KV_LOG_DEBUG, "own level %d\n", 7);
        kvMAP_syslog(1, KV_LOG_WARNING, "filtered\n");
        kvMAP_syslog(99, KV_LOG_ERROR, "as the host's\n");
        kos_pk("filtered\n");
        kvMAP_log_setting(0, 0, KV_LOG_DEBUG);
        kvMAP_log_setting(16, 0, 7);
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
              "out\n|err\n|SYSLOG 4 host warning: cannot read the settings: /tmp: open: Is a directory|"
              "SYSLOG 7 apcfg debug: own level 7|99 error: as the host's\n|"
              "host warning: log setting 16 0 7 ignored: want a facility from 0 to 15, a target 0 or 1 and a level "
              "from 0 to 7\n|"
              "host warning: log setting 0 2 7 ignored: want a facility from 0 to 15, a target 0 or 1 and a level from "
              "0 to 7\n|"
              "host error: file.c:12 work: 3\n|print: === Start ===\n|print: 00 01 \n|print: name a\\x0ab\n|"
              "msg error: between\n|cut x...\n|print: unfinished\n|");
}

TEST(Settings, AreReadAsTheyAreNow) {
    for (int i = 100; i < 200; i++) {  // same size, same file, same clock tick
        writeStore("a=" + std::to_string(i) + "\n");
        ASSERT_STREQ(nvram_get("a"), std::to_string(i).c_str());
    }
    std::filesystem::remove(kStore);
    EXPECT_EQ(nvram_get("a"), nullptr);
}

TEST(Settings, CommandsAnswerAndRefuse) {
    const std::string kBefore = "lone_setting=1\nwl0_chanspec=36/80\nwl0_ifname=eth1\nwl1.2_ifname=ap2\n";
    const std::tuple<std::string, int, std::string, std::string> kRows[] = {
        // line, status, part of what it says, part of the store afterwards: when empty it stays as it was
        {"printf 'b=1\\n=x\\nb d=1\\nn=1\\0l\\n\\nb=2\\nempty=\\neq==a\\ncr=x\\r\\nc:1.2-3_=\\377 \\nb=3\\nlast=9' "
         ">$F; nvram show",
         0, "nvram:2: skipped, not a NAME=VALUE line\n|b=3\nc:1.2-3_=\xff \ncr=x\r\nempty=\neq==a\nlast=9\n|", "b=1\n"},
        {"nvram get wl0_ifname", 0, "eth1\n", ""},
        {"nvram get wl0_ifnam", 1, "", ""},
        {"nvram get 'a b'", 2, "a b", ""},
        {"nvram set novalue", 2, "novalue", ""},
        {"nvram set =v", 2, "name", ""},
        {"nvram set 'n=a\nb=c'", 2, "newline", ""},
        {"nvram set 'k-1:x.y_z= \"$(x)\\=\xc3 ' && nvram get k-1:x.y_z", 0, " \"$(x)\\=\xc3 \n", "k-1:x.y_z= \"$("},
        {"nvram set e= && nvram get e", 0, "\n", "e=\n"},
        {"chmod 640 $F && nvram unset e && nvram unset wl0_ifname; stat -c %a $F; nvram get wl0_ifname", 1, "640\n",
         "ap2"},
        {"KV_NVRAM_FILE=/none/nvram nvram set b=1", 1, "/none/nvram.lock: open: No such file", ""},
        {"KV_NVRAM_FILE=/tmp nvram set b=1", 1, "/tmp: open: Is a directory", ""},
        {"export KV_NVRAM_FILE=$F.fifo; mkfifo $F.fifo; nvram show", 1, "fifo: open: Invalid argument", ""},
        {"export KV_NVRAM_FILE=$F.full; printf a=%1048566s >$F.full; nvram set b=12345678", 1, "File too large", ""},
        {"for w in a b c d; do for i in $(seq 40); do nvram set $w$i=x; done & done; wait; wc -l <$F", 0, "164", "=x"},
        {"wl -i wl0 chanspec", 0, "36/80\n", ""},
        {"wl -i wl0 chanspec 6l", 0, "", "wl0_chanspec=6l\n"},
        {"wl -i wl0 chanspec 36/85", 2, "36/85", ""},
        {"wl -i wl0 chanspec 4294967302", 2, "4294967302", ""},
        {"wl -i wl1.2 chanspec", 1, "wl1.2: no chanspec", ""},
        {"wl -i wl1 chanspec 6 2>$F.err; cat $F.err", 0, "wl: wl1: No such interface; known are wl0 wl1.2\n", ""},
        {"wl -i 'wl0;x' chanspec 6", 1, "wl0;x: No such interface", ""},
        {"wl -i wl0 country_abbrev_override DE/7", 0, "", "wl0_country_abbrev_override=DE/7\n"},
        {"wl -i wl0 country_abbrev_override DE/123", 2, "DE/123", ""},
        {"wl chanspec 2>&1 >/dev/null", 2, "-i", ""},
    };
    for (const auto &[line, expected, part, stored] : kRows) {
        writeStore(kBefore);
        const auto [status, said] = command(line);
        const std::string store = command("cat $F").second, what = line + ": " + said;
        EXPECT_EQ(status, expected) << what;
        EXPECT_TRUE(part.empty() ? said.empty() : said.find(part) != std::string::npos) << what;
        EXPECT_TRUE(stored.empty() ? store == kBefore + "|" : store.find(stored) != std::string::npos) << what;
    }
}

}  // namespace
