#include "data_model_file.h"

#include <json-c/json.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <tuple>

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

class DataModel : public testing::Test {
  protected:
    JsonPointer build() {
        const std::string text =
            dataModelJson({topology_, {}, "Agent", networks_, Time(9000), 1700000000, controller_, 77});
        return {json_tokener_parse(text.c_str()), json_object_put};
    }
    Device &addRemote(unsigned device) {
        TopologyReport report;
        report.device = {mac(device), {{mac(device, 0x20), 0x0105, fromHex("02005E00F00100000000")}}};
        return *topology_.update(report, Time(1000));
    }

    Topology topology_{mac(1), Time(0)};
    MainNetworks networks_{{"home", "home 5G"}, {mac(0xF0), MacAddress{}}};
    std::optional<MacAddress> controller_;
};

TEST_F(DataModel, ListsAreListsAndAgreeWithTheirCounts) {
    topology_.setInterfaces(topology_.local(),
                            {{mac(1, 0x10), 0x0001, {}}, {mac(1, 0x20), 0x0103, {}}, {mac(1, 0x21), 0x0105, {}}});
    WIFINeighborEntry far{}, near{};
    far.Band = 6;
    near.next = &far;
    near.Band = 1;
    near.RSSI = -61;
    topology_.local().vendor.data()->wifiNbrHead = &near;

    const std::string network = "/wfa-dataelements:Network/", radios = network + "DeviceList/0/RadioList";
    const std::string bss = radios + "/0/BSSList/0/";
    for (const unsigned devices : {1u, 2u, 3u}) {
        if (devices > 1) addRemote(devices);
        const JsonPointer root = build();
        const std::tuple<std::string, std::string, size_t> lists[] = {
            {network + "DeviceList", network + "NumberOfDevices", devices},
            {"/kv1905/DeviceList", "/kv1905/NumberOfDevices", devices},
            {radios, network + "DeviceList/0/NumberOfRadios", 2},  // the Ethernet interface is none
            {radios + "/0/BSSList", radios + "/0/NumberOfBSS", 1},
            {radios + "/1/BSSList", radios + "/1/NumberOfBSS", 0},  // no BSSID is known
            {bss + "STAList", bss + "NumberOfSTA", 1},
            {"/kv1905/StationList", "/kv1905/NumberOfStations", 2},
        };
        for (const auto &[list, count, size] : lists) {
            ASSERT_TRUE(json_object_is_type(at(root, list), json_type_array)) << list;
            EXPECT_EQ(json_object_array_length(at(root, list)), size) << list;
            EXPECT_EQ(textAt(root, count), std::to_string(size)) << count;
        }
        EXPECT_EQ(textAt(root, bss + "SSID"), "home");
        EXPECT_EQ(textAt(root, bss + "STAList/0/SignalStrength"), "98");
        EXPECT_EQ(textAt(root, bss + "STAList/0/TimeStamp"), "2023-11-14T22:13:20Z");
    }
}

