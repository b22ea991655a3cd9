// Stations: the driver's files, state queries, reports, the tables of other devices and their ageing.
#include <gtest/gtest.h>

#include <bit>
#include <cstring>
#include <random>

#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/main_loop.h"
#include "frame/vendor_data.h"
#include "protocol/kvMAP1905_message.h"
#include "support/captured_log.h"
#include "support/device_files.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

using namespace kvtest;

namespace {

constexpr uint16_t kStateRequest = 8, kStateResponse = 9, kReport = 36;
const Mac kSta = {0xAA, 0xBB, 0xCC, 0x00, 0x11, 0x22};

std::string describe(const WIFINeighborEntry *station) {
    std::string text;
    for (; station != nullptr; station = station->next) {
        char line[160];
        std::snprintf(line, sizeof line, "%02x:%02x %04x %u %d %d %u %u %u %u %u %u\n", station->mac[4],
                      station->mac[5], station->mediaType, station->Rate, station->RSSI, station->SNR,
                      station->signalLevel, station->Tx, station->Rx, station->tx_rate, station->rx_rate,
                      station->Band);
        text += line;
    }
    return text;
}

size_t length(const WIFINeighborEntry *station) {
    size_t count = 0;
    for (; station != nullptr; station = station->next) {
        ++count;
    }
    return count;
}

std::string stationLine(unsigned number, const char *figures = "866000 -45 30 1 wl1 123 456 866000 650000 0x10") {
    char line[512];
    std::snprintf(line, sizeof line, "02:00:00:00:%02x:%02x %s\n", number >> 8, number & 0xFF, figures);
    return line;
}

// A record of a report with its length in front.
std::string framed(const std::string &pairs) {
    const std::string record = "{" + pairs + "}";
    return std::to_string(1000 + record.size()).substr(1) + record;
}

class Stations : public testing::Test {
  protected:
    void SetUp() override {
        emptyDevice();
        setClock(1'000'000);
        for (const char *file : {kv::kStationFile24G, kv::kStationFile5G}) {
            std::remove(file);
        }
        host_.addDevice(kAgent);
        host_.owners[kAgent] = kAgent;
    }

    void associate(unsigned count, const char *figures = "866000 -45 30 1 wl1 123 456 866000 650000 0x10") {
        std::string text;
        for (unsigned i = 0; i < count; ++i) {
            text += stationLine(i, figures);
        }
        writeFile(kv::kStationFile5G, text);
        kv::runNetCtrl();
    }

    // A report of the agent, as it stands in a message.
    Bytes report(const std::string &text, std::optional<uint16_t> dataLen = std::nullopt,
                 const Mac &reporter = kAgent) {
        const auto claimed = dataLen.value_or(static_cast<uint16_t>(text.size()));
        Bytes payload(reporter.begin(), reporter.end());
        append(payload, std::initializer_list<int>{claimed >> 8, claimed & 0xFF});
        append(payload, text);
        return message(kAgent, kReport, payload);
    }

    KvDevVendorData &agent() { return *host_.devices.at(kAgent); }

    FakeHost host_;
};

}  // namespace

TEST_F(Stations, AreReadAsTheDriverWroteThem) {
    const struct {
        const char *what;
        std::string on24G;
        std::string on5G;
        std::string expected;
        size_t malformed;
    } cases[] = {
        {"both bands, 2.4 GHz first; capitals; rates rounded down; one-bit standards",
         "02:00:00:00:0A:0B 999 -86 20 0 wl0 4294967295 7 1000 65999 8\n",
         "02:00:00:00:0a:0B 866000 -50 -5 0 wl1 1 2 3000 4000 8\n",
         "0a:0b 0103 0 -86 20 1 4294967295 7 1 65 1\n0a:0b 0104 866 -50 -5 5 1 2 3 4 6\n", 0},
        {"standards",
         stationLine(1, "0 -85 0 0 w 0 0 0 0 0x0001") + stationLine(2, "0 -81 0 0 w 0 0 0 0 2") +
             stationLine(3, "0 -80 0 0 w 0 0 0 0 4") + stationLine(4, "0 -70 0 0 w 0 0 0 0 10") +
             stationLine(5, "0 -51 0 0 w 0 0 0 0 20") + stationLine(6, "0 0 0 0 w 0 0 0 0 40") +
             stationLine(7, "0 3 0 0 w 0 0 0 0 3") + stationLine(8, "0 -71 0 0 w 0 0 0 0 80"),
         "",
         "00:01 0100 0 -85 0 2 0 0 0 0 1\n00:02 0101 0 -81 0 2 0 0 0 0 1\n00:03 0102 0 -80 0 3 0 0 0 0 1\n"
         "00:04 0105 0 -70 0 4 0 0 0 0 1\n00:05 0108 0 -51 0 4 0 0 0 0 1\n00:06 0109 0 0 0 0 0 0 0 0 1\n"
         "00:07 0000 0 3 0 5 0 0 0 0 1\n00:08 0000 0 -71 0 3 0 0 0 0 1\n",
         0},
        {"short lines keep what the line before scanned, per file",
         stationLine(1, "54000") + stationLine(2, "6500 -60 9 0 wl0 5 6 7000 8000 10") + "\n   \n" +
             stationLine(3, "") + stationLine(4, "2500 -61"),
         stationLine(5, ""),
         "00:01 0000 54 0 0 0 0 0 0 0 1\n00:02 0105 6 -60 9 4 5 6 7 8 1\n00:03 0105 6 -60 9 4 5 6 7 8 1\n"
         "00:04 0105 2 -61 9 4 5 6 7 8 1\n00:05 0000 0 0 0 0 0 0 0 0 6\n",
         0},
        {"tokens that are too long reject their line and leave no trace",
         stationLine(1, "6000 -60 9 0 eighteencharacters 5 6 7000 8000 10") +
             "02:00:00:00:00:02:02:02 9000 -61 8 0 w 1 2 3000 4000 8\n" +
             stationLine(3, "1000 -62 1 0 seventeencharacte 9") + stationLine(4, ""),
         "", "00:03 0000 1 -62 1 4 9 0 0 0 1\n00:04 0000 1 -62 1 4 9 0 0 0 1\n", 0},
        {"malformed addresses",
         "zz:00:00:00:00:01 1\n02-00-00-00-00-02 1\n02:00:00:00:00 1\n02:00:00:00:00:003 1\nnoise\n"
         "0:0:0:0:0:4 1000\n2:0:0:0:0:5 2000\n0x:00:00:00:00:06 1\n",
         "", "00:04 0000 1 0 0 0 0 0 0 0 1\n00:05 0000 2 0 0 0 0 0 0 0 1\n", 6},
        {"standards at 5 GHz; a long line; RSSI beyond 16 bits", "",
         stationLine(1, "0 -1 0 0 w 0 0 0 0 1") + stationLine(2, "0 -1 0 0 w 0 0 0 0 20") +
             stationLine(3, (std::string(300, ' ') + "1000 65476").c_str()),
         "00:01 0100 0 -1 0 5 0 0 0 0 6\n00:02 0108 0 -1 0 5 0 0 0 0 6\n00:03 0108 1 -60 0 4 0 0 0 0 6\n", 0},
        {"the null address is skipped silently", "00:00:00:00:00:00 1\n0:0:0:0:0:0 1\n", "", "", 0},
        {"a missing final newline, and noise behind the fields", "02:00:00:00:00:01 1000 -1 2 3 w 4 5 6000 7000 8 9 x",
         "", "00:01 0103 1 -1 2 5 4 5 6 7 1\n", 0},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        clearLog();
        writeFile(kv::kStationFile24G, c.on24G);
        writeFile(kv::kStationFile5G, c.on5G);
        EXPECT_EQ(kv::runNetCtrl(), 0);
        EXPECT_EQ(describe(WIFINeighborHead), c.expected);
        EXPECT_EQ(WIFINbrNum, length(WIFINeighborHead));
        EXPECT_EQ(host_.local().wifiNbrHead, WIFINeighborHead);
        EXPECT_EQ(logCount(4, "WiFi MAC formet error!\n"), c.malformed);
    }
    EXPECT_EQ(host_.local().wifiNbrNum, 0u) << "the local count is WIFINbrNum";
}

