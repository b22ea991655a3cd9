// Operator commands from the tool's arguments to the daemon's end of the command socket and back.
#include <sys/stat.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <iterator>
#include <sstream>

#include "app/arguments.h"
#include "app/result_file.h"
#include "app/run.h"
#include "command/client.h"
#include "daemon/command_server.h"
#include "host_support.h"

namespace kv1905d {
namespace {

constexpr const char *kReceived = "/tmp/received";
constexpr const char *kSocket = "/tmp/command_test.sock";
constexpr Duration kPatience{5000};

// A daemon's end of the command socket in a separate process. Device 1 is its own, device 2 the only other one. A file
// holds what it received.
struct AnsweringDaemon {
    explicit AnsweringDaemon(const char *answer = "", CommandEffect effect = {1}) {
        unlink(kReceived);
        if (child_ != 0) return;
        CommandActions actions;
        actions.find = [](const MacAddress &alMac) {
            return alMac == mac(1) ? Presence::Local : alMac == mac(2) ? Presence::Known : Presence::Unknown;
        };
        actions.run = [=, this](uint32_t, void *buffer) {
            std::ofstream(kReceived).write(static_cast<char *>(buffer), kMaxCommandSize);
            if (std::string_view(answer).starts_with("024EA7")) {
                server_.publish({Direction::In, 7, mac(3).text(), {}});
                server_.publish({Direction::In, 7, mac(2).text(), fromHex(answer)});
            } else if (*answer != '\0') {
                std::ofstream(kResultFile) << answer;
            }
            return effect;
        };
        EventLoop loop;
        server_.start(loop, std::move(actions));
        loop.run();
    }
    ~AnsweringDaemon() {
        kill(child_, SIGKILL);
        waitpid(child_, nullptr, 0);
    }

