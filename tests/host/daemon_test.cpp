// The daemon with the real plug-in in a process of its own; the test is its neighbour at the other end of a cable.
#include "daemon.h"

#include <fcntl.h>
#include <json-c/json.h>
#include <sys/inotify.h>
#include <sys/wait.h>

#include <csignal>
#include <fstream>
#include <thread>

#include "host_support.h"

namespace kv1905d {
namespace {

constexpr const char *kSocket = "/tmp/daemon_test.sock";
constexpr const char *kModel = "/tmp/model/data.json";
constexpr Time kPatience{20000};

Time now() {
    return std::chrono::duration_cast<Time>(std::chrono::steady_clock::now().time_since_epoch());
}

Options daemonOptions() {
    Options options;
    options.alMac = mac(1);
    options.interfaces = {"cable0"};
    options.plugin = "lib/libkvMAP1905.so";  // below the build directory, where the tests run
    options.dataModel = kModel;
    options.socket = kSocket;
    options.discoveryInterval = options.queryInterval = 60;
    return options;
}

// Counts how often a file in that directory was replaced. The kernel merges equal events that follow one another, but
// each replacement begins with a file that is created.
class Replacements {
  public:
    explicit Replacements(const char *directory) : fd_(inotify_init1(IN_NONBLOCK)) {
        EXPECT_GE(inotify_add_watch(fd_.get(), directory, IN_CREATE | IN_MOVED_TO), 0);
    }
    size_t count() const {
        size_t found = 0;
        alignas(inotify_event) char buffer[4096];
        for (ssize_t size; (size = read(fd_.get(), buffer, sizeof buffer)) > 0;) {
            for (const char *at = buffer; at < buffer + size;) {
                const auto *event = reinterpret_cast<const inotify_event *>(at);
                if (event->mask & IN_MOVED_TO) ++found;
                at += sizeof *event + event->len;
            }
        }
        return found;
    }

  private:
    FileDescriptor fd_;
};

class Cable : public testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(std::system("ip link add cable0 type veth peer name cable1 && ip link set cable0 up && "
                              "ip link set cable1 up"),
                  0);
    }
    void TearDown() override { EXPECT_EQ(std::system("ip link del cable0"), 0); }
};

// As many full frames as 2000 stations take, while the receiver is busy.
TEST_F(Cable, ABurstOfFramesWaitsForItsReceiver) {
    const FileDescriptor sender = openPort("cable1", mac(2)), receiver = openPort("cable0", mac(1));
    Bytes frame = fromHex("0180C2000013 02005E000200 893A");
    frame.resize(1400);
    constexpr int kFrames = 150;
    int received = 0;
    for (int i = 0; i < kFrames; ++i)
        ASSERT_EQ(write(sender.get(), frame.data(), frame.size()), static_cast<ssize_t>(frame.size())) << i;
    while (received < kFrames && takeFrame(receiver, frame))
        ++received;
    EXPECT_EQ(received, kFrames);
}

class DaemonTest : public Cable {
  protected:
    void SetUp() override {
        ASSERT_NO_FATAL_FAILURE(Cable::SetUp());
        ASSERT_EQ(std::system("rm -rf /tmp/model && mkdir /tmp/model"), 0);
        std::ofstream("/tmp/assoc_list.24g") << "02:00:5e:0a:01:01 144000 -61 30 0 wl0 1000 2000 144000 65000 8\n";
        child_ = fork();
        if (child_ == 0) runDaemon();
        fd_ = openPort("cable1", mac(2));
        NodeConfig config;
        config.alMac = mac(2);
        config.ports = {{"cable1", mac(2, 0x10), 0x0001, fd_.get()}};
        NodeEvents events;
        events.vendorTlv = [this](const MacAddress &, ByteView value, uint16_t) {
            received_.emplace_back(value.begin(), value.end());
        };
        peer_ = std::make_unique<Node>(config, events, now());
        ASSERT_TRUE(await([&] { return textAt("/kv1905/NumberOfDevices") == "2"; }));
    }
    void TearDown() override {
        if (child_ > 0) {
            int status = 0;
            kill(child_, SIGTERM);
            EXPECT_EQ(waitpid(child_, &status, 0), child_);
            EXPECT_EQ(status, 0);
        }
        unlink("/tmp/assoc_list.24g");
        Cable::TearDown();
    }
    [[noreturn]] static void runDaemon() {
        try {
            Daemon(daemonOptions()).run();
            _exit(0);
        } catch (const std::exception &error) {
            std::fprintf(stderr, "%s\n", error.what());
            _exit(1);
        }
    }