TEST_F(Stations, WithoutFilesThereAreNone) {
    associate(2);
    std::remove(kv::kStationFile5G);
    clearLog();
    kv::runNetCtrl();
    EXPECT_EQ(logCount(3, "Can't open file [/tmp/assoc_list.24g]\n"), 1u);
    EXPECT_EQ(logCount(3, "Can't open file [/tmp/assoc_list.5g]\n"), 1u);
    EXPECT_EQ(WIFINbrNum, 0u);
    EXPECT_EQ(host_.local().wifiNbrHead, nullptr);
    WIFINeighborEntry out = {};
    EXPECT_EQ(kv::kvGetWIFIStaData(kSta.data(), &out), 16);
}

TEST_F(Stations, ARebuildWithoutMemoryLeavesTheHostAValidList) {
    for (const size_t nth : {1u, 2u, 3u, 5u}) {  // scratch, station, scratch, scratch of the third line
        SCOPED_TRACE(nth);
        associate(3);
        const std::string before = describe(host_.local().wifiNbrHead);
        writeFile(kv::kStationFile5G, stationLine(7, "1000") + stationLine(8, "2000") + stationLine(9, "3000"));
        FailingAllocation failure(nth);
        kv::runNetCtrl();
        ASSERT_TRUE(failure.happened());
        EXPECT_EQ(length(WIFINeighborHead), WIFINbrNum);
        EXPECT_EQ(WIFINbrNum, nth == 2 ? 2u : (nth - 1) / 2);
        EXPECT_EQ(describe(host_.local().wifiNbrHead), nth == 2 ? describe(WIFINeighborHead) : before);
    }
    kv::runNetCtrl();
    EXPECT_EQ(WIFINbrNum, 3u);
    EXPECT_EQ(host_.local().wifiNbrHead, WIFINeighborHead);
}

TEST_F(Stations, AreCopiedUnderTheDeviceThatTheyBelongTo) {
    associate(3);
    host_.owners[{2, 0, 0, 0, 0, 1}] = kAgent;
    WIFINeighborList copy = {};
    EXPECT_EQ(kv::kvGetWIFIConfdata(&copy), 0);
    EXPECT_EQ(copy.count, 3u);
    EXPECT_EQ(std::memcmp(copy.head->next->mac, kAgent.data(), 6), 0);
    EXPECT_EQ(describe(copy.head->next->next), describe(WIFINeighborHead->next->next)) << "a copy, in order";
    kv::FreeStations()(copy.head);

    FailingAllocation failure(3);  // the second entry
    EXPECT_EQ(kv::kvGetWIFIConfdata(&copy), 16);
    EXPECT_TRUE(failure.happened());
    EXPECT_EQ(length(copy.head), 1u);
    kv::FreeStations()(copy.head);
    FailingAllocation noView(1);
    EXPECT_EQ(kv::kvGetWIFIConfdata(&copy), 0);
    EXPECT_EQ(copy.head, nullptr);
}

