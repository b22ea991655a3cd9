// The daemon: its options, its guard, its calls from a plug-in, and the whole daemon at one end of a cable.
#include "daemon/daemon.h"

#include <json-c/json.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <set>
#include <thread>

#include "command/client.h"
#include "host_support.h"
#include "protocol/message_row.h"
#include "support/json.h"

namespace kv1905d {
namespace {

// The options of a daemon on `lo`.
std::optional<Options> daemonOptions(std::vector<const char *> arguments) {
    arguments.insert(arguments.begin(), {"kv1905d", "-i", "lo"});
    return parseOptions(static_cast<int>(arguments.size()), arguments.data());
}

TEST(Options, AcceptsValuesAndReportsBadOnes) {
    EXPECT_EQ(daemonOptions({})->alMac, (MacAddress{{0x02, 0, 0, 0, 0, 0}}));  // of lo's all-zero MAC
    const auto full = daemonOptions({"--al-mac", "02:00:5E:00:01:00", "--radio", "wl0,02:00:5e:00:01:20,0x0103",
                                     "--radio", "wl1,02:00:5e:00:01:21,261"});
    EXPECT_EQ(full->alMac, mac(1));
    EXPECT_EQ(full->radios.at(1).facts.mediaType, 0x0105);
    for (const std::string row : {"-i no-such-if", "--al-mac 01:00:5e:00:01:00", "--radio wl0,02:00:5e:00:01:20,0x0001",
                                  "--radio wl0,02:00:5e:00:01:20,0x103x", "--discovery-interval 0",
                                  "--settings-from others", "--config /no/such/file"}) {
        const std::string option = row.substr(0, row.find(' ')), value = row.substr(option.size() + 1);
        const std::string text = resultOf([&] { daemonOptions({option.c_str(), value.c_str()}); }).meaning;
        EXPECT_CONTAINS(value, text);
    }
    constexpr const char *kFile = "/tmp/kv1905d.conf";
    std::ofstream(kFile) << "# comment\nquery-interval = 30\ndiscovery-interval=10\ntrace\nno-plugin\n";
    const auto merged = daemonOptions({"--discovery-interval", "20", "--plugin", "own.so", "--config", kFile});
    EXPECT_TRUE(merged->trace && merged->queryInterval == 30 && merged->discoveryInterval == 20);
    EXPECT_EQ(merged->plugin, "own.so");
    std::ofstream(kFile) << "\nbridges = br0\n";
    const std::string text = resultOf([&] { daemonOptions({"--config", kFile}); }).meaning;
    EXPECT_CONTAINS("kv1905d.conf:2: unknown option 'bridges'", text);
}

constexpr TimePoint kNow{Duration(5000)};
const MacAddress kSelf = mac(1), kController = mac(2), kUnknown = mac(3);

class SettingsGuardTest : public testing::Test {
  protected:
    static Bytes message(unsigned type, const MacAddress &subject = kSelf) {
        // The envelope proves nothing about its sender.
        Bytes bytes = fromHex("024EA7 02005E000200 0001 00 00 0006");
        bytes[12] = static_cast<uint8_t>(type);
        bytes.insert(bytes.end(), subject.bytes.begin(), subject.bytes.end());
        return bytes;
    }
    bool admits(SettingsGuard &guard, const MacAddress &source, const Bytes &value,
                const std::optional<MacAddress> &controller = kController, TimePoint now = kNow,
                uint16_t msgId = 0) const {
        return guard.admits({source, "eth0", value, msgId}, readVendorMessage(value), controller, topology_, now);
    }
    uint32_t &stationsOf(const MacAddress &alMac) {
        return topology_.update({{alMac, {}}, {}, {}}, kNow)->vendor.data()->wifiNbrNum;
    }

