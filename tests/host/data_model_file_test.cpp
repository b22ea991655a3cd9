#include "daemon/data_model_file.h"

#include <json-c/json.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>

#include "daemon/json.h"
#include "host_support.h"
#include "support/files.h"
#include "support/json.h"

namespace kv1905d {
namespace {

// Returns the value at the path without blanks, "null" if there is none.
std::string at(const std::string &path, const DataModelView &view) {
    const support::JsonPtr root(json_tokener_parse(dataModelJson(view).c_str()));
    json_object *found = nullptr;
    json_pointer_get(root.get(), path.c_str(), &found);
    return json_object_to_json_string_ext(found, JSON_C_TO_STRING_PLAIN | JSON_C_TO_STRING_NOSLASHESCAPE);
}

const std::string kNetwork = "/wfa-dataelements:Network/", kRadios = kNetwork + "DeviceList/0/RadioList",
                  kRemoteRadios = kNetwork + "DeviceList/1/RadioList", kFirst = "/kv1905/DeviceList/0/",
                  kSecond = "/kv1905/DeviceList/1/", kStations = "/kv1905/StationList/";

TEST(DataModel, ContainsAllFieldsAndMatchingCounts) {
    Topology topology(mac(1), TimePoint(Duration(0)));
    WIFINeighborEntry own{}, remote[3];
    own.Band = 1;
    own.RSSI = -61;
    topology.local().vendor.data()->wifiNbrHead = &own;
    topology.setInterfaces(topology.local(),
                           {{mac(1, 0x10), 0x0001, {}}, {mac(1, 0x20), 0x0103, {}}, {mac(1, 0x21), 0x0105, {}}});
    TopologyReport report;
    report.device = {mac(2),
                     {{mac(2, 0x20), 0x0105, fromHex("02005E00F00100000000")},
                      {mac(2, 0x21), 0x0105, fromHex("02005E00F00200000000")}}};
    Device &device = *topology.update(report, TimePoint(Duration(1000)));
    KvDevVendorData &record = *device.vendor.data();
    for (uint8_t i = 0; i < 3; ++i)
        remote[i] = {
            i < 2 ? &remote[i + 1] : nullptr, {2, 0, 0, 0, 0, i}, 0x0105, 866, -61, -2, 4, 1u << 31, 6, 7, 8, 9, 6};
    remote[1].Band = 0;
    remote[1].RSSI = -128;
    remote[2].RSSI = 10;
    device.interfaces[1].vendor.pwrState = 1;
    record.wifiNbrHead = remote;
    std::memset(record.modelName, 'm', sizeof record.modelName);  // no NUL: the field's end must stop the reader
    device.neighbours = {{mac(2, 0x20), {{mac(1), false}}}, {mac(2, 0x10), {{mac(3), true}}}};
    const MainNetworks networks{{"home", "home 5G"}, {mac(0xF0), MacAddress{}}};
    Counters counters;
    DataModelView view{topology, counters, "Agent", networks, TimePoint(Duration(9000)), 1700000000, mac(2), 77, {}};
    const std::pair<std::string, std::string> rows[] = {
        {kNetwork + "DeviceList/0/NumberOfRadios", "2"},  // the Ethernet interface is none
        {kRadios + "/0/BSSList",
         R"([{"BSSID":"02:00:5e:00:f0:00","SSID":"home","Enabled":true,"NumberOfSTA":1,"STAList":[)"
         R"({"MACAddress":"00:00:00:00:00:00","LastDataDownlinkRate":0,"LastDataUplinkRate":0,"SignalStrength":98,)"
         R"("BytesSent":0,"BytesReceived":0,"TimeStamp":"2023-11-14T22:13:20Z"}]}])"},
        {kRemoteRadios + "/1/Enabled", "false"},
        {kRemoteRadios + "/0/BSSList/0/NumberOfSTA", "2"},
        {kRemoteRadios + "/1/BSSList/0/NumberOfSTA", "0"},  // the radio is unknown, so they are not listed twice
        {kNetwork + "DeviceList/1/ManufacturerModel", '"' + std::string(sizeof record.modelName, 'm') + '"'},
        {kStations + "1",
         R"({"MACAddress":"02:00:00:00:00:00","LastDataDownlinkRate":7000,"LastDataUplinkRate":8000,)"
         R"("SignalStrength":98,"BytesSent":2147483648,"BytesReceived":6,"TimeStamp":"1970-01-01T00:00:09Z",)"
         R"("Device":"02:00:5e:00:02:00","BSSID":"02:00:5e:00:f0:01","Band":"5GHz","MediaType":261,"RSSI":-61,)"
         R"("SNR":-2,"SignalLevel":4,"Rate":866000})"},
        {kStations + "2/SignalStrength", "0"},
        {kStations + "3/SignalStrength", "220"},
        {kSecond + "SecondsSinceHeard", "8"},
        {kSecond + "NeighborList",
         R"([{"ID":"02:00:5e:00:01:00","Interface":"02:00:5e:00:02:20","MediaType":261,"ViaBridge":false},)"
         R"({"ID":"02:00:5e:00:03:00","Interface":"02:00:5e:00:02:10","MediaType":null,"ViaBridge":true}])"}};
    for (const auto &[path, value] : rows)
        EXPECT_EQ(at(path, view), value) << path;
    record.wifiNbrHead = nullptr;
}

TEST(JsonWriter, ReplacesInvalidUtf8AndEscapesControls) {
    const std::string bad = "\xEF\xBF\xBD";
    const std::pair<std::string, std::string> rows[] = {
        {"plain\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xC2\xA0", "plain\xC3\xA4\xE2\x82\xAC\xF0\x9F\x98\x80\xC2\xA0"},
        {"\x80", bad},
        {"\xED\xA0\x80" /* surrogate */, bad + bad + bad},
        {"\xF4\x90\x80\x80", bad + bad + bad + bad},
        {"\"\\\x1F\x7F\xC2\x80\xC2\x9F", R"(\"\\\u001f\u007f\u0080\u009f)"}};
    for (const auto &[text, written] : rows) {
        JsonWriter out;
        out.object([&, &value = text] { out.member("key", value); });
        EXPECT_EQ(out.take(), R"({"key": ")" + written + "\"}");
    }
}

TEST(ReplaceFile, IsAtomic) {
    namespace fs = std::filesystem;
    const std::string directory = testing::TempDir() + "replaced", file = directory + "/model.json";
    fs::create_directory(directory);
    const auto rest = [](std::ifstream in) { return std::string(std::istreambuf_iterator<char>(in), {}); };
    const auto replaceFile = [](const std::string &path, const char *text) {
        support::replaceFile(path, text, 0644, support::Durable::No);
    };
    replaceFile(file, "first, and longer");
    std::ifstream old(file);                                   // a reader that has it open keeps the old text
    fs::create_symlink(directory + "/victim", file + ".new");  // a link under the temporary name is not followed
    replaceFile(file, "second");
    EXPECT_EQ(rest(std::ifstream(file)), "second");
    EXPECT_EQ(rest(std::move(old)), "first, and longer");
    EXPECT_EQ(std::distance(fs::directory_iterator(directory), {}), 1);
    EXPECT_EQ(fs::status(file).permissions(), fs::perms(0644)) << "every program may read it";
}

}  // namespace
}  // namespace kv1905d