TEST_F(Stations, AStateQueryIsAnsweredInChunksOf32) {
    const struct {
        unsigned stations;
        std::vector<size_t> chunks;
    } cases[] = {{0, {0}}, {32, {32}}, {33, {32, 1}}, {70, {32, 32, 6}}, {2000, std::vector<size_t>(63, 32)}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.stations);
        associate(c.stations);
        host_.sent.clear();
        host_.sendResult = c.stations == 33;  // a response that could not be sent does not keep the next one back
        host_.receive(kAgent, message(kAgent, kStateRequest, Bytes(6, 0xFF)), 0xBEEF);
        ASSERT_EQ(host_.sent.size(), c.chunks.size());
        for (size_t i = 0; i < c.chunks.size(); ++i) {
            const size_t count = i == 62 ? 16 : c.chunks[i];
            const Sent &sent = host_.sent[i];
            ASSERT_EQ(sent.value.size(), 15 + 1 + 24 * count);
            EXPECT_EQ(sent.value[15], count);
            EXPECT_EQ(sent.value[12], kStateResponse);
            EXPECT_EQ(sent.value[13] << 8 | sent.value[14], static_cast<int>(1 + 24 * count));
            EXPECT_EQ(sent.destination, kAgent);
            EXPECT_EQ(sent.msgIdIn, i == 0 ? 0xBEEF : 0);
            if (count > 0) {
                EXPECT_EQ(sent.value[15 + 1 + 5], (32 * i) & 0xFF) << "the first station of the chunk";
            }
        }
    }
    associate(1);
    host_.sent.clear();
    host_.receive(kAgent, message(kAgent, kStateRequest, Bytes(6)), 1);
    EXPECT_EQ(host_.sent.at(0).value,
              message(kLocal, kStateResponse, fromHex("01 020000000000 0105 0362 FFD3 001E 05 06 0000007B 000001C8")));
    for (const auto &[nth, text] : {std::pair(2u, "Allocate memory failed for WiFiStateReq\n"),
                                    std::pair(3u, "Allocate memory failed for split_linklist\n")}) {
        host_.sent.clear();
        FailingAllocation failure(nth + 1);  // behind the message and its target
        host_.receive(kAgent, message(kAgent, kStateRequest, Bytes(6, 0xFF)), 1);
        EXPECT_TRUE(failure.happened());
        EXPECT_EQ(logCount(3, text), 1u);
        EXPECT_TRUE(host_.sent.empty());
    }
}

TEST_F(Stations, AStateResponseIsMergedIntoTheAgentsTable) {
    const Bytes first = fromHex("AABBCC001122 0105 0362 FFD3 001E 05 06 0000007B 000001C8");
    const Bytes second = fromHex("AABBCC001133 0103 0041 FFB0 000A 03 01 FFFFFFFF 00000000");
    const auto respond = [&](std::initializer_list<Bytes> stations, const Mac &source = kAgent, int count = -1) {
        Bytes payload = {static_cast<uint8_t>(count < 0 ? static_cast<int>(stations.size()) : count)};
        for (const Bytes &station : stations) {
            append(payload, station);
        }
        host_.receive(source, message(source, kStateResponse, payload), 7);
    };
    host_.receive(kAgent, report(framed("0=AA:BB:CC:00:11:33,7=11,8=12,3=-1")), 1);
    respond({first, second});
    EXPECT_EQ(describe(agent().wifiNbrHead),
              "11:33 0103 65 -80 10 3 4294967295 0 0 0 1\n"
              "11:22 0105 866 -45 30 5 123 456 0 0 6\n")
        << "refreshed in place, rates that are not carried become 0, new ones appended";
    EXPECT_EQ(agent().wifiNbrNum, 2u);
    EXPECT_EQ(agent().wifiNbrHead->lastSeen, 1'000'000u);
    EXPECT_EQ(host_.jsonWrites, 2);

    const std::string before = describe(agent().wifiNbrHead);
    respond({first}, kStranger);  // nobody owns the source
    respond({first}, kAgent, 2);  // more stations than there are bytes
    respond({}, kAgent, 255);
    host_.owners[kStranger] = kStranger;  // owned, but not in the topology
    respond({first}, kStranger);
    Bytes foreign = report(framed("0=0:0:0:0:0:1"));
    std::copy(kStranger.begin(), kStranger.end(), foreign.begin() + 3);
    std::copy(kStranger.begin(), kStranger.end(), foreign.begin() + 15);
    host_.receive(kStranger, foreign, 7);
    host_.owners[kStranger] = Mac{};  // a host that fills nothing in
    respond({first}, kStranger);
    host_.owners[kLocal] = kLocal;  // somebody who speaks in this device's own name
    respond({first}, kLocal);
    host_.receive(kLocal, report(framed("0=0:0:0:0:0:1")), 1);
    EXPECT_EQ(describe(agent().wifiNbrHead), before);
    EXPECT_EQ(host_.local().wifiNbrHead, nullptr);
    EXPECT_EQ(host_.jsonWrites, 2);
    EXPECT_EQ(std::memcmp(kv::registeredNeighbors().at(4), kAgent.data(), kAgent.size()), 0);
    EXPECT_TRUE(kv::CheckingNullMAC(kv::registeredNeighbors().at(3)));
}

