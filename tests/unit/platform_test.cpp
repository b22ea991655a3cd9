// The platform stand-in: its library through the public calls, its commands as processes of their own.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <kv1905/kos.h>
#include <kv1905/kvlog.h>
#include <kv1905/nvram.h>
#include <sys/socket.h>
#include <sys/stat.h>
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
    void SetUp() override {
        std::string pattern = testing::TempDir() + "kvplatformXXXXXX";
        ASSERT_NE(mkdtemp(pattern.data()), nullptr);
        directory_ = pattern;
        useStore(path("nvram"));
        unsetenv("KV_LOG_LEVEL");
        unsetenv("KV_LOG_TARGET");
    }
    void TearDown() override { std::filesystem::remove_all(directory_); }

    std::string path(const std::string &name) const { return directory_ + "/" + name; }
    void useStore(const std::string &file) { setenv("KV_NVRAM_FILE", file.c_str(), 1); }

    // Runs body in a process of its own, where nothing of the library was used before.
    Outcome inChild(const std::function<void()> &body) const {
        int ends[2];
        if (socketpair(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC, 0, ends) != 0) return {};  // keeps writes apart
        const std::string outPath = path("stdout");
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

    static void execute(const Strings &words) {
        std::vector<char *> arguments;
        for (const std::string &word : words)
            arguments.push_back(const_cast<char *>(word.c_str()));
        arguments.push_back(nullptr);
        execvp(arguments[0], arguments.data());
        perror(arguments[0]);
        _exit(99);
    }
    Outcome command(const Strings &words) const {
        return inChild([&] { execute(words); });
    }

    std::string directory_;
};

TEST_F(Platform, LevelComesFromTheEnvironment) {
    const struct {
        const char *setting;
        int level;
        Strings shown;
    } kRows[] = {
        {nullptr, KV_LOG_INFO, {"msg info: x\n"}},
        {nullptr, KV_LOG_DEBUG, {}},
        {"7", KV_LOG_DEBUG, {"msg debug: x\n"}},
        {"4", KV_LOG_NOTICE, {}},
        {"8", KV_LOG_NOTICE, {"KV_LOG_LEVEL=8 is not one of 0 1 2 3 4 5 6 7; using 6\n", "msg notice: x\n"}},
        {"3\n", KV_LOG_DEBUG, {"KV_LOG_LEVEL=3\\x0a is not one of 0 1 2 3 4 5 6 7; using 6\n"}},
    };
    for (const auto &row : kRows) {
        const Outcome outcome = inChild([&] {
            if (row.setting != nullptr) setenv("KV_LOG_LEVEL", row.setting, 1);
            kvMAP_syslog(KV_LOG_FACILITY_MSG, row.level, "%s\n", "x");
        });
        EXPECT_EQ(outcome.tails, row.shown) << row.level;
    }
}

TEST_F(Platform, SettingsChangeAtRunTime) {
    const Outcome outcome = inChild([] {
        setenv("KV_LOG_TARGET", "syslog", 1);
        kvMAP_syslog(2, KV_LOG_INFO, "%s\n", "to syslog");
        kvMAP_log_setting(KV_LOG_FACILITY_MSG, 0, KV_LOG_DEBUG);
        kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_DEBUG, "own level\n");
        kvMAP_syslog(KV_LOG_FACILITY_AP_CFG, KV_LOG_DEBUG, "filtered\n");
        kvMAP_log_setting(0, 0, KV_LOG_ERROR);
        kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_WARNING, "filtered\n");
        kvMAP_syslog(99, KV_LOG_ERROR, "as the host's\n");
        kvMAP_log_setting(0, 0, KV_LOG_WARNING);
        for (const auto &bad : {std::array{-1, 0, 7}, {16, 0, 7}, {0, 2, 7}, {0, 0, 8}, {0, 0, -1}})
            kvMAP_log_setting(bad[0], bad[1], bad[2]);
        kvMAP_syslog(0, KV_LOG_NOTICE, "filtered\n");
    });
    ASSERT_EQ(outcome.tails.size(), 8u) << outcome.err;
    EXPECT_EQ(outcome.tails[0], "SYSLOG 6 apcfg info: to syslog\n");
    EXPECT_EQ(outcome.tails[1], "msg debug: own level\n");
    EXPECT_EQ(outcome.tails[2], "99 error: as the host's\n");
    EXPECT_EQ(outcome.tails[3].rfind("host warning: log setting -1 0 7 ignored", 0), 0u);
}