    Topology topology_{kSelf, kNow};
    SettingsGuard any_{SettingsFrom::Any}, strict_{SettingsFrom::Controller};
};

TEST_F(SettingsGuardTest, RejectsSettingsFromOthersAndTypesWithoutRule) {
    const std::set<unsigned> changing{4, 6, 20, 22, 25, 26, 33, 34, 69, 77};
    const std::set<unsigned> results{5, 7, 21, 23, 27, 32, 35};
    const std::tuple<MacAddress, std::optional<MacAddress>, bool> rows[] = {
        // source, controller, whether it may
        {kController, kController, true}, {kUnknown, kController, false},
        {kSelf, kController, true},       {kController, std::nullopt, false},  // not found yet
        {kController, kSelf, false},      {kSelf, kSelf, true},                // at the controller itself
    };
    uint64_t refused = 0;
    for (const auto &[source, controller, may] : rows) {
        for (unsigned type = 0; type < 256; ++type) {
            const kv::MessageRow *row = kv::findMessageRow(static_cast<uint16_t>(type));
            const bool isSound =
                source == kSelf || (row != nullptr && row->handle != nullptr && !results.contains(type));
            const bool admitted = isSound && (may || !changing.contains(type));
            EXPECT_EQ(admits(strict_, source, message(type, kUnknown), controller), admitted) << type;
            EXPECT_EQ(admits(any_, source, message(type, kUnknown), controller), isSound) << type;
            refused += !admitted;
        }
        EXPECT_EQ(admits(any_, source, message(1), controller), source == kSelf);
    }
    EXPECT_EQ(strict_.refused(), refused);
}

TEST_F(SettingsGuardTest, AdmitsOneResultPerCommand) {
    any_.sent(kUnknown, 7, readVendorMessage(message(33)), kNow);
    any_.sent(kUnknown, 8, readVendorMessage(message(0)), kNow);  // no command
    any_.sent(kUnknown, 9, readVendorMessage(message(4)), kNow - SettingsGuard::kResultWait);
    const std::tuple<MacAddress, uint16_t, bool> rows[] = {{kController, 7, false}, {kUnknown, 6, false},
                                                           {kUnknown, 8, false},    {kUnknown, 9, false},
                                                           {kUnknown, 7, true},     {kUnknown, 7, false}};
    for (const auto &[source, msgId, admitted] : rows)
        EXPECT_EQ(admits(any_, source, message(35), kController, kNow, msgId), admitted) << msgId;
}

TEST_F(SettingsGuardTest, LimitsTimePerSource) {
    constexpr Duration kCost{10};
    int admitted = 0;
    for (TimePoint at = kNow; at < kNow + Duration(8000); at += Duration(10)) {
        for (const unsigned type : {70u, 77u, 4u, 1u}) {
            if (!admits(any_, kUnknown, message(type, kController), kController, at)) continue;
            any_.charge(kCost, at);
            ++admitted;
        }
    }
    EXPECT_NEAR(admitted, 100 + 800 / 4, 5);
    EXPECT_TRUE(admits(any_, kController, message(70), kController, kNow + Duration(8000)));
    EXPECT_TRUE(admits(any_, kUnknown, message(36, kUnknown), kController, kNow)) << "costs next to nothing";
}

TEST_F(SettingsGuardTest, LimitsStationsPerReporter) {
    constexpr uint32_t kMost = SettingsGuard::kMaxStations;
    topology_.local().vendor.data()->wifiNbrNum = kMost;  // the driver's own list does not count
    const std::tuple<uint32_t, uint32_t, MacAddress, bool> rows[] = {
        // stations of the controller and the unknown device, which reports more; whether it is admitted
        {30, kMost - 31, kUnknown, true},
        {30, kMost - 30, kUnknown, false},
        {30, kMost - 30, kController, true},
        {kMost / 2 - 1, kMost - 30, kController, true},
        {kMost / 2, kMost - 30, kController, false},
        {30, kMost - 30, mac(9) /* unknown */, false},
    };
    for (const auto &[few, many, source, admitted] : rows) {
        stationsOf(kController) = few;
        stationsOf(kUnknown) = many;
        for (const unsigned type : {9u, 36u})
            EXPECT_EQ(admits(any_, source, message(type, source)), admitted) << few << ", " << many;
    }
}

TEST(DataModelWriter, SpacesWritesByReasonAndCost) {
    using enum DataModelWriter::Reason;
    TimePoint now = kNow;
    int writes = 0;
    Duration took{0};
    DataModelWriter writer([&] { return now; },
                           [&] {
                               now += took;
                               if (++writes == 2) throw std::runtime_error("disk full");
                           });
    EXPECT_EQ(writer.request(Report), KV_RET_OK);
    EXPECT_EQ(writer.run(), TimePoint::max()) << "nothing requested since";
    EXPECT_EQ(writer.request(Report), KV_RET_OK);
    EXPECT_EQ(writer.run(), kNow + DataModelWriter::kReportSpacing);
    EXPECT_EQ(writer.request(Change), KV_RET_OK);
    EXPECT_EQ(writer.request(Report), KV_RET_OK);
    EXPECT_EQ(writer.run(), kNow + DataModelWriter::kChangeSpacing);
    now = kNow + DataModelWriter::kChangeSpacing;
    took = Duration(2000);
    EXPECT_EQ(writer.run(), TimePoint::max());
    EXPECT_EQ(writer.request(Change), KV_RET_ERR);
    EXPECT_EQ(writes, 2);
    EXPECT_EQ(writer.run(), kNow + DataModelWriter::kChangeSpacing + 5 * took);
}

TEST(AgentPolling, QueriesNewDevicesAtOnceAndOthersByInterval) {
    constexpr Duration kRound{60000};
    bool isController = false;
    int queries = 0;
    AgentPolling polling(
        kRound, 1, {[&] { return isController; }, [&](const MacAddress &alMac) { queries += alMac == kUnknown; }});
    Topology topology(kSelf, kNow);
    topology.update({{kUnknown, {}}, {}, {}}, kNow);
    const auto queriesAt = [&](TimePoint now) {
        queries = 0;
        polling.run(topology, now);
        return queries;
    };
    polling.responded(kUnknown, kNow);
    EXPECT_EQ(queries, 0) << "an agent sends no query";
    EXPECT_EQ(queriesAt(kNow), 0);
    isController = true;
    polling.responded(kUnknown, kNow);
    EXPECT_EQ(queries, 1) << "a new device";
    polling.notified(kUnknown);
    polling.responded(kUnknown, kNow);
    EXPECT_EQ(queries, 2) << "a changed one";
    EXPECT_EQ(queriesAt(kNow + kRound * 5 / 6 - Duration(1)), 0);
    topology.find(kUnknown)->sentVendorMessage = true;
    EXPECT_EQ(queriesAt(kNow + kRound), 1);
    topology.find(kUnknown)->sentVendorMessage = false;
    int total = 0;
    for (unsigned round = 2; round < 2 + 2 * AgentPolling::kSilentAgentRounds; ++round)
        total += queriesAt(kNow + round * kRound);
    EXPECT_EQ(total, 2);
}

constexpr const char *kModelFile = "/tmp/daemon_test.json";
constexpr Duration kDaemonPatience{20000};

std::string textAt(const char *path) {
    const support::JsonPtr root(json_object_from_file(kModelFile));
    json_object *value = nullptr;
    return json_pointer_get(root.get(), path, &value) == 0 ? json_object_get_string(value) : "";
}

// Ends at SIGTERM.
pid_t startDaemon() {
    Options options =
        *daemonOptions({"--al-mac", "02:00:5e:00:01:00", "--plugin", kPlugin, "--data-model", kModelFile});
    options.interfaces = {"cable0"};
    const pid_t child = fork();
    if (child != 0) return child;
    _exit(static_cast<int>(resultOf([&] { Daemon(options).run(); }).status));
}

TEST(Daemon, ReopensAReplacedInterface) {
    const char *const cable = "ip link add cable0 up type veth peer name cable1 && ip link set cable1 up";
    ASSERT_EQ(std::system(cable), 0);
    FileDescriptor fd = openPort("cable1");
    const auto send = [&](const Message &message) {
        Bytes frame = fromHex("0180C2000013 02005E000200 893A");
        for (const Bytes &payload : encodeMessage(message))
            frame.insert(frame.end(), payload.begin(), payload.end());
        EXPECT_EQ(write(fd.get(), frame.data(), frame.size()), static_cast<ssize_t>(frame.size()));
    };
    Bytes frame;
    const pid_t child = startDaemon();
    const auto await = [&](const char *path, const std::string &text, const Message *repeated) {
        for (const TimePoint deadline = EventLoop::now() + kDaemonPatience;
             EventLoop::now() < deadline && textAt(path) != text;) {
            if (repeated != nullptr) send(*repeated);
            std::this_thread::sleep_for(Duration(5));
        }
        EXPECT_EQ(textAt(path), text) << path;
    };
    const Message hello{kTopologyResponse, 1, false, topologyReportTlvs({{mac(2), {}}, {}, {}})};
    await("/kv1905/NumberOfDevices", "2", &hello);

    // For an unknown station, the neighbour receives a report without rates.
    const auto isSent = [&](const std::string &part) {  // within a second and a half
        for (const TimePoint end = EventLoop::now() + Duration(1500); EventLoop::now() < end;
             std::this_thread::sleep_for(Duration(5)))
            while (takeFrame(fd, frame))
                if (contains(frame, part)) return true;
        return false;
    };
    const Bytes rssi = fromHex("02005E000200 02005E0A0102");
    EXPECT_EQ(postCommand(usualSocketPath(), {kCommandRssi, rssi}, kDaemonPatience).verdict, Verdict::UnknownStation);
    EXPECT_TRUE(isSent("02005E0A0102 0000 0000 0000 A6 00 64 0000"));

    // A lost link removes its neighbours; the device announces itself on a new link at once.
    const Message discovery{kTopologyDiscovery, 2, false, {macTlv(kTlvAlMac, mac(2)), macTlv(kTlvMacAddress, mac(2))}};
    await("/kv1905/DeviceList/0/NeighborList/0/ID", mac(2).text(), &discovery);
    EXPECT_EQ(std::system("ip link set cable0 down"), 0);
    await("/kv1905/DeviceList/0/NeighborList/0/ID", "", nullptr);
    EXPECT_EQ(std::system("ip link set cable0 up"), 0);
    EXPECT_TRUE(isSent("893A 00 00 0000")) << "a topology discovery";

    // Another interface of the same name is used, also with the same index, and another MAC announced.
    for (const bool hasSameIndex : {false, true}) {
        const std::string index = hasSameIndex ? " index " + std::to_string(interfaceIndex("cable0")) : "";
        const std::string replace = "ip link del cable0 && ip link add cable0" + index +
                                    " type veth peer name cable1 && "
                                    "ip link set cable0 address 02:00:5e:00:01:07 up && ip link set cable1 up";
        EXPECT_EQ(std::system(replace.c_str()), 0);
        fd = openPort("cable1");
        EXPECT_TRUE(isSent("02 0006 02005E000107")) << index;
    }
    await("/kv1905/DeviceList/0/NeighborList/0/Interface", "02:00:5e:00:01:07", &discovery);
    EXPECT_EQ(std::system("ip link set cable0 address 02:00:5e:00:01:08"), 0);
    EXPECT_TRUE(isSent("02 0006 02005E000108"));
    int status = 0;
    kill(child, SIGINT);
    EXPECT_EQ(waitpid(child, &status, 0), child);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(std::system("ip link del cable0"), 0);
}

}  // namespace
}  // namespace kv1905d