    // Lets the neighbour live until the condition holds.
    template <typename Condition>
    bool await(const Condition &condition) {
        for (const Time deadline = now() + kPatience; now() < deadline;) {
            for (Bytes frame; takeFrame(fd_, frame);)
                peer_->receive(0, frame, now());
            peer_->run(now());
            if (condition()) return true;
            std::this_thread::sleep_for(Time(5));
        }
        return false;
    }
    bool awaitValue(const Bytes &value) {
        return await([&] { return std::find(received_.begin(), received_.end(), value) != received_.end(); });
    }
    std::string textAt(const char *path) const {
        const std::unique_ptr<json_object, decltype(&json_object_put)> root(json_object_from_file(kModel),
                                                                            json_object_put);
        json_object *value = nullptr;
        if (json_pointer_get(root.get(), path, &value) != 0) return "";
        return json_object_get_string(value);
    }
    void send(Reach reach, const Bytes &value) {
        uint16_t id = 0;
        ASSERT_TRUE(peer_->sendVendor(reach, mac(1), value, &id, now()));
    }
    static Verdict post(uint32_t code, const std::string &buffer) {
        return postCommand(kSocket, {code, fromHex(buffer)}, kPatience).verdict;
    }

    pid_t child_ = -1;
    FileDescriptor fd_;
    std::unique_ptr<Node> peer_;
    std::vector<Bytes> received_;  // values of vendor-specific TLVs
};

TEST_F(DaemonTest, SignalsOfItsStationsAreInTheFileAndReachWhoAsksAndWhoIsTold) {
    ASSERT_TRUE(await([&] { return textAt("/kv1905/StationList/0/RSSI") == "-61"; }));
    EXPECT_EQ(textAt("/kv1905/DeviceList/0/WifiNeighborCount"), "1");

    const std::string peer = "02005E000200", known = "02005E0A0101", unknown = "02005E0A0102";
    const std::string notification = "000347 55CDABEF 060A 6A 00 000000000000 00 0000 0000";
    EXPECT_EQ(post(kCommandRssi, peer + known), Verdict::Accepted);
    EXPECT_TRUE(awaitValue(fromHex(notification + known + "0000 028A 05A0 C3 1E 64 0000")));
    EXPECT_EQ(post(kCommandRssi, peer + unknown), Verdict::UnknownStation);
    EXPECT_TRUE(awaitValue(fromHex(notification + unknown + "0000 0000 0000 A6 00 64 0000")));
    EXPECT_EQ(post(kCommandRssi, "02005E000300" + known), Verdict::UnknownTarget);

    const std::string head = "000347 01020304 0506", copied = "112233445566 00 0708 0000";
    send(Reach::Unicast, fromHex(head + "67 00" + copied + known));
    EXPECT_TRUE(awaitValue(fromHex(head + "68 00" + copied + known + "0000 028A 05A0 C3 1E 00 0000")));

    received_.clear();
    EXPECT_EQ(post(kCommandQueryStations, peer), Verdict::Accepted);
    EXPECT_TRUE(awaitValue(fromHex("024EA7 02005E000100 0001 0008 0006" + peer)));
}

// One report a station, as fast as they go: every one asks for the file.
TEST_F(DaemonTest, ABurstOfReportsBecomesFewFilesAndLosesNothing) {
    constexpr unsigned kReports = 200;
    const Replacements replacements("/tmp/model");
    const Time start = now();
    for (unsigned i = 0; i < kReports; ++i) {
        char text[128];
        const int size = std::snprintf(text, sizeof text, "031{0=02:00:5E:0A:02:%02X,3=-45,9=6}", i);
        WireWriter value(256);
        value.bytes(fromHex("024EA7 02005E000200 0001 0024 00"));
        value.u8(static_cast<uint8_t>(size + 8));
        value.bytes(fromHex("02005E000200 00"));
        value.u8(static_cast<uint8_t>(size));
        value.bytes(ByteView(reinterpret_cast<const uint8_t *>(text), static_cast<size_t>(size)));
        send(Reach::Network, value.take());
    }
    EXPECT_TRUE(await([&] { return textAt("/kv1905/DeviceList/1/WifiNeighborCount") == std::to_string(kReports); }));
    const Time took = now() - start;
    EXPECT_LT(took, Time(2500)) << "the plug-in's own next request would come later";
    EXPECT_LE(replacements.count(), static_cast<size_t>(took.count() / 1000 + 2)) << took.count() << " ms";
    EXPECT_EQ(textAt("/kv1905/StationList/200/MACAddress"), "02:00:5e:0a:02:c7");
}

}  // namespace
}  // namespace kv1905d