TEST_F(Platform, LinesAreStampedEscapedAndWrittenAtOnce) {
    const std::pair<std::string, std::string> kRows[] = {
        // text and what is shown of it
        {"none", "none"},
        {"two\n\n", "two"},
        {"", ""},
        {"a\nb\n", "a\\x0ab"},
        {"\t\x7f", "\\x09\\x7f"},
        {"\xc2\x9b~ ", "\\xc2\\x9b~ "},
        {"\\x0a", "\\x5cx0a"},
        {std::string(4000, 'x'), std::string(4000, 'x')},
    };
    const Outcome outcome = inChild([&] {
        for (const auto &[text, shown] : kRows)
            kvMAP_syslog(KV_LOG_FACILITY_MSG, KV_LOG_ERROR, "%s", text.c_str());
        errno = EXDEV;
        kvlog(KV_LOG_ERROR, "some/where/file.c", 12, "work", "fail %d\n", 3);
        exit(errno == EXDEV ? 0 : 1);
    });
    EXPECT_EQ(outcome.status, 0) << "errno was changed";
    Strings expected;
    for (const auto &[text, shown] : kRows)
        expected.push_back("msg error: " + shown + "\n");
    expected.push_back("host error: file.c:12 work: fail 3\n");
    EXPECT_EQ(outcome.tails, expected);
    for (const std::string &line : outcome.writes) {
        int part = 0;
        EXPECT_EQ(sscanf(line.c_str(), "%*4d-%*2d-%*2d %*2d:%*2d:%*2d.%3d", &part), 1) << line;
    }
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
            EXPECT_LE(line.size(), 4096u);
            EXPECT_GT(line.size(), 4088u);
            EXPECT_EQ(line.substr(line.size() - 5), text.substr(0, 1) == "x" ? "x...\n" : "1...\n");
        }
    }
}

TEST_F(Platform, PrintBuildsLinesFromPieces) {
    const auto dump = [] {
        kos_pk("=== Start ===");
        for (int i = 0; i < 3; i++)
            kos_pk(i == 0 ? "\n%02x " : "%02x ", static_cast<unsigned>(i));
        kos_pk("\nname %s", "a\nb");
        kvMAP_syslog(1, KV_LOG_ERROR, "between\n");
        if (kos_pk("unfinished") != 10) kos_pk(", wrong length");
    };
    EXPECT_EQ(inChild(dump).writes.size(), 1u);
    setenv("KV_LOG_LEVEL", "7", 1);
    const Strings expected = {"print: === Start ===\n", "print: 00 01 02 \n", "print: name a\\x0ab\n",
                              "msg error: between\n", "print: unfinished\n"};
    EXPECT_EQ(inChild(dump).tails, expected);
}

TEST_F(Platform, BoundedFormattingAlwaysTerminates) {
    const struct {
        size_t size;
        const char *text;
    } kRows[] = {{1, ""}, {3, "ab"}, {6, "abcde"}, {7, "abcdef"}, {9, "abcdef"}};
    for (const auto &row : kRows) {
        std::array<char, 10> text;
        text.fill('#');
        EXPECT_EQ(kos_snprintf(text.data(), row.size, "%s", "abcdef"), 6);
        EXPECT_STREQ(text.data(), row.text);
        EXPECT_EQ(text[row.size], '#') << row.size;
    }
    EXPECT_EQ(kos_snprintf(nullptr, 0, "%d", 1234), 4);
    EXPECT_EQ(inChild([] { exit(kos_fpk(stdout, "%s=%d\n", "n", 7)); }).out, "n=7\n");
}

TEST_F(Platform, ShellCommandsReportTheirStatus) {
    const struct {
        int mode;
        const char *command;
        int status;
        const char *out, *err;
    } kRows[] = {
        {0, "echo out; echo err >&2", 0, "out\n", "err\n"},
        {1, "echo out; echo err >&2; exit 3", 3, "", ""},
        {1, "kill -9 $$", 128 + 9, "", ""},
        {1, "/", -1, "", ""},
        {0, nullptr, -1, "", ""},
    };
    for (const auto &row : kRows) {
        const Outcome outcome = inChild([&] { exit(kos_formsys(row.mode, row.command) == row.status ? 42 : 1); });
        EXPECT_EQ(outcome.status, 42) << row.command;
        EXPECT_EQ(outcome.out, row.out);
        EXPECT_EQ(outcome.err, row.err);
    }
}

