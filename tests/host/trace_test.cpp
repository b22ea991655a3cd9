#include "command/trace.h"

#include <map>
#include <tuple>

#include "host_support.h"
#include "support/sample_messages.h"

namespace kv1905d {
namespace {

std::string lineOf(const Bytes &value) {
    return traceLine(Direction::In, "peer", 0x1001, readVendorMessage(value));
}

std::string vendorLine(unsigned type, const Bytes &payload, size_t length) {
    Bytes value = fromHex("024EA7 66778899AABB 0001 0000 0000");
    value[12] = static_cast<uint8_t>(type);
    value[13] = static_cast<uint8_t>(length >> 8);
    value[14] = static_cast<uint8_t>(length);
    value.insert(value.end(), payload.begin(), payload.end());
    return lineOf(value);
}

TEST(Trace, DescribesEachMessageAndMissingBytes) {
    const std::string target = "for 00:11:22:33:44:55";
    std::map<unsigned, std::string> words = {{1, "3 attributes"},
                                             {3, "1 interface"},
                                             {6, target + " 1 interface on"},
                                             {7, "1 interface"},
                                             {9, "1 station"},
                                             {20, "option 3"},
                                             {33, target + " on"},
                                             {36, "1 station"},
                                             {34, "for 00:00:00:00:00:00 on"},
                                             {35, "255 (unknown)"},
                                             {77, "\"E0/1\""},
                                             {69, "password of 6 bytes"},
                                             {25, "\"2 00:11:22:33:44:55\""}};
    for (const kvtest::SampleMessage &sample : kvtest::kSampleMessages) {
        const Bytes payload = fromHex(sample.payload);
        std::string &expected = words[sample.type];
        if (expected.empty()) expected = payload.size() == 1 ? "7 (not this device's AL MAC)" : target;
        const std::string whole = vendorLine(sample.type, payload, payload.size());
        EXPECT_TRUE(whole.ends_with("0x1001: " + expected)) << whole;
        const size_t required = payload.size() - sample.optional;
        for (const size_t length : {required - 1, required}) {
            const std::string cut = vendorLine(sample.type, prefix(payload, required - 1), length);
            EXPECT_TRUE(cut.ends_with(": malformed: 1 byte too short")) << cut;
        }
    }
}

TEST(Trace, ReportsFaultsAndEscapesControls) {
    const std::string envelope = "024EA7 66778899AABB 0001 ";
    const std::string rssi = "000347 01020304 0506 68 00 112233445566 00 0708 0000 020000000001 0000 ";
    const std::tuple<std::string, std::string, std::string> rows[] = {
        {"001122 1B5B", "message of OUI 001122", "2 bytes"},
        {envelope + "0005 0004 07", "REBOOT_RESP", "malformed: 3 bytes too short"},
        {envelope + "0019 0009 0001 0005 1B5C22417F", "COMMAND_REQ", R"("\x1b\x5c\x22A\x7f")"},
        {envelope + "004D 000C 66778899AABB 05 4141414141", "SYNC_CTRL_COUNTRY_BCN_RESP",
         "malformed: 5 is above the limit of 4"},
        {envelope + "0024 000D 66778899AABB 0005 30783241 41", "WIFI_CLIENT_MCAST2",
         "malformed: record 1 does not fit"},
        {rssi + "0064 00C8 C4 1E 00 0000", "RSSI_MEASUREMENT_RESP", "of 02:00:00:00:00:01 -60 dBm"},
    };
    for (const auto &[value, name, words] : rows)
        EXPECT_EQ(lineOf(fromHex(value)), "in   " + name + " from peer msgId 0x1001: " + words);
}

}  // namespace
}  // namespace kv1905d