TEST_F(Stations, AreReportedInBatches) {
    associate(15, "866000 -45 30 1 wl1 123456789 456789012 866000 650000 0x10");
    EXPECT_EQ(kv::kvSendWIFIClientInfo(), 0);
    ASSERT_EQ(host_.sent.size(), 2u);
    const size_t textBytes[] = {1209, 186};
    for (size_t i = 0; i < 2; ++i) {
        const Sent &sent = host_.sent[i];
        EXPECT_EQ(sent.slot, Slot::RelayedMulticast);
        EXPECT_EQ(sent.msgIdIn, std::nullopt);
        EXPECT_EQ(sent.value.size(), 15 + 8 + textBytes[i]);
        EXPECT_EQ(head(sent.value, 23),
                  head(message(kLocal, kReport,
                               fromHex("001122334455" + std::string(i == 0 ? "04B9" : "00BA") + std::string(2600, '0')),
                               static_cast<uint16_t>(8 + textBytes[i])),
                       23));
    }
    writeFile(kv::kStationFile5G, "aa:bb:cc:00:11:22 866000 -45 30 1 wl1 123 456 866000 650000 0x10\n");
    kv::runNetCtrl();
    EXPECT_EQ(kv::kvSendWIFIClientInfo(), 0);
    EXPECT_EQ(std::string(host_.sent[2].value.begin() + 23, host_.sent[2].value.end()),
              "078{0=AA:BB:CC:00:11:22,1=0105,2=866,3=-45,10=30,4=5,5=123,6=456,7=866,8=650,9=6}");

    associate(3);
    // Full batches: 13 records of 96 characters with their length and one of 51, 52 more than fit or not.
    const auto batches = [&](const std::string &lastRx) {
        std::string text;
        for (unsigned i = 0; i < 13; ++i) {
            text += stationLine(i, "866000 -45 30 1 wl1 123456789 456789012 866000 650000 0x10");
        }
        writeFile(kv::kStationFile5G,
                  text + stationLine(13, ("866000 -45 30 1 wl1 123456789 " + lastRx + " 866000 650000 0x10").c_str()));
        kv::runNetCtrl();
        host_.sent.clear();
        kv::kvSendWIFIClientInfo();
        return host_.sent.size() == 1 ? host_.sent[0].value.size() - 23 : 0;
    };
    EXPECT_EQ(batches("456789"), 1299u);
    EXPECT_EQ(batches("4567890"), 0u) << "one more takes two messages";
    host_.sendResult = 1;
    EXPECT_EQ(batches("4567890"), 0u);
    EXPECT_EQ(host_.sent.size(), 2u) << "a batch that is lost does not keep the next one back";
    host_.sendResult = 0;
    associate(1, "65535000 -32768 -32768 1 w 4294967295 4294967295 65535000 65535000 0x10");
    EXPECT_EQ(kv::kvSendWIFIClientInfo(), 0) << "the longest record is sent";
    host_.sent.resize(3);

    associate(3);
    for (const size_t nth : {1u, 2u, 4u, 7u}) {  // view, copy's view, a copy, a chunk
        FailingAllocation failure(nth);
        EXPECT_EQ(kv::kvSendWIFIClientInfo(), 16);
        EXPECT_TRUE(failure.happened()) << nth;
    }
    associate(0);
    EXPECT_EQ(kv::kvSendWIFIClientInfo(), 16) << "nothing to report";
    EXPECT_EQ(host_.sent.size(), 3u);
}

TEST_F(Stations, AReportsTextIsReadWithoutTrust) {
    const std::string full = "{10=30,9=6,8=650,7=866,6=456,5=123,4=5,3=-45,2=866,1=0105,0=AA:BB:CC:00:11:22}";
    const std::string read = "11:22 0105 866 -45 30 5 123 456 866 650 6\n";
    const std::string none = "00:00 0000 0 0 0 0 0 0 0 0 0\n";
    const std::string many(510, 'x');
    const struct {
        const char *what;
        std::string text;
        std::string expected;  // "refused"
    } cases[] = {
        {"reverse order", "078" + full, read},
        {"two records", "078" + full + "002{}", read + none},
        {"unknown and negative numbers, empty pieces, no number", framed("11=5,-1=4,,,999=1,x=2,0=0:0:0:0:c:d"),
         "0c:0d 0000 0 0 0 0 0 0 0 0 0\n"},
        {"values that do not fit or do not parse",
         framed("2=65537,3=99999999999999999999,4=-1,5=z,1=10105,9=1x6,10=+7,0=AA:BB:CC"),
         "00:00 0105 1 -1 7 65535 0 0 0 0 1\n"},
        {"text ends at a NUL", "002{}" + std::string("\0", 1) + "002{}", none},
        {"as long as a record may be",
         "513{" + many.substr(0, 3) + "=" + std::string(127, '1') + std::string(380, ',') + "}", none},
        {"nothing", "", ""},
        {"missing =", framed("2=1,3"), "refused"},
        {"missing = behind good pairs", "002{}" + framed("2=5,3=1,4"), "refused"},
        {"field number too long", framed("0002=1"), "refused"},
        {"value too long", framed("2=" + std::string(128, '1')), "refused"},
        {"length 000", "000{}", "refused"},
        {"length 001", "001{}", "refused"},
        {"length without digits", "abc{}", "refused"},
        {"negative length", "-10{}", "refused"},
        {"one more than a record may be", "514{" + std::string(512, ',') + "}", "refused"},
        {"longer than the rest", "078" + full + "003{}", "refused"},
        {"longer than the rest, pairs good", "010{2=1}", "refused"},
        {"a band is decimal", framed("9=a,1=xF"), none},
        {"a length and no more", "078" + full + "078", "refused"},
        {"half a length", "078" + full + "07", "refused"},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.what);
        kv::FreeStations()(agent().wifiNbrHead);
        agent().wifiNbrHead = nullptr;
        agent().wifiNbrNum = 0;
        clearLog();
        const int writes = host_.jsonWrites;
        host_.receive(kAgent, report(c.text), 0x77);
        const bool refused = c.expected == "refused";
        // The same MAC twice in a report is one station.
        EXPECT_EQ(describe(agent().wifiNbrHead), refused ? "" : c.expected);
        EXPECT_EQ(host_.jsonWrites, writes + !refused);
        EXPECT_EQ(logCount(kPrint, "copyWIFIclientMsgDataTokvWIFINeighborTable["), refused ? 1u : 0u);
    }
    EXPECT_EQ(logCount(5, "received VEND_MSG_TYPE_WIFI_CLIENT_MCAST2 msgId 0077\n"), 1u);
}

