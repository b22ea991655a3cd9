#include "data_model_file.h"

#include <gtest/gtest.h>
#include <json-c/json.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "host_support.h"

namespace kv1905d {
namespace {

using JsonPointer = std::unique_ptr<json_object, decltype(&json_object_put)>;

// Walks "a/0/b"; null when there is no such value.
json_object *at(const JsonPointer &root, const std::string &path) {
    json_object *value = nullptr;
    return json_pointer_get(root.get(), path.c_str(), &value) == 0 ? value : nullptr;
}

std::string textAt(const JsonPointer &root, const std::string &path) {
    json_object *value = at(root, path);
    return value == nullptr ? "(absent)" : json_object_get_string(value);
}

constexpr const char *kNetwork = "/wfa-dataelements:Network";

class DataModel : public testing::Test {
  protected:
    JsonPointer build() {
        const std::string text = dataModelJson({topology_, counters_, "Controller", networks_, Time(9000), 1700000000});
        JsonPointer root(json_tokener_parse(text.c_str()), json_object_put);
        EXPECT_NE(root, nullptr) << text;
        return root;
    }
    Device &addRemote(uint8_t device) {
        TopologyReport report;
        report.device = {mac(device), {{mac(device, 0x20), 0x0105, fromHex("02005E00F00100000000")}}};
        return *topology_.update(report, Time(1000));
    }

