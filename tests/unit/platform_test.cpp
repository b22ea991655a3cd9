// The platform stand-in: its library through the public calls, its commands as processes of their own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <kv1905/nvram.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdarg>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

// Takes the C library's place, so that lines for the system log can be seen.
extern "C" void syslog(int priority, const char *format, ...) {
    std::array<char, 8192> text;
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text.data(), text.size(), format, arguments);
    va_end(arguments);
    dprintf(STDERR_FILENO, "SYSLOG %d %s\n", priority, text.data());
}

namespace {

using Strings = std::vector<std::string>;

// A log line from its facility on: what precedes it is the time and the program.
std::string tail(const std::string &line) {
    constexpr std::string_view kProgram = " platform_tests ";
    const size_t at = line.find(kProgram);
    return at == std::string::npos ? line : line.substr(at + kProgram.size());
}

struct Outcome {
    int status = -1;
    std::string out, err;
    Strings writes, tails;  // each write to stderr: the text, and the log line's tail
};

std::string readFile(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void writeFile(const std::string &path, const std::string &text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

class Platform : public testing::Test {
  protected:
    Platform() {
        EXPECT_NE(mkdtemp(directory_.data()), nullptr);
        setenv("KV_NVRAM_FILE", store_.replace(0, directory_.size(), directory_).c_str(), 1);
    }
    ~Platform() override { std::filesystem::remove_all(directory_); }

    // Runs body in a process of its own, where nothing of the library was used before.
    Outcome inChild(const std::function<void()> &body) const {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends), 0);  // keeps writes apart
        const std::string outPath = directory_ + "/stdout";
        const pid_t child = fork();
        if (child == 0) {
            dup2(open(outPath.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), STDOUT_FILENO);
            dup2(ends[1], STDERR_FILENO);
            close(ends[0]);
            body();
            std::exit(0);
        }
        close(ends[1]);
        Outcome outcome;
        std::array<char, 16384> text;
        for (ssize_t got = 0; (got = recv(ends[0], text.data(), text.size(), 0)) > 0;) {
            outcome.writes.emplace_back(text.data(), static_cast<size_t>(got));
            outcome.tails.push_back(tail(outcome.writes.back()));
            outcome.err += outcome.writes.back();
        }
        close(ends[0]);
        int status = 0;
        waitpid(child, &status, 0);
        outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        outcome.out = readFile(outPath);
        return outcome;
    }
    Outcome command(const std::string &line) const {
        return inChild([&] { execl("/bin/sh", "sh", "-c", line.c_str(), nullptr); });
    }

    std::string directory_ = testing::TempDir() + "kvplatformXXXXXX";
    std::string store_ = directory_ + "/nvram";
};

// `level`: of the environment, null when it is not set there.
void logAt(const char *level, int lineLevel) {
    if (level != nullptr) setenv("KV_LOG_LEVEL", level, 1);
    kvMAP_syslog(KV_LOG_FACILITY_MSG, lineLevel, "x\n");
}

void changeSettings() {
    setenv("KV_LOG_TARGET", "syslog", 1);
    kvMAP_syslog(2, KV_LOG_INFO, "%s\n", "to syslog");
    kvMAP_log_setting(KV_LOG_FACILITY_MSG, 0, KV_LOG_DEBUG);
    kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_DEBUG, "own level\n");
    kvMAP_syslog(KV_LOG_FACILITY_AP_CFG, KV_LOG_DEBUG, "filtered\n");
    kvMAP_log_setting(0, 0, KV_LOG_ERROR);
    kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_WARNING, "filtered\n");
    kvMAP_syslog(99, KV_LOG_ERROR, "as the host's\n");
    for (const auto &bad : {std::array{-1, 0, 7}, {16, 0, 7}, {0, 2, 7}, {0, 0, 8}, {0, 0, -1}})
        kvMAP_log_setting(bad[0], bad[1], bad[2]);  // told in a warning, so filtered
    kvMAP_syslog(0, KV_LOG_WARNING, "filtered\n");
    kvMAP_log_setting(0, 0, KV_LOG_WARNING);
    kvMAP_log_setting(0, 2, 7);
}