TEST_F(DataModel, EveryStationIsListedWithAllItCarriesWhateverIsKnownOfItsNetwork) {
    Device &twoRadios = *topology_.update({{mac(2),
                                            {{mac(2, 0x20), 0x0105, fromHex("02005E00F00100000000")},
                                             {mac(2, 0x21), 0x0105, fromHex("02005E00F00200000000")}}},
                                           {},
                                           {},
                                           {}},
                                          Time(0));
    WIFINeighborEntry local{};  // of a device without radios
    local.Band = 1;
    std::vector<WIFINeighborEntry> remote(2000);
    for (size_t i = 0; i < remote.size(); ++i) {
        remote[i] = {
            nullptr, {2, 0, 0x5E, 0x0A, uint8_t(i >> 8), uint8_t(i)}, 0x0105, 866, -61, -2, 4, 1u << 31, 6, 7, 8, 9, 6};
        if (i > 0) remote[i - 1].next = &remote[i];
    }
    remote[1].Band = 0;
    topology_.local().vendor.data()->wifiNbrHead = &local;
    twoRadios.vendor.data()->wifiNbrHead = remote.data();
    twoRadios.vendor.data()->wifiNbrNum = 2000;
    const JsonPointer root = build();
    topology_.local().vendor.data()->wifiNbrHead = twoRadios.vendor.data()->wifiNbrHead = nullptr;

    const std::string stations = "/kv1905/StationList/", radios = "/wfa-dataelements:Network/DeviceList/1/RadioList/";
    const std::pair<std::string, std::string> rows[] = {
        {"/kv1905/NumberOfStations", "2001"},
        {"/kv1905/DeviceList/0/WifiNeighborCount", "77"},
        {"/kv1905/DeviceList/1/WifiNeighborCount", "2000"},
        {stations + "0/Device", "02:00:5e:00:01:00"},
        {stations + "0/Band", "2.4GHz"},
        {stations + "0/BSSID", "(absent)"},
        {stations + "0/TimeStamp", "2023-11-14T22:13:20Z"},
        {stations + "2/Band", ""},
        {stations + "2/BSSID", "(absent)"},
        {stations + "1/Device", "02:00:5e:00:02:00"},
        {stations + "1/BSSID", "02:00:5e:00:f0:01"},
        {stations + "1/MACAddress", "02:00:5e:0a:00:00"},
        {stations + "1/Band", "5GHz"},
        {stations + "1/MediaType", "261"},
        {stations + "1/RSSI", "-61"},
        {stations + "1/SNR", "-2"},
        {stations + "1/SignalLevel", "4"},
        {stations + "1/Rate", "866000"},
        {stations + "1/BytesSent", "2147483648"},
        {stations + "1/BytesReceived", "6"},
        {stations + "1/LastDataDownlinkRate", "7000"},
        {stations + "1/LastDataUplinkRate", "8000"},
        {stations + "1/TimeStamp", "1970-01-01T00:00:09Z"},
        {stations + "2000/MACAddress", "02:00:5e:0a:07:cf"},
        {radios + "0/BSSList/0/NumberOfSTA", "1999"},
        {radios + "1/BSSList/0/NumberOfSTA", "0"},  // nobody knows which of the two: they are not listed twice
    };
    for (const auto &[path, value] : rows)
        EXPECT_EQ(textAt(root, path), value) << path;
}

TEST_F(DataModel, ValuesOfARemoteDevice) {
    KvDevVendorData &record = *addRemote(2).vendor.data();
    std::strcpy(record.protoVersion, "3.0");
    std::memset(record.modelName, 'm', sizeof record.modelName);  // no NUL: the field's end must stop the reader
    std::memcpy(record.ledStatus, "O\xFFN\"\n", 6);
    record.fwUpgradeStatus = 200;
    record.uptimeRecvTime = 1;
    const JsonPointer root = build();
    const std::pair<const char *, std::string> rows[] = {
        {"/kv1905/DeviceList/0/Hops", "0"},
        {"/kv1905/DeviceList/1/SpeaksProtocol", "true"},
        {"/kv1905/DeviceList/1/SecondsSinceHeard", "8"},
        {"/kv1905/DeviceList/1/ModelName", std::string(sizeof record.modelName, 'm')},
        {"/kv1905/DeviceList/1/LedStatus", "O\xEF\xBF\xBDN\"\n"},
        {"/kv1905/DeviceList/1/FirmwareUpgradeStatus", "200"},
        {"/kv1905/DeviceList/1/UptimeReceived", "1970-01-01T00:00:01Z"},
        {"/wfa-dataelements:Network/DeviceList/1/RadioList/0/BSSList/0/BSSID", "02:00:5e:00:f0:01"},
    };
    for (const auto &[path, value] : rows)
        EXPECT_EQ(textAt(root, path), value) << path;
}