    CommandServer server_{kSocket};
    pid_t child_ = fork();
};

// Returns the first bytes received, none if there are none.
Bytes received(size_t size) {
    std::ifstream file(kReceived);
    Bytes bytes(std::istreambuf_iterator<char>(file), {});
    bytes.resize(std::min(size, bytes.size()));
    return bytes;
}

FileDescriptor rawSocket(int (*join)(int, const sockaddr *, socklen_t)) {
    FileDescriptor fd(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    sockaddr_un address{AF_UNIX, {}};
    std::copy_n(kSocket, std::string_view(kSocket).size(), address.sun_path);
    EXPECT_EQ(join(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    return fd;
}

TEST(CommandServer, ReplacesOnlyAnEndedDaemonsSocket) {
    {
        const CommandServer live(kSocket);
        struct stat facts {};
        ASSERT_EQ(stat(kSocket, &facts), 0);
        EXPECT_EQ(facts.st_mode & 0777, 0600u);
        EXPECT_CONTAINS("another daemon", resultOf([] { CommandServer second(kSocket); }).meaning);
        EXPECT_EQ(access(kSocket, F_OK), 0) << "the second one removed the first one's file";
    }
    EXPECT_NE(access(kSocket, F_OK), 0);
    {
        const CommandServer replaced(kSocket);
        EXPECT_EQ(unlink(kSocket), 0);
        std::ofstream(kSocket) << "its successor's";
    }
    EXPECT_EQ(unlink(kSocket), 0) << "a daemon removes only its own socket";
    rawSocket(bind);  // a daemon that was killed leaves its file
    { const CommandServer successor(kSocket); }
    std::ofstream(kSocket) << "another file";
    EXPECT_CONTAINS("not a socket", resultOf([] { CommandServer server(kSocket); }).meaning);
    EXPECT_EQ(unlink(kSocket), 0);
}

TEST(CommandServer, AcceptsOnlyItsUserAndRoot) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    const AnsweringDaemon daemon;
    EXPECT_EQ(chmod(kSocket, 0666), 0);  // the file would stop the other user first
    EXPECT_EQ(seteuid(65534), 0);
    const Verdict verdict = postCommand(kSocket, {KV_CMD_UPDATE_DEVICE_INFO, {}}, kPatience).verdict;
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_EQ(verdict, Verdict::NotPermitted);
    EXPECT_TRUE(received(1).empty());
}

TEST(CommandServer, RootReplacesAnotherUsersSocket) {
    if (geteuid() != 0) GTEST_SKIP() << "only root can become another user";
    EXPECT_EQ(chmod("/tmp", 01777), 0);
    EXPECT_EQ(seteuid(65534), 0);
    const CommandServer other(kSocket);
    EXPECT_EQ(seteuid(0), 0);
    EXPECT_CONTAINS("of user 65534, who is neither root nor this user",
                    resultOf([] {
                        postCommand(kSocket, {KV_CMD_UPDATE_DEVICE_INFO, {}}, kPatience);
                    }).meaning);
    const AnsweringDaemon daemon;
    EXPECT_EQ(postCommand(kSocket, {KV_CMD_UPDATE_DEVICE_INFO, {}}, kPatience).verdict, Verdict::Accepted);
}

TEST(CommandServer, SurvivesSilentAndMalformedClients) {
    const AnsweringDaemon daemon;
    std::vector<FileDescriptor> silent;
    for (int i = 0; i < 20; ++i)
        silent.push_back(rawSocket(connect));
    const Bytes longer = fromHex("00000066 00000006 02005E000200 00"), shorter = prefix(longer, 13);
    for (Bytes message : {shorter, longer, Bytes(8000, 0xFF)}) {
        const FileDescriptor client = rawSocket(connect);
        EXPECT_GT(send(client.get(), message.data(), message.size(), 0), 0);
        takeFrame(client, message);
        EXPECT_EQ(parseReply(message)->verdict, Verdict::Malformed);
    }
    EXPECT_TRUE(received(1).empty());
    EXPECT_EQ(postCommand(kSocket, {KV_CMD_UPDATE_DEVICE_INFO, {}}, kPatience).verdict, Verdict::Accepted);
    char byte = 0;
    const auto ended = [&](const FileDescriptor &fd) { return recv(fd.get(), &byte, 1, MSG_DONTWAIT) == 0; };
    EXPECT_GE(std::count_if(silent.begin(), silent.end(), ended), 12) << "the oldest are closed";
}

TEST(ResultFile, AcceptsOneCompleteLine) {
    const std::pair<const char *, int> rows[] = {{"00\n", 0}, {"10\n", 16}, {"", -1},      {"00", -1},
                                                 {"0\n", -1}, {"0g\n", -1}, {"000\n", -1}, {"00\n\n", -1}};
    for (const auto &[text, value] : rows) {
        std::ofstream(kResultFile) << text;
        const ResultFile fresh(kResultFile, Duration(0));
        EXPECT_EQ(fresh.read(), std::nullopt) << "left from before: " << text;
        std::ofstream(kResultFile) << text;
        EXPECT_EQ(fresh.await(Duration(0)), value < 0 ? std::nullopt : std::optional<uint8_t>(value)) << text;
        EXPECT_EQ(resultOf([] { ResultFile second(kResultFile, Duration(0)); }).status, Status::NoAnswer);
    }
}

// Returns the result of a line as it is typed, T being the AL MAC of device 2.
CommandResult outcomeOf(const std::string &line, Duration timeout) {
    std::istringstream in(line);
    std::vector<std::string> words(std::istream_iterator<std::string>(in), {});
    std::replace(words.begin(), words.end(), std::string("T"), mac(2).text());
    const auto command = std::find_if(std::begin(kToolCommands), std::end(kToolCommands),
                                      [&](const ToolCommand &each) { return each.name == words[0]; });
    words.erase(words.begin());
    try {
        Network none("/tmp/none");
        return runCommand(*command, checkArguments(*command, words, none),
                          {kPlugin, kSocket, kResultFile, timeout, true});
    } catch (const std::exception &error) {
        return failureOf(error);
    }
}

TEST(RunCommand, ReturnsStatusAndMeaning) {
    const struct {
        std::string line;
        const char *answer;  // result that the daemon's plug-in writes; empty: none
        Status status;
        const char *meaning;  // part of it
        const char *posted;   // first bytes that the daemon receives, in hex; empty: none
        CommandEffect effect = {1};
    } rows[] = {
        {"reboot T", "07\n", Status::Refused, "not this device's AL MAC", "02005E000200"},
        {"command T 99 -l", "00\n", Status::Success, "success", "02005E000200 0200 0500 3939202D6C00"},
        {"reboot T", "", Status::NoAnswer, "no answer", "02005E000200"},
        {"command T 99 " + std::string(2049, 'w'), "", Status::BadArguments, "2048 characters", ""},
        {"led 02:00:5e:00:01:00 off", "", Status::Success, "recorded for this device", "02005E000100 0000"},
        {"led 00:00:00:00:00:00 1", "", Status::BadArguments, "nothing was sent", "000000000000 0100"},
        {"query-power T", "024EA7 02005E000200 0001 0003 0010 02005E000200 01 02005E000220 0103 02", Status::Success,
         "02:00:5e:00:02:20  2.4GHz  0103        off\n", "02005E000200"},
        {"reboot T", "", Status::Failure, "nothing was sent: it fits no message", "02005E000200", {0}},
        {"rssi T T", "", Status::NoDevice, "sent without values", "02005E000200", {1, 1}},
        {"firmware T 1 1 " + std::string(1024, 'u'), "", Status::BadArguments, "URL must be at most 1023", ""},
    };
    for (const auto &row : rows) {
        const AnsweringDaemon daemon(row.answer, row.effect);
        const Bytes expected = fromHex(row.posted);
        const CommandResult outcome = outcomeOf(row.line, *row.answer != '\0' ? kPatience : Duration(100));
        EXPECT_EQ(outcome.status, row.status) << row.line << ": " << outcome.meaning;
        EXPECT_CONTAINS(row.meaning, outcome.meaning + outcome.text);
        EXPECT_EQ(received(std::max<size_t>(expected.size(), 1)), expected) << row.line;
    }
    EXPECT_EQ(outcomeOf("reboot T", kPatience).status, Status::NoDaemon);
    CommandActions ready;
    ready.run = [](uint32_t, void *buffer) {
        const auto *bytes = static_cast<const uint8_t *>(buffer);
        EXPECT_EQ(std::count(bytes + 2, bytes + kMaxCommandSize + 1, 0), kMaxCommandSize - 1) << "zeros follow a post";
        return CommandEffect{1};
    };
    const Reply reply = handlePost(encodePost({KV_CMD_FW_CTRL, Bytes(2059)}), ready);
    EXPECT_EQ(reply.verdict, Verdict::ShortBuffer);
    EXPECT_EQ(reply.needed, sizeof(KvFWCtrlReq));
    const CommandServer hung(kSocket);  // accepts nothing
    EXPECT_EQ(outcomeOf("rssi T T", Duration(100)).status, Status::NoAnswer);
}

}  // namespace
}  // namespace kv1905d