TEST_F(Stations, AReportThatContradictsItsEnvelopeNeverReachesTheTable) {
    const std::string text = "002{}" + std::string(1295, '\0');
    const struct {
        Bytes value;
        bool accepted;
        const char *printed;
    } cases[] = {
        {report(text), true, nullptr},
        {report(text + '\0'), false, "parse dataLen(1301) is unequal to (1309-8)!!!\n"},
        {report("002{}", 4), false, "parse dataLen(4) is unequal to (13-8)!!!\n"},
        {report("002{}", 6), false, "parse dataLen(6) is unequal to (13-8)!!!\n"},
        {report("002{}", 5, kStranger), false, "parse AlMac 02:EE:EE:EE:EE:EE is unequal to 66:77:88:99:AA:BB!!!\n"},
        {message(kAgent, kReport, Bytes(7, 0x66)), false, nullptr},
    };
    for (const auto &c : cases) {
        clearLog();
        const int writes = host_.jsonWrites;
        host_.receive(kAgent, c.value, 1);
        EXPECT_EQ(host_.jsonWrites - writes, c.accepted);
        EXPECT_EQ(logCount(3, "failed to parse the vendor specific TLV"), c.accepted ? 0u : 1u);
        if (c.printed != nullptr) {
            EXPECT_EQ(logCount(kPrint, c.printed), 1u) << c.printed;
        }
    }
    EXPECT_EQ(length(agent().wifiNbrHead), 1u);
}

TEST_F(Stations, AReportThatContradictsItsRecordIsNotSent) {
    kv::KvWifiClientMsg record = {};
    std::memcpy(record.alMac, kLocal.data(), kLocal.size());
    std::strcpy(record.text, "002{}");
    record.dataLen = 5;
    const auto refused = [&](uint16_t payloadLen, const char *printed) {
        KvVendMsg msg = kv::makeVendMsg(kReport, payloadLen, &record);
        clearLog();
        EXPECT_EQ(kvMAP1905_VenderSpecRelayMcastMsg_send(&msg, nullptr), 16);
        EXPECT_EQ(logCount(kPrint, printed), 1u) << printed;
        std::string dump;
        for (const LogLine &line : logLines()) {
            dump += line.level == kPrint ? line.text : "";
        }
        return dump.substr(dump.find("="));
    };
    const std::string start = "===================== Start =====================";
    const std::string end = "\n===================== End =====================\n";
    EXPECT_EQ(refused(17, "generate dataLen(5) is unequal to (17-8)!!!\n"),
              start + "\n00 11 22 33 44 55 " + (std::endian::native == std::endian::little ? "05 00" : "00 05") +
                  " 30 30 32 7b 7d 00 00 00 \n00 " + end);
    record.dataLen = 1301;
    refused(1309, "generate dataLen(1301) is unequal to (1309-8)!!!\n");
    record.dataLen = 5;
    record.alMac[5] = 0;
    refused(13, "generate AlMac 00:11:22:33:44:00 is unequal to 00:11:22:33:44:55!!!\n");
    EXPECT_TRUE(host_.sent.empty());
}

TEST_F(Stations, DecodersReleaseWhatTheyHaveWhenMemoryRunsOut) {
    Bytes two(1 + 2 * 24, 7);
    two[0] = 2;
    const struct {
        Bytes value;
        size_t allocations;
    } cases[] = {{message(kAgent, kStateResponse, two), 4}, {report("002{}002{}"), 5}};
    for (const auto &c : cases) {
        for (size_t nth = 1; nth <= c.allocations; ++nth) {
            FailingAllocation failure(nth);
            host_.receive(kAgent, c.value, 1);
            EXPECT_TRUE(failure.happened());
            EXPECT_EQ(host_.jsonWrites, 0) << nth;
        }
    }
    associate(1);
    WIFINeighborEntry out = {};
    FailingAllocation failure(1);
    EXPECT_EQ(kv::kvGetWIFIStaData(WIFINeighborHead->mac, &out), 16);
}

TEST_F(Stations, AFullTableRefreshesWhatItHoldsAndTakesNobodyIn) {
    std::vector<WIFINeighborEntry> all(kv::kMaxTableStations + 2);
    for (size_t i = 0; i < all.size(); ++i) {
        all[i].mac[4] = static_cast<uint8_t>(i >> 8);
        all[i].mac[5] = static_cast<uint8_t>(i);
        all[i].next = i + 1 < all.size() ? &all[i + 1] : nullptr;
    }
    const WIFINeighborList everybody = {static_cast<uint32_t>(all.size()), all.data()};
    EXPECT_EQ(kv::kvUpdateWiFiNbr(&agent(), &everybody), 0);
    EXPECT_EQ(agent().wifiNbrNum, kv::kMaxTableStations);
    setClock(1'000'500);
    all.back().next = &all[0];  // a newcomer, then one that is known
    all[0].next = nullptr;
    const WIFINeighborList two = {2, &all.back()};
    EXPECT_EQ(kv::kvUpdateWiFiNbr(&agent(), &two), 0);
    EXPECT_EQ(agent().wifiNbrHead->lastSeen, 1'000'500u);
    EXPECT_EQ(length(agent().wifiNbrHead), kv::kMaxTableStations);
    setClock(1'000'601);
    EXPECT_EQ(kv::kvUpdateWiFiNbr(&agent(), &two), 0) << "of a device that is not registered for ageing";
    EXPECT_EQ(length(agent().wifiNbrHead), 2u);
    EXPECT_EQ(agent().wifiNbrNum, 2u);
}