TEST_F(DataModel, WhatDevicesToldOfNeighboursAndBssIsInListsOfAnyLength) {
    const std::string own = "/kv1905/DeviceList/0/", remote = "/kv1905/DeviceList/1/";
    Device &device = addRemote(2);
    EXPECT_EQ(textAt(build(), "/kv1905/Controller"), "");
    controller_ = mac(2);
    device.neighbours = {{mac(2, 0x20), {{mac(1), false}}}, {mac(2, 0x10), {{mac(3), true}}}};
    device.bss = {{{mac(2, 0x20), 0x1234, true}}, {{0x40, 1, 0x1234, 2, 3, 5}}};
    device.apConfigurations[kBand5] = {0x40, 1, 0x1234, 2, 0, 6, 0, 0, 0};
    const JsonPointer root = build();
    for (const char *list : {"NeighborList", "MdidList", "BssConfigList", "ApConfigurationList"}) {
        ASSERT_TRUE(json_object_is_type(at(root, own + list), json_type_array)) << list;
        EXPECT_EQ(json_object_array_length(at(root, own + list)), 0u) << list;
    }
    const std::pair<std::string, const char *> rows[] = {
        {"/kv1905/Controller", "02:00:5e:00:02:00"},
        {remote + "NeighborList",
         R"([{"ID":"02:00:5e:00:01:00","Interface":"02:00:5e:00:02:20","MediaType":261,"ViaBridge":false},)"
         R"({"ID":"02:00:5e:00:03:00","Interface":"02:00:5e:00:02:10","MediaType":null,"ViaBridge":true}])"},
        {remote + "MdidList", R"([{"BSSID":"02:00:5e:00:02:20","Mdid":4660,"Enabled":true}])"},
        {remote + "BssConfigList",
         R"([{"BandIndex":64,"Attribute":1,"Mdid":4660,"Tci":2,"WlMode":3,"ExtAttribute":5}])"},
        {remote + "ApConfigurationList",
         R"([{"Band":"5GHz","BandIndex":64,"Attribute":1,"Mdid":4660,"Tci":2,"ExtAttribute":6}])"},
    };
    for (const auto &[path, value] : rows) {
        std::string text = textAt(root, path);
        std::erase(text, ' ');
        EXPECT_EQ(text, value) << path;
    }
}

TEST(ValidUtf8, ReplacesWhatIsNoCharacter) {
    const std::string bad = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> rows[] = {
        {"plain", "plain"},
        {"\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80", "\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80"},
        {"a\x80z", "a" + bad + "z"},
        {"\xC3z", bad + "z"},
        {"\xE2\x82", bad + bad},  // cut short
        {"\xC0\xAF", bad + bad},  // overlong
        {"\xE0\x80\x80", bad + bad + bad},
        {"\xED\xA0\x80", bad + bad + bad},  // surrogate
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},
    };
    for (const auto &[in, out] : rows)
        EXPECT_EQ(validUtf8(in), out);
}

TEST(ReplaceFile, ReplacesInOneStepAndNamesWhatFails) {
    namespace fs = std::filesystem;
    std::string directory = testing::TempDir() + "kv1905.XXXXXX";
    ASSERT_NE(mkdtemp(directory.data()), nullptr);
    const std::string file = directory + "/model.json";
    const auto rest = [](std::ifstream in) { return std::string(std::istreambuf_iterator<char>(in), {}); };
    replaceFile(file, "first, and longer");
    std::ifstream old(file);                                   // a reader that has it open keeps the old text
    fs::create_symlink(directory + "/victim", file + ".new");  // a link under the temporary name is not followed
    replaceFile(file, "second");
    EXPECT_EQ(rest(std::ifstream(file)), "second");
    EXPECT_EQ(rest(std::move(old)), "first, and longer");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 1);
    const std::string error = errorOf([&] { replaceFile(directory + "/none/model.json", "x"); });
    EXPECT_NE(error.find("none/model.json"), std::string::npos) << error;
    fs::remove_all(directory);
}

}  // namespace
}  // namespace kv1905d