TEST_F(Platform, StoreIsReadAsItIsNow) {
    EXPECT_EQ(nvram_get("a"), nullptr);
    for (int i = 100; i < 200; i++) {  // same size, same file, same clock tick
        writeFile(path("nvram"), "a=" + std::to_string(i) + "\n");
        ASSERT_STREQ(nvram_get("a"), std::to_string(i).c_str());
    }
    std::filesystem::remove(path("nvram"));
    EXPECT_EQ(nvram_get("a"), nullptr);

    using namespace std::string_literals;
    writeFile(path("nvram"),
              "b=1\nno value\n=x\nb d=1\nn=1\0l\n\nb=2\nempty=\neq==a=b\ncr=x\r\nc:1.2-3_=\xff \nb=3\nlast=9"s);
    const std::pair<const char *, const char *> kValues[] = {
        {"b", "3"},      {"empty", ""},  {"eq", "=a=b"}, {"cr", "x\r"},    {"c:1.2-3_", "\xff "}, {"last", "9"},
        {"no", nullptr}, {"n", nullptr}, {"", nullptr},  {"b d", nullptr}, {nullptr, nullptr},    {"bb", nullptr},
    };
    for (const auto &[name, value] : kValues)
        EXPECT_STREQ(nvram_get(name), value) << (name != nullptr ? name : "null");
    const Outcome shown = command({"nvram", "show"});
    EXPECT_EQ(shown.out, "b=3\nc:1.2-3_=\xff \ncr=x\r\nempty=\neq==a=b\nlast=9\n");
    EXPECT_NE(shown.err.find("nvram:2: skipped"), std::string::npos) << shown.err;

    useStore(directory_);
    const Outcome unreadable = inChild([] { exit(nvram_get("a") == nullptr && nvram_get("b") == nullptr ? 0 : 1); });
    EXPECT_EQ(unreadable.status, 0);
    ASSERT_EQ(unreadable.writes.size(), 1u);  // the reason is named once
    EXPECT_NE(unreadable.writes[0].find(directory_ + ": cannot read"), std::string::npos);
}

TEST_F(Platform, SettingsRoundTrip) {
    for (const std::string value : {"", "=", " two words ", "\"$(x)'\\", "caf\xc3\xa9\t\x01"}) {
        ASSERT_EQ(command({"nvram", "set", "k-1:x.y_z=" + value}).status, 0);
        EXPECT_STREQ(nvram_get("k-1:x.y_z"), value.c_str());
        EXPECT_EQ(command({"nvram", "get", "k-1:x.y_z"}).out, value + "\n");
    }
    chmod(path("nvram").c_str(), 0640);
    ASSERT_EQ(command({"nvram", "set", "other=1"}).status, 0);
    struct stat file = {};
    ASSERT_EQ(stat(path("nvram").c_str(), &file), 0);
    EXPECT_EQ(file.st_mode & 0777, 0640u);
    for (int i = 0; i < 2; i++)  // unsetting what is not set is no failure
        EXPECT_EQ(command({"nvram", "unset", "k-1:x.y_z"}).status, 0);
    EXPECT_EQ(readFile(path("nvram")), "other=1\n");
}

TEST_F(Platform, ConcurrentWritersLoseNothing) {
    std::vector<pid_t> writers;
    for (const std::string prefix : {"a", "b"}) {
        writers.push_back(fork());
        if (writers.back() == 0) execute({"sh", "-ec", "for i in $(seq 40); do nvram set " + prefix + "$i=x; done"});
    }
    for (const pid_t writer : writers) {
        int status = 1;
        waitpid(writer, &status, 0);
        EXPECT_EQ(status, 0);
    }
    const std::string store = readFile(path("nvram"));
    EXPECT_EQ(std::count(store.begin(), store.end(), '\n'), 2 * 40);
    EXPECT_FALSE(std::filesystem::exists(path("nvram.new")));
}