// The lines of one round, word for word, but for those of other features.
TEST_F(Stations, TellWhatTheyDo) {
    writeFile(kv::kStationFile24G, "AA:BB:CC:00:11:22 65000 -45 30 1 wl0 123 456 65000 6000 8\n");
    kv::runNetCtrl();
    kv::kvSendWIFIClientInfo();
    for (int i = 0; i < 2; ++i) {
        host_.receive(kAgent, report(framed("0=AA:BB:CC:00:11:33,1=0105,9=6")), 0x77);
    }
    host_.receive(kAgent, message(kAgent, kStateRequest, Bytes(6, 0xFF)), 0xBEEF);
    host_.receive(kAgent, message(kAgent, kStateResponse, {0}), 0x78);
    kvMAP1905_WifiStateQuery_send(kAgent.data(), 0);
    std::string told;
    for (const LogLine &line : logLines()) {
        const bool isOther = line.text.find("vendor message") != std::string::npos ||
                             line.text.find("Vendor specific") != std::string::npos ||
                             line.text.find("Register MAP") != std::string::npos;
        told += isOther ? "" : std::to_string(line.level) + " " + line.text;
    }
    const std::string device = "Device 00:11:22:33:44:55, ";
    const std::string merged =
        "5 [MSG] " + device +
        "received VEND_MSG_TYPE_WIFI_CLIENT_MCAST2 msgId 0077\n"
        "7 WiFiClient Mcast AlMac 66:77:88:99:AA:BB, send number 35, value 032{0=AA:BB:CC:00:11:33,1=0105,9=6}\n"
        "7 [MSG] " +
        device +
        "parse WiFi client data 0=AA:BB:CC:00:11:33,1=0105,9=6\n"
        "7 Neighbor number 1\n";
    const std::string neighbor =
        "7 Neighbor Mac AA:BB:CC:00:11:33, mediaType 0x0105, Band 0x6, Rate 0, RSSI 0, SNR 0, signalLevel 0, Tx 0, Rx "
        "0, "
        "tx_rate 0, rx_rate 0\n";
    const std::string copied = "6 " + device + "WiFi NBR device count = 1\n7 Neighbor MAC AA:BB:CC:00:11:22\n";
    EXPECT_EQ(told, "7 " + device +
                        "[WIFI 2.4G] NbrMac aa:bb:cc:00:11:22, Rate 65, RSSI -45, SNR 30, ifname wl0, Tx 123, Rx 456, "
                        "tx_rate 65, rx_rate 6, standard 0008\n"
                        "7 " +
                        device +
                        "Write WiFi Nbr AA:BB:CC:00:11:22\n"
                        "3 Can't open file [/tmp/assoc_list.5g]\n" +
                        copied + "7 " + device +
                        "send WiFi client information "
                        "{0=AA:BB:CC:00:11:22,1=0103,2=65,3=-45,10=30,4=5,5=123,6=456,7=65,8=6,9=1}\n" +
                        merged + neighbor + "7 Not found, add WiFi neighbor data\n" + merged + neighbor +
                        "7 Found, update WiFi neighbor data\n"
                        "7 [TLV] " +
                        device +
                        "parse vendor msg data from AlMac FF:FF:FF:FF:FF:FF\n"
                        "5 [MSG] " +
                        device + "received VEND_MSG_TYPE_WIFI_STATE_REQ msgId beef\n" + copied + "5 [MSG] " + device +
                        "transmit VEND_MSG_TYPE_WIFI_STATE_RESP msgId beef\n"
                        "5 [MSG] " +
                        device +
                        "received VEND_MSG_TYPE_WIFI_STATE_RESP msgId 0078\n"
                        "7 [MSG] " +
                        device + "send WiFi state query to 66:77:88:99:AA:BB\n");
}

// The index of a merge must find what a plain walk finds, with and without memory for it.
TEST_F(Stations, AMergeDoesWhatAPlainWalkDoes) {
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        std::vector<WIFINeighborEntry> reported(random() % 90);
        const auto variety = 1 + random() % 120;
        for (size_t i = 0; i < reported.size(); ++i) {
            reported[i] = {};
            reported[i].mac[5] = static_cast<uint8_t>(random() % variety);
            reported[i].Tx = static_cast<uint32_t>(random());
            reported[i].next = i + 1 < reported.size() ? &reported[i + 1] : nullptr;
        }
        std::vector<std::pair<uint8_t, uint32_t>> expected;
        for (const auto *known = agent().wifiNbrHead; known != nullptr; known = known->next) {
            expected.emplace_back(known->mac[5], known->Tx);
        }
        for (const auto &station : reported) {
            const auto at = std::find_if(expected.begin(), expected.end(),
                                         [&](const auto &known) { return known.first == station.mac[5]; });
            if (at == expected.end()) {
                expected.emplace_back(station.mac[5], station.Tx);
            } else {
                at->second = station.Tx;
            }
        }
        const bool isLong = reported.size() > 32;
        const WIFINeighborList list = {static_cast<uint32_t>(reported.size()),
                                       reported.empty() ? nullptr : &reported[0]};
        {
            std::optional<FailingAllocation> noIndex;
            if (isLong && round % 2 == 0) {
                noIndex.emplace(1);
            }
            ASSERT_EQ(kv::kvUpdateWiFiNbr(&agent(), &list), 0);
            ASSERT_TRUE(!noIndex || noIndex->happened());
        }
        std::vector<std::pair<uint8_t, uint32_t>> merged;
        for (const auto *known = agent().wifiNbrHead; known != nullptr; known = known->next) {
            merged.emplace_back(known->mac[5], known->Tx);
        }
        ASSERT_EQ(merged, expected) << "round " << round;
        ASSERT_EQ(agent().wifiNbrNum, expected.size());
        if (round % 20 == 19) {
            kv::FreeStations()(agent().wifiNbrHead);
            agent().wifiNbrHead = nullptr;
            agent().wifiNbrNum = 0;
        }
    }
    EXPECT_EQ(kv::kvUpdateWiFiNbr(nullptr, nullptr), 16);
    EXPECT_EQ(logCount(4, "invalid input when update WiFiNbr\n"), 1u);
}

