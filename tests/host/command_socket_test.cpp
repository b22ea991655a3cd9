#include "command_socket.h"

#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <atomic>
#include <fstream>

#include "command_support.h"

namespace kv1905d {
namespace {

constexpr Time kPatience{5000};

TEST(CommandMessages, RoundTripAndNothingShorterOrLonger) {
    const Bytes buffer = fromHex("02 00 5E 00 02 00");
    const Bytes post = encodePost({KV_CMD_REBOOT, buffer});
    EXPECT_EQ(post, fromHex("00000066 00000006 02005E000200"));
    ASSERT_TRUE(parsePost(post));
    EXPECT_EQ(parsePost(post)->code, 102u);
    EXPECT_TRUE(std::ranges::equal(parsePost(post)->buffer, buffer));
    const Bytes reply = encodeReply({Verdict::ShortBuffer, 2060});
    EXPECT_EQ(parseReply(reply)->verdict, Verdict::ShortBuffer);
    EXPECT_EQ(parseReply(reply)->needed, 2060u);
    for (size_t size = 0; size < post.size(); ++size)
        EXPECT_FALSE(parsePost(prefix(post, size))) << size;
    for (size_t size = 0; size < reply.size(); ++size)
        EXPECT_FALSE(parseReply(prefix(reply, size))) << size;

    for (const char *bad :
         {"00000066 00000006 02005E00020000", "00000066 00000005 02005E000200", "00000066 FFFFFFFF 02005E000200"})
        EXPECT_FALSE(parsePost(fromHex(bad))) << bad;
    for (const char *bad : {"00000000 00000000 00", "0000000A 00000000", "FFFFFFFF 00000000"})
        EXPECT_FALSE(parseReply(fromHex(bad))) << bad;
    EXPECT_TRUE(parsePost(encodePost({1, Bytes(kMaxCommandSize)})));
    Bytes tooLong = encodePost({1, Bytes(kMaxCommandSize)});
    tooLong[7] = 1;  // 0x1001 bytes, as many as there are
    tooLong.push_back(0);
    EXPECT_FALSE(parsePost(tooLong));
}

TEST(HandlePost, VerdictBeforeThePluginSeesACommand) {
    const MacAddress zero{};
    const struct {
        uint32_t code;
        MacAddress target;
        size_t size;
        Verdict verdict;
        bool runs;
    } rows[] = {
        {KV_CMD_REBOOT, mac(2), 6, Verdict::Accepted, true},
        {KV_CMD_REBOOT, mac(1), 6, Verdict::LocalTarget, true},
        {KV_CMD_REBOOT, mac(3), 6, Verdict::UnknownTarget, true},  // the plug-in logs it
        {KV_CMD_REBOOT, zero, 6, Verdict::UnknownTarget, true},
        {KV_CMD_LED_CTRL, zero, 8, Verdict::NoTarget, true},
        {KV_CMD_LED_CTRL, mac(3), 8, Verdict::UnknownTarget, true},
        {KV_CMD_FW_RESULT, mac(3), 8, Verdict::Accepted, true},
        {KV_CMD_UPDATE_DEVICE_INFO, zero, 0, Verdict::Accepted, true},
        {204, mac(3), 3, Verdict::Accepted, true},
        {KV_CMD_FW_CTRL, mac(2), 2059, Verdict::ShortBuffer, false},
        {KV_CMD_COMMAND, mac(2), 2057, Verdict::ShortBuffer, false},
        {KV_CMD_INTF_PWR_CTRL, mac(2), 251, Verdict::ShortBuffer, false},
        {KV_CMD_LED_CTRL, mac(2), 7, Verdict::ShortBuffer, false},
        {KV_CMD_RESET_DEFAULT, mac(2), 5, Verdict::ShortBuffer, false},
        {KV_CMD_FW_RESULT, mac(2), 7, Verdict::ShortBuffer, false},
        {KV_CMD_LOG_SETTING, mac(2), 11, Verdict::ShortBuffer, false},
        {KV_CMD_SYNC_CTRL_PWD, mac(2), 0, Verdict::ShortBuffer, false},
        {KV_CMD_SYNC_COUNTRY_BCN_REQ, mac(2), 5, Verdict::ShortBuffer, false},
        {KV_CMD_COUNTRY_IN_BCN, mac(2), 10, Verdict::ShortBuffer, false},
        {kCommandRssi, mac(2), 12, Verdict::Accepted, true},
        {kCommandRssi, mac(2), 11, Verdict::ShortBuffer, false},
        {kCommandRssi, mac(3), 12, Verdict::UnknownTarget, false},
        {kCommandQueryStations, mac(2), 6, Verdict::Accepted, true},
        {kCommandQueryStations, mac(1), 6, Verdict::LocalTarget, false},  // would enter its own list a second time
        {kCommandQueryStations, zero, 6, Verdict::UnknownTarget, false},
    };
    for (const auto &row : rows) {
        const Bytes buffer = bufferFor(row.target, row.size);
        Bytes seen;
        const CommandActions actions = actionsOfTwo([&](uint32_t code, void *copy) {
            EXPECT_EQ(code, row.code);
            EXPECT_EQ(reinterpret_cast<uintptr_t>(copy) % alignof(std::max_align_t), 0u);
            const auto *bytes = static_cast<const uint8_t *>(copy);
            seen.assign(bytes, bytes + kMaxCommandSize + 1);
        });
        EXPECT_EQ(handlePost(encodePost({row.code, buffer}), actions).verdict, row.verdict) << row.code;
        Bytes padded = row.runs ? buffer : Bytes();
        padded.resize(row.runs ? kMaxCommandSize + 1 : 0);
        EXPECT_EQ(seen, padded) << row.code;
    }
    EXPECT_EQ(handlePost(encodePost({KV_CMD_REBOOT, Bytes(6)}), {}).verdict, Verdict::NoPlugin);
}

TEST(HandlePost, VerdictOnWhatACommandDid) {
    const struct {
        uint32_t code;
        Effect effect;
        Verdict verdict;
    } rows[] = {
        {KV_CMD_REBOOT, {0}, Verdict::NothingSent},
        {KV_CMD_FW_RESULT, {0}, Verdict::Accepted},
        {kCommandRssi, {1, 1}, Verdict::UnknownStation},
        {kCommandRssi, {1, KV_RET_ERR}, Verdict::UnknownStation},  // there are no stations at all
        {kCommandRssi, {0, KV_RET_ERR}, Verdict::NothingSent},
    };
    for (const auto &row : rows) {
        const CommandActions actions = actionsOfTwo([](uint32_t, void *) {}, row.effect);
        EXPECT_EQ(handlePost(encodePost({row.code, bufferFor(mac(2), 12)}), actions).verdict, row.verdict) << row.code;
    }
}

bool exists(const char *path) {
    return access(path, F_OK) == 0;
}

TEST(CommandServer, TakesThePlaceOfADeadDaemonButOfNobodyElse) {
    {
        const ServedSocket live(actionsOfTwo([](uint32_t, void *) {}));
        struct stat facts {};
        ASSERT_EQ(stat(kTestSocket, &facts), 0);
        EXPECT_EQ(facts.st_mode & 0777, 0600u);
        EXPECT_NE(errorOf([] { CommandServer second(kTestSocket); }).find("another daemon"), std::string::npos);
        EXPECT_EQ(postCommand(kTestSocket, {KV_CMD_REBOOT, bufferFor(mac(2), 6)}, kPatience).verdict,
                  Verdict::Accepted);
    }
    EXPECT_FALSE(exists(kTestSocket));
    // A daemon that was killed leaves its file.
    const FileDescriptor dead(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    sockaddr_un address{AF_UNIX, {}};
    std::copy_n(kTestSocket, std::string_view(kTestSocket).size(), address.sun_path);
    ASSERT_EQ(bind(dead.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    { const CommandServer successor(kTestSocket); }
    EXPECT_FALSE(exists(kTestSocket));

    std::ofstream(kTestSocket) << "somebody's file";
    EXPECT_NE(errorOf([] { CommandServer server(kTestSocket); }).find("no socket"), std::string::npos);
    EXPECT_TRUE(exists(kTestSocket));
    unlink(kTestSocket);
    const std::string longName = "/tmp/" + std::string(120, 'x');
    EXPECT_NE(errorOf([&] { CommandServer server(longName); }).find(longName), std::string::npos);
}

FileDescriptor rawClient() {
    FileDescriptor fd(socket(AF_UNIX, SOCK_SEQPACKET, 0));
    sockaddr_un address{AF_UNIX, {}};
    std::copy_n(kTestSocket, std::string_view(kTestSocket).size(), address.sun_path);
    EXPECT_EQ(connect(fd.get(), reinterpret_cast<sockaddr *>(&address), sizeof address), 0);
    return fd;
}

TEST(CommandServer, OutlivesClientsThatAreSilentOrTalkNonsense) {
    std::atomic<int> runs = 0;
    const ServedSocket served(actionsOfTwo([&](uint32_t, void *) { ++runs; }));
    std::vector<FileDescriptor> silent;
    for (int i = 0; i < 20; ++i)
        silent.push_back(rawClient());
    for (const size_t size : {size_t{1}, size_t{8000}}) {
        const FileDescriptor client = rawClient();
        const Bytes nonsense(size, 0xFF);
        ASSERT_EQ(send(client.get(), nonsense.data(), size, 0), static_cast<ssize_t>(size));
        Bytes answer(16);
        answer.resize(static_cast<size_t>(recv(client.get(), answer.data(), answer.size(), 0)));
        EXPECT_EQ(parseReply(answer)->verdict, Verdict::Malformed) << size;
    }
    EXPECT_EQ(runs, 0);
    EXPECT_EQ(postCommand(kTestSocket, {KV_CMD_UPDATE_DEVICE_INFO, {}}, kPatience).verdict, Verdict::Accepted);
    EXPECT_EQ(runs, 1);
}

}  // namespace
}  // namespace kv1905d