    Topology topology_{mac(1), Time(0)};
    Counters counters_;
    MainNetworks networks_{{"home", "home 5G"}, {mac(0xF0), MacAddress{}}};
};

TEST_F(DataModel, ListsAreListsAndAgreeWithTheirCounts) {
    topology_.setInterfaces(topology_.local(),
                            {{mac(1, 0x10), 0x0001, {}}, {mac(1, 0x20), 0x0103, {}}, {mac(1, 0x21), 0x0105, {}}});
    WIFINeighborEntry far{};
    far.Band = 6;
    WIFINeighborEntry near{};
    near.next = &far;
    near.Band = 1;
    near.RSSI = -61;
    near.tx_rate = 144;
    topology_.local().vendor.data()->wifiNbrHead = &near;

    const std::string device = std::string(kNetwork) + "/DeviceList/0";
    for (const size_t remotes : {0u, 1u, 2u}) {
        if (remotes > 0) addRemote(static_cast<uint8_t>(1 + remotes));
        const JsonPointer root = build();
        const struct {
            std::string list, count;
            size_t size;
        } rows[] = {
            {std::string(kNetwork) + "/DeviceList", std::string(kNetwork) + "/NumberOfDevices", 1 + remotes},
            {"/kv1905/DeviceList", "/kv1905/NumberOfDevices", 1 + remotes},
            {device + "/RadioList", device + "/NumberOfRadios", 2},  // the Ethernet interface is none
            {device + "/RadioList/0/BSSList", device + "/RadioList/0/NumberOfBSS", 1},
            {device + "/RadioList/1/BSSList", device + "/RadioList/1/NumberOfBSS", 0},  // no BSSID is known
            {device + "/RadioList/0/BSSList/0/STAList", device + "/RadioList/0/BSSList/0/NumberOfSTA", 1},
        };
        for (const auto &row : rows) {
            ASSERT_TRUE(json_object_is_type(at(root, row.list), json_type_array)) << row.list;
            EXPECT_EQ(json_object_array_length(at(root, row.list)), row.size) << row.list;
            EXPECT_EQ(textAt(root, row.count), std::to_string(row.size)) << row.count;
        }
        EXPECT_EQ(textAt(root, device + "/RadioList/0/BSSList/0/SSID"), "home");
        const std::string station = device + "/RadioList/0/BSSList/0/STAList/0";
        EXPECT_EQ(textAt(root, station + "/SignalStrength"), "98");
        EXPECT_EQ(textAt(root, station + "/LastDataDownlinkRate"), "144000");
        EXPECT_EQ(textAt(root, station + "/TimeStamp"), "2023-11-14T22:13:20Z");
    }
}

TEST_F(DataModel, ValuesOfARemoteDevice) {
    Device &remote = addRemote(2);
    KvDevVendorData &record = *remote.vendor.data();
    std::strcpy(record.protoVersion, "3.0");
    std::strcpy(record.ipAddr, "192.168.1.2");
    std::memset(record.modelName, 'm', sizeof record.modelName);  // no NUL: the field's end must stop the reader
    std::memcpy(record.ledStatus, "O\xFFN\"\n", 6);
    record.rebootFromNbrCap = 1;
    record.fwUpgradeStatus = 200;
    record.uptimeRecvTime = 1;
    counters_.duplicatesDropped = 3;
    const JsonPointer root = build();
    const struct {
        const char *path, *value;
    } rows[] = {
        {"/kv1905/Role", "Controller"},
        {"/kv1905/Counters/DuplicatesDropped", "3"},
        {"/kv1905/DeviceList/0/SpeaksProtocol", "false"},
        {"/kv1905/DeviceList/0/Hops", "0"},
        {"/kv1905/DeviceList/1/ID", "02:00:5e:00:02:00"},
        {"/kv1905/DeviceList/1/SpeaksProtocol", "true"},
        {"/kv1905/DeviceList/1/SecondsSinceHeard", "8"},
        {"/kv1905/DeviceList/1/ProtocolVersion", "3.0"},
        {"/kv1905/DeviceList/1/IpAddress", "192.168.1.2"},
        {"/kv1905/DeviceList/1/LedStatus", "O\xEF\xBF\xBDN\"\n"},
        {"/kv1905/DeviceList/1/RebootAllowed", "true"},
        {"/kv1905/DeviceList/1/FirmwareUpgradeStatus", "200"},
        {"/kv1905/DeviceList/1/UptimeReceived", "1970-01-01T00:00:01Z"},
        {"/wfa-dataelements:Network/ID", "02:00:5e:00:01:00"},
        {"/wfa-dataelements:Network/DeviceList/1/RadioList/0/BSSList/0/BSSID", "02:00:5e:00:f0:01"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(textAt(root, row.path), row.value) << row.path;
    EXPECT_EQ(textAt(root, "/kv1905/DeviceList/1/ModelName").size(), sizeof record.modelName);
}

TEST(ValidUtf8, ReplacesWhatIsNoCharacter) {
    const std::string bad = "\xEF\xBF\xBD";
    const struct {
        std::string in, out;
    } rows[] = {
        {"", ""},
        {"plain", "plain"},
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\x80z", "a" + bad + "z"},
        {"\xC3", bad},  // cut short
        {"\xE2\x82", bad + bad},
        {"\xC0\xAF", bad + bad},  // overlong
        {"\xE0\x80\x80", bad + bad + bad},
        {"\xED\xA0\x80", bad + bad + bad},  // surrogate
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},
    };
    for (const auto &row : rows)
        EXPECT_EQ(validUtf8(row.in), row.out);
}

TEST(ReplaceFile, ReplacesInOneStepAndNamesWhatFails) {
    namespace fs = std::filesystem;
    std::string pattern = (fs::temp_directory_path() / "kv1905.XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    const fs::path directory = pattern;
    const fs::path file = directory / "model.json";
    const auto content = [&] {
        std::ifstream in(file);
        return std::string(std::istreambuf_iterator<char>(in), {});
    };
    replaceFile(file, "first, and longer");
    std::ifstream old(file);  // a reader that has it open keeps the old text
    replaceFile(file, "second");
    EXPECT_EQ(content(), "second");
    EXPECT_EQ(std::string(std::istreambuf_iterator<char>(old), {}), "first, and longer");
    // A link under the temporary name is not followed.
    fs::create_symlink(directory / "victim", file.string() + ".new");
    replaceFile(file, "third");
    EXPECT_EQ(content(), "third");
    EXPECT_FALSE(fs::exists(directory / "victim"));
    EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 1);
    try {
        replaceFile(directory / "none" / "model.json", "x");
        FAIL() << "written into a directory that does not exist";
    } catch (const std::system_error &error) {
        EXPECT_NE(std::string(error.what()).find("none/model.json"), std::string::npos);
    }
    fs::remove_all(directory);
}

}  // namespace
}  // namespace kv1905d