TEST_F(Stations, AMergeWithoutMemoryKeepsWhatItHas) {
    host_.receive(kAgent, report(framed("0=0:0:0:0:0:1")), 1);
    WIFINeighborEntry reported[2] = {};
    reported[0].mac[5] = 2;
    reported[0].next = &reported[1];
    reported[1].mac[5] = 3;
    FailingAllocation second(2);
    const WIFINeighborList list = {2, reported};
    EXPECT_EQ(kv::kvUpdateWiFiNbr(&agent(), &list), 16);
    EXPECT_TRUE(second.happened());
    EXPECT_EQ(logCount(3, "Allocate memory failed for WiFiNbr\n"), 1u);
    EXPECT_EQ(length(agent().wifiNbrHead), agent().wifiNbrNum);
}

TEST_F(Stations, TwoThousandTravelFromTheFilesToAnotherDevicesTable) {
    associate(2000);
    kv::kvSendWIFIClientInfo();
    const std::string expected = describe(WIFINeighborHead);
    const auto reports = std::move(host_.sent);
    associate(0);
    for (int pass = 0; pass < 2; ++pass) {
        for (const Sent &sent : reports) {
            Bytes value = sent.value;  // in the agent's name
            std::copy(kAgent.begin(), kAgent.end(), value.begin() + 3);
            std::copy(kAgent.begin(), kAgent.end(), value.begin() + 15);
            host_.receive(kAgent, value, 1);
        }
    }
    EXPECT_EQ(describe(agent().wifiNbrHead), expected);
    EXPECT_EQ(agent().wifiNbrNum, 2000u);
    setClock(1'000'601);
    kv::checkWIFIClientInfo();
    EXPECT_EQ(agent().wifiNbrHead, nullptr);
    EXPECT_EQ(agent().wifiNbrNum, 0u);
}

TEST_F(Stations, AgeOutWhenNoReportNamesThem) {
    const auto reportAt = [&](time_t when, const std::string &text) {
        setClock(when);
        host_.receive(kAgent, report(text), 1);
    };

    reportAt(1000,
             framed("0=0:0:0:0:0:1") + framed("0=0:0:0:0:0:2") + framed("0=0:0:0:0:0:3") + framed("0=0:0:0:0:0:4"));
    reportAt(1001, framed("0=0:0:0:0:0:2"));
    const auto pass = [&](time_t when) {
        setClock(when);
        kv::checkWIFIClientInfo();
        std::string left;
        for (const auto *at = agent().wifiNbrHead; at != nullptr; at = at->next) {
            left += static_cast<char>('0' + at->mac[5]);
        }
        EXPECT_EQ(agent().wifiNbrNum, left.size());
        return left;
    };
    EXPECT_EQ(pass(1600), "1234");
    EXPECT_EQ(pass(1601), "2");
    reportAt(1601, framed("0=0:0:0:0:0:5"));
    EXPECT_EQ(pass(1600), "2") << "a clock that stepped back makes what was seen later old";
    reportAt(1000, framed("0=0:0:0:0:0:2"));
    reportAt(1601, framed("0=0:0:0:0:0:5"));
    agent().wifiNbrNum = 2;
    EXPECT_EQ(pass(1602), "5") << "appended behind the one that is left, which then goes";
    kv::FreeStations()(agent().wifiNbrHead);
    host_.devices.erase(kAgent);
    kv::checkWIFIClientInfo();
    kv::checkWIFIClientInfo();
    EXPECT_EQ(logCount(4, "Device 00:11:22:33:44:55, get 66:77:88:99:AA:BB info failed\n"), 1u) << "the slot is free";
    host_.addDevice(kAgent);
}