TEST_F(Platform, CommandsAnswerAndRefuse) {
    const std::string kStore = "lone_setting=1\nwl0_chanspec=36/80\nwl0_ifname=eth1\nwl1.2_ifname=ap2\n";
    const struct {
        Strings words;
        int status;
        std::string said;    // stdout, or a part of stderr when the status tells of a failure
        std::string stored;  // line that must be in the store afterwards
    } kRows[] = {
        {{"nvram", "get", "wl0_ifname"}, 0, "eth1\n", ""},
        {{"nvram", "get", "wl0_ifnam"}, 1, "", ""},
        {{"nvram", "get", "a b"}, 2, "a b", ""},
        {{"nvram", "show", "extra"}, 2, "extra", ""},
        {{"nvram", "erase"}, 2, "erase", ""},
        {{"nvram"}, 2, "--help", ""},
        {{"nvram", "set", "novalue"}, 2, "novalue", ""},
        {{"nvram", "set", "=v"}, 2, "name", ""},
        {{"nvram", "set", "n=a\nb=c"}, 2, "newline", ""},
        {{"wl", "-i", "wl0", "chanspec"}, 0, "36/80\n", ""},
        {{"wl", "-i", "wl0", "chanspec", "6l"}, 0, "", "wl0_chanspec=6l\n"},
        {{"wl", "-i", "wl0", "chanspec", "149/160"}, 0, "", "wl0_chanspec=149/160\n"},
        {{"wl", "-i", "wl0", "chanspec", "0"}, 2, "0: not a channel", ""},
        {{"wl", "-i", "wl0", "chanspec", "36/85"}, 2, "36/85", ""},
        {{"wl", "-i", "wl0", "chanspec", "4294967302"}, 2, "4294967302", ""},
        {{"wl", "-i", "wl0", "chanspec", "6", "7"}, 2, "7", ""},
        {{"wl", "-i", "wl1.2", "chanspec"}, 1, "wl1.2: no chanspec", ""},
        {{"wl", "-i", "wl1", "chanspec", "6"}, 1, "wl: wl1: No such interface; known are wl0 wl1.2\n", ""},
        {{"wl", "-i", "wl0;x", "chanspec"}, 2, "wl0;x", ""},
        {{"wl", "-i", "wl0", "country_abbrev_override", "DE/7"}, 0, "", "wl0_country_abbrev_override=DE/7\n"},
        {{"wl", "-i", "wl0", "country_abbrev_override", "D3"}, 2, "D3", ""},
        {{"wl", "-i", "wl0", "country_abbrev_override", "DE/"}, 2, "DE/", ""},
        {{"wl", "-i", "wl0", "country_abbrev_override", "DE/123"}, 2, "DE/123", ""},
        {{"wl", "-i", "wl0", "status"}, 2, "status", ""},
        {{"wl", "chanspec"}, 2, "-i", ""},
    };
    for (const auto &row : kRows) {
        writeFile(path("nvram"), kStore);
        const Outcome outcome = command(row.words);
        const std::string what = testing::PrintToString(row.words) + " " + outcome.err;
        const std::string store = readFile(path("nvram"));
        EXPECT_EQ(outcome.status, row.status) << what;
        EXPECT_EQ(outcome.out, row.status == 0 ? row.said : "") << what;
        EXPECT_EQ(outcome.err.empty(), row.status == 0 || row.said.empty()) << what;
        EXPECT_TRUE(row.status == 0 || outcome.err.find(row.said) != std::string::npos) << what;
        EXPECT_TRUE(row.stored.empty() ? store == kStore : store.find(row.stored) != std::string::npos) << what;
    }
}

TEST_F(Platform, StoreThatCannotChangeIsNamed) {
    writeFile(path("nvram"), "a=" + std::string((size_t{1} << 20) - 10, 'x') + "\n");
    std::filesystem::create_directory(path("directory"));
    for (const std::string &store :
         {path("none/nvram"), path("directory"), path(std::string(300, 'n')), path("nvram")}) {
        useStore(store);
        const Outcome outcome = command({"nvram", "set", "b=12345678"});
        EXPECT_EQ(outcome.status, 1) << store;
        EXPECT_NE(outcome.err.find(store), std::string::npos) << outcome.err;
    }
    EXPECT_EQ(readFile(path("nvram")).size(), (size_t{1} << 20) - 7);
}

}  // namespace