void printPieces() {
    kos_pk("=== Start ===");
    for (unsigned i = 0; i < 3; i++)
        kos_pk(i == 0 ? "\n%02x " : "%02x ", i);
    kos_pk("\nname %s", "a\nb");
    kvMAP_syslog(1, KV_LOG_ERROR, "between\n");
    if (kos_pk("unfinished") != 10) kos_pk(", wrong length");
}

TEST_F(Platform, LinesAreFilteredStampedEscapedAndWrittenAtOnce) {
    const auto text = [](const char *line) {
        return [line] { kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_ERROR, "%s", line); };
    };
    const std::pair<std::function<void()>, Strings> kRows[] = {
        {[] { logAt(nullptr, KV_LOG_INFO); }, {"msg info: x\n"}},
        {[] { logAt(nullptr, KV_LOG_DEBUG); }, {}},
        {[] { logAt("7", KV_LOG_DEBUG); }, {"msg debug: x\n"}},
        {[] { logAt("4", KV_LOG_NOTICE); }, {}},
        {[] { logAt("8", KV_LOG_NOTICE); },
         {"KV_LOG_LEVEL=8 is not one of 0 1 2 3 4 5 6 7; using 6\n", "msg notice: x\n"}},
        {[] { logAt("3\n", KV_LOG_DEBUG); }, {"KV_LOG_LEVEL=3\\x0a is not one of 0 1 2 3 4 5 6 7; using 6\n"}},
        {text("none"), {"msg error: none\n"}},
        {text("two\n\n"), {"msg error: two\n"}},
        {text(""), {"msg error: \n"}},
        {text("a\nb\n"), {"msg error: a\\x0ab\n"}},
        {text("\t\x7f\xc2\x9b~ "), {"msg error: \\x09\\x7f\\xc2\\x9b~ \n"}},
        {text("\\x0a"), {"msg error: \\x5cx0a\n"}},
        {[] { kvlog(KV_LOG_ERROR, "some/file.c", 12, "work", "%d\n", 3); }, {"host error: file.c:12 work: 3\n"}},
        {changeSettings,
         {"SYSLOG 6 apcfg info: to syslog\n", "msg debug: own level\n", "99 error: as the host's\n",
          "host warning: log setting 0 2 7 ignored: want a facility from 0 to 15, a target 0 or 1 and a level from 0 "
          "to 7\n"}},
        {printPieces, {"msg error: between\n"}},
        {[] { setenv("KV_LOG_LEVEL", "7", 1), printPieces(); },
         {"print: === Start ===\n", "print: 00 01 02 \n", "print: name a\\x0ab\n", "msg error: between\n",
          "print: unfinished\n"}},
    };
    for (const auto &[body, expected] : kRows) {
        Outcome outcome = inChild([&, run = body] {
            errno = EXDEV;
            run();
            exit(errno == EXDEV ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0) << "errno was changed";
        EXPECT_EQ(outcome.tails, expected);
    }
    int part = 0;
    EXPECT_EQ(sscanf(inChild(text("")).err.c_str(), "%*4d-%*2d-%*2d %*2d:%*2d:%*2d.%3d", &part), 1);
}

TEST_F(Platform, OverlongLinesAreCut) {
    for (const std::string &text : {std::string(4095, 'x'), std::string(100000, 'x'), std::string(1100, '\1')}) {
        const Outcome outcome = inChild([&] {
            setenv("KV_LOG_LEVEL", "7", 1);
            kvMAP_syslog(1, KV_LOG_ERROR, "%s\n", text.c_str());
            exit(kos_pk("%s\n", text.c_str()) == static_cast<int>(text.size()) + 1 ? 0 : 1);
        });
        EXPECT_EQ(outcome.status, 0);
        ASSERT_EQ(outcome.writes.size(), 2u);
        for (const std::string &line : outcome.writes) {
            EXPECT_TRUE(line.size() > 4088 && line.size() <= 4096) << line.size();
            EXPECT_EQ(line.substr(line.size() - 5), text[0] == 'x' ? "x...\n" : "1...\n");
        }
    }
}

TEST_F(Platform, ShellCommandsReportTheirStatusAndOutput) {
    const std::tuple<int, const char *, int, std::string> kRows[] = {
        // mode, command, status, what is seen of it
        {0, "echo out; echo err >&2", 0, "out\nerr\n"},
        {1, "echo out; echo err >&2; exit 3", 3, ""},
        {1, "kill -9 $$", 128 + 9, ""},
        {1, "/no/such/command", -1, ""},
        {0, nullptr, -1, ""},
    };
    for (const auto &[mode, line, status, seen] : kRows) {
        const Outcome outcome = inChild([&, m = mode, l = line] { exit(kos_formsys(m, l) & 0xFF); });
        EXPECT_EQ(outcome.status, status & 0xFF) << seen;
        EXPECT_EQ(outcome.out + outcome.err, seen);
    }
    EXPECT_EQ(kos_snprintf(nullptr, 0, "%d", 1234), 4);
    EXPECT_EQ(inChild([] { kos_fpk(stdout, "%s=%d\n", "n", 7); }).out, "n=7\n");
}

TEST_F(Platform, StoreIsReadAsItIsNow) {
    EXPECT_EQ(nvram_get("a"), nullptr);
    for (int i = 100; i < 200; i++) {  // same size, same file, same clock tick
        writeFile(store_, "a=" + std::to_string(i) + "\n");
        ASSERT_STREQ(nvram_get("a"), std::to_string(i).c_str());
    }
    std::filesystem::remove(store_);
    EXPECT_EQ(nvram_get("a"), nullptr);

    using namespace std::string_literals;
    writeFile(store_, "b=1\nno value\n=x\nb d=1\nn=1\0l\n\nb=2\nempty=\neq==a=b\ncr=x\r\nc:1.2-3_=\xff \nb=3\nlast=9"s);
    const std::pair<const char *, const char *> kValues[] = {
        {"b", "3"},      {"empty", ""},  {"eq", "=a=b"}, {"cr", "x\r"},    {"c:1.2-3_", "\xff "}, {"last", "9"},
        {"no", nullptr}, {"n", nullptr}, {"", nullptr},  {"b d", nullptr}, {nullptr, nullptr},    {"bb", nullptr},
    };
    for (const auto &[name, value] : kValues)
        EXPECT_STREQ(nvram_get(name), value) << (name != nullptr ? name : "null");
    const Outcome shown = command("nvram show");
    EXPECT_EQ(shown.out, "b=3\nc:1.2-3_=\xff \ncr=x\r\nempty=\neq==a=b\nlast=9\n");
    EXPECT_NE(shown.err.find("nvram:2: skipped"), std::string::npos) << shown.err;

    setenv("KV_NVRAM_FILE", directory_.c_str(), 1);
    const Outcome unreadable = inChild([] { exit(nvram_get("a") == nullptr && nvram_get("b") == nullptr ? 0 : 1); });
    EXPECT_EQ(unreadable.status, 0);
    ASSERT_EQ(unreadable.writes.size(), 1u);  // the reason is named once
    EXPECT_NE(unreadable.writes[0].find(directory_ + ": cannot read"), std::string::npos);
}

TEST_F(Platform, SettingsRoundTrip) {
    for (const std::string value : {"", "=", " two words ", "\"$(x)'\\", "caf\xc3\xa9\t\x01"}) {
        setenv("VALUE", value.c_str(), 1);
        EXPECT_EQ(command("nvram set k-1:x.y_z=\"$VALUE\" && nvram get k-1:x.y_z").out, value + "\n");
        EXPECT_STREQ(nvram_get("k-1:x.y_z"), value.c_str());
    }
    const std::string shell = "chmod 640 $KV_NVRAM_FILE && nvram set other=1 && stat -c %a $KV_NVRAM_FILE";
    EXPECT_EQ(command(shell + "&& nvram unset k-1:x.y_z && nvram unset k-1:x.y_z").status, 0);
    EXPECT_EQ(command(shell).out, "640\n");
    EXPECT_EQ(readFile(store_), "other=1\n");
}

TEST_F(Platform, ConcurrentWritersLoseNothing) {
    const std::string writers =
        "for w in a b; do (set -e; for i in $(seq 40); do nvram set $w$i=x; done) & p=\"$p $!\"; done\n"
        "for i in $p; do wait $i || exit 1; done";
    EXPECT_EQ(command(writers).status, 0);
    const std::string store = readFile(store_);
    EXPECT_EQ(std::count(store.begin(), store.end(), '\n'), 2 * 40);
    EXPECT_FALSE(std::filesystem::exists(store_ + ".new"));
}

TEST_F(Platform, CommandsAnswerAndRefuse) {
    const std::string kStore = "lone_setting=1\nwl0_chanspec=36/80\nwl0_ifname=eth1\nwl1.2_ifname=ap2\n";
    const struct {
        const char *line;
        int status;
        std::string said;    // stdout, or a part of stderr when the status tells of a failure
        std::string stored;  // line that must be in the store afterwards
    } kRows[] = {
        {"nvram get wl0_ifname", 0, "eth1\n", ""},
        {"nvram get wl0_ifnam", 1, "", ""},
        {"nvram get 'a b'", 2, "a b", ""},
        {"nvram erase", 2, "erase", ""},
        {"nvram", 2, "--help", ""},
        {"nvram set novalue", 2, "novalue", ""},
        {"nvram set =v", 2, "name", ""},
        {"nvram set 'n=a\nb=c'", 2, "newline", ""},
        {"wl -i wl0 chanspec", 0, "36/80\n", ""},
        {"wl -i wl0 chanspec 6l", 0, "", "wl0_chanspec=6l\n"},
        {"wl -i wl0 chanspec 149/160", 0, "", "wl0_chanspec=149/160\n"},
        {"wl -i wl0 chanspec 36/85", 2, "36/85", ""},
        {"wl -i wl0 chanspec 4294967302", 2, "4294967302", ""},
        {"wl -i wl0 chanspec 6 7", 2, "7", ""},
        {"wl -i wl1.2 chanspec", 1, "wl1.2: no chanspec", ""},
        {"wl -i wl1 chanspec 6", 1, "wl: wl1: No such interface; known are wl0 wl1.2\n", ""},
        {"wl -i 'wl0;x' chanspec", 2, "wl0;x", ""},
        {"wl -i wl0 country_abbrev_override DE/7", 0, "", "wl0_country_abbrev_override=DE/7\n"},
        {"wl -i wl0 country_abbrev_override D3", 2, "D3", ""},
        {"wl -i wl0 country_abbrev_override DE/123", 2, "DE/123", ""},
        {"wl -i wl0 status", 2, "status", ""},
        {"wl chanspec", 2, "-i", ""},
    };
    for (const auto &row : kRows) {
        writeFile(store_, kStore);
        const Outcome outcome = command(row.line);
        const std::string store = readFile(store_), what = row.line + std::string(": ") + outcome.err;
        EXPECT_EQ(outcome.status, row.status) << what;
        EXPECT_EQ(outcome.out, row.status == 0 ? row.said : "") << what;
        EXPECT_EQ(outcome.err.empty(), row.status == 0 || row.said.empty()) << what;
        EXPECT_TRUE(row.status == 0 || outcome.err.find(row.said) != std::string::npos) << what;
        EXPECT_TRUE(row.stored.empty() ? store == kStore : store.find(row.stored) != std::string::npos) << what;
    }
}

TEST_F(Platform, StoreThatCannotChangeIsNamed) {
    const std::string full = "a=" + std::string((size_t{1} << 20) - 10, 'x') + "\n";
    writeFile(store_, full);
    for (const std::string &store : {directory_ + "/none/nvram", directory_, store_ + std::string(300, 'n'), store_}) {
        setenv("KV_NVRAM_FILE", store.c_str(), 1);
        const Outcome outcome = command("nvram set b=12345678");
        EXPECT_EQ(outcome.status, 1) << store;
        EXPECT_NE(outcome.err.find(store), std::string::npos) << outcome.err;
    }
    EXPECT_EQ(readFile(store_), full);
}

}  // namespace