TEST_F(Stations, SignalIsMeasuredForIntelsPeers) {
    writeFile(kv::kStationFile5G,
              "aa:bb:cc:00:11:22 1000 -61 30 1 wl1 1 2 144000 65000 0x10\n"
              "aa:bb:cc:00:11:33 1000 -61 30 1 wl1 1 2 144000 6600000 0x10\n");
    kv::runNetCtrl();
    const auto ask = [&](const std::string &station, const char *type = "67") {
        host_.sent.clear();
        host_.receive(kAgent,
                      fromHex("000347 01020304 0506" + std::string(type) + "FF 112233445566 FF 0708 FFFF" + station),
                      0x4711);
        return host_.sent.empty() ? Bytes() : host_.sent[0].value;
    };
    for (const uint8_t last : {uint8_t{0x47}, uint8_t{0x48}}) {  // the entry without a length
        Bytes value = fromHex("000347 01020304 0506 67 00 112233445566 00 0708 0000 AABBCC001122");
        value[2] = last;
        KvRecvVendTlv tlv = {};
        std::memcpy(tlv.srcMac, kAgent.data(), 6);
        tlv.value = value.data();
        kvMAP1905_VendSpecMsg_handle_Intel(&tlv, 1);
        EXPECT_EQ(host_.sent.size(), 1u);
    }
    EXPECT_EQ(logCount(4, "parse unsupported vendor OUI 00:03:48\n"), 1u);
    const std::string answered = "000347 01020304 0506 68 00 112233445566 00 0708 0000";
    const struct {
        const char *station;
        const char *figures;
    } cases[] = {
        {"AABBCC001122", "0000 028A 05A0 C3 1E 00 0000"},
        {"AABBCC001133", "0000 01D0 05A0 C3 1E 00 0000"},  // 66000 cut to 16 bits
        {"AABBCC001144", "0000 0000 0000 A6 00 00 0000"},
    };
    for (const auto &c : cases) {
        EXPECT_EQ(ask(c.station), fromHex(answered + c.station + c.figures));
        ASSERT_EQ(host_.sent.size(), 1u);
        EXPECT_EQ(host_.sent[0].destination, kAgent);
        EXPECT_EQ(host_.sent[0].msgIdIn, 0x4711);
    }
    for (const char *type : {"68", "6A"}) {
        EXPECT_TRUE(ask("AABBCC001122", type).empty());
    }
    EXPECT_EQ(logCount(4, "parse vendor msg type 104 is unsoppourted\n"), 1u);
    EXPECT_EQ(logCount(4, "parse vendor msg type 106 is unsoppourted\n"), 1u);
    EXPECT_TRUE(ask("AABBCC0011").empty()) << "five bytes of a MAC";
    for (const size_t nth : {1u, 2u, 3u}) {  // message, payload, entry
        FailingAllocation failure(nth);
        EXPECT_TRUE(ask("AABBCC001122").empty());
        EXPECT_TRUE(failure.happened());
    }

    host_.sendResult = 1;
    ask("AABBCC001122");
    EXPECT_EQ(logCount(4, "fail send rssi measurement response to 66:77:88:99:AA:BB\n"), 1u);
    host_.sendResult = 0;

    KvRssiMeasurement measurement = {};
    KvIntelVendMsg notify = {};
    notify.field10 = 9;
    notify.payload = &measurement;
    std::memcpy(notify.field11, "\x21\x22\x23\x24\x25\x26", 6);
    std::memcpy(notify.field18, "\x31\x32", 2);
    const std::string pushed = "000347 55CDABEF 060A 6A 00 212223242526 00 3132 0000";
    const auto push = [&](const Bytes &station) {
        host_.sent.clear();
        measurement = {};
        std::memcpy(measurement.staMac, station.data(), 6);
        measurement.rssi = 0xB0;
        return kvMAP1905_RssiMeasurementNotify_send(kAgent.data(), &notify);
    };
    EXPECT_EQ(push(fromHex("AABBCC001122")), 0);
    EXPECT_EQ(host_.sent.at(0).value, fromHex(pushed + "AABBCC001122 0000 028A 05A0 C3 1E 64 0000"));
    EXPECT_EQ(host_.sent[0].msgIdIn, 0);
    EXPECT_EQ(push(fromHex("AABBCC001144")), 1) << "unknown, but sent with the caller's figures";
    EXPECT_EQ(host_.sent.at(0).value, fromHex(pushed + "AABBCC001144 0000 0000 0000 B0 00 64 0000"));
    std::remove(kv::kStationFile5G);
    kv::runNetCtrl();
    EXPECT_EQ(push(fromHex("AABBCC001122")), 16) << "no stations at all; sent all the same";
    EXPECT_EQ(host_.sent.size(), 1u);
    host_.sendResult = 1;
    EXPECT_EQ(push(fromHex("AABBCC001122")), 16);
    EXPECT_EQ(logCount(4, "fail send rssi measurement notify to 66:77:88:99:AA:BB\n"), 1u);
    EXPECT_EQ(kvMAP1905_RssiMeasurementNotify_send(nullptr, &notify), 16);
    EXPECT_EQ(kvMAP1905_RssiMeasurementNotify_send(kAgent.data(), nullptr), 16);
    notify.payload = nullptr;
    EXPECT_EQ(kvMAP1905_RssiMeasurementNotify_send(kAgent.data(), &notify), 16);
}

TEST_F(Stations, OlderAgentsAreAskedWhenTheyTellTheirConfiguration) {
    const struct {
        const char *attributes;
        bool asked;
    } cases[] = {
        {"00", true},                  // none
        {"01 10 0003 332E30", false},  // protocol version "3.0"
        {"01 10 0000", true},
        {"01 10 0001 00", true},         // an empty one
        {"01 0B 0004 37313432", false},  // build 7142
        {"01 0B 0004 37313431", true},   // build 7141
        {"02 0B 0004 37313431 10 0003 332E30", false},
    };
    for (const auto &c : cases) {
        SCOPED_TRACE(c.attributes);
        host_.sent.clear();
        host_.receive(kAgent, message(kAgent, 1, fromHex("66778899AABB" + std::string(c.attributes))), 9);
        EXPECT_EQ(host_.sent.size(), c.asked ? 1u : 0u);
        if (c.asked) {
            EXPECT_EQ(host_.sent.at(0).value, message(kLocal, kStateRequest, fromHex("66778899AABB")));
            EXPECT_EQ(host_.sent[0].msgIdIn, 0);
        }
    }
    host_.sendResult = 1;
    EXPECT_EQ(kvMAP1905_WifiStateQuery_send(kAgent.data(), 1), 16);
    EXPECT_EQ(logCount(4, "fail send WiFi state query to 66:77:88:99:AA:BB\n"), 1u);
}

TEST_F(Stations, ThePeriodicRunReportsWhatItHasJustCollected) {
    writeFile(kv::kStationFile24G, stationLine(1));
    const auto run = [&](time_t when) {
        setClock(when);
        host_.sent.clear();
        kvMAP1905_MainLoop();
        return host_.sent.size();
    };
    host_.receive(kAgent, report(framed("0=0:0:0:0:0:1")), 1);
    setClock(1'000'601 - 10);
    kvMAP1905_MainLoop();
    EXPECT_EQ(agent().wifiNbrNum, 1u);
    setClock(1'000'601);
    host_.sendResult = 1;  // a line that tells when the report was sent
    clearLog();
    kvMAP1905_MainLoop();
    EXPECT_EQ(agent().wifiNbrNum, 0u) << "aged by the main loop";
    host_.sendResult = 0;
    kv::schedule().clear();
    EXPECT_EQ(run(1'000'000), 1u);
    EXPECT_EQ(run(1'000'009), 0u);
    EXPECT_EQ(run(1'000'010), 1u);
}
