// Messages of other devices, the clock and the operator against one live plug-in: what one of them leaves behind, the
// next one meets.
#include <cstring>
#include <iterator>

#include "command/protocol.h"
#include "common/device_world.h"
#include "common/story.h"
#include "features/wifi_clients/client_report_codec.h"
#include "features/wifi_clients/station_list.h"
#include "frame/identity.h"
#include "protocol/intel_message.h"
#include "protocol/message_row.h"

namespace kvfuzz {

namespace {

using kvtest::Call;

struct Story : DeviceWorld {
    Mac peer = kvtest::kAgent;  // speaks from now on
    uint16_t msgId = 0x1000;    // of its messages; requests of the plug-in count from there
};

// The numbered fields and the station of an answer to Intel's request are the request's.
void checkIntelAnswer(const Bytes &request, const Bytes &answer) {
    constexpr ptrdiff_t kCopied[][2] = {{3, 9}, {11, 17}, {18, 20}, {22, 28}};  // first, behind the last
    if (answer[0] != 0x00) return;
    require(request.size() >= kv::kIntelRequestLen, "a short request is not answered");
    for (const auto &[first, end] : kCopied) {
        require(std::equal(request.begin() + first, request.begin() + end, answer.begin() + first),
                "an answer carries the request's fields and station back");
    }
}

bool isSame(const KvBssInfo &a, const KvBssInfo &b) {
    return a.BandIndex == b.BandIndex && a.Attribute == b.Attribute && a.MDID == b.MDID && a.TCI == b.TCI;
}

// Hands over a value of exactly its size. A message that its decoder refuses changes nothing.
template <typename Entry>
void deliver(Story &story, const Bytes &value, Entry entry) {
    ExactBlock block(value);
    KvRecvVendTlv tlv = {};
    std::copy(story.peer.begin(), story.peer.end(), tlv.srcMac);
    tlv.value = block.data();
    const std::string before = story.state();
    entry(&tlv, static_cast<uint32_t>(block.size()), story.msgId);
    require(!DeviceWorld::refused() || story.state() == before, "a refused message changes nothing");
    for (const kvtest::Sent &sent : story.host.sent) {
        checkIntelAnswer(value, sent.value);
    }
}

void withoutLength(const KvRecvVendTlv *tlv, uint32_t, uint32_t msgId) {
    kvMAP1905_VendSpecMsg_handle(tlv, msgId);
}

template <auto entry>
void playMessage(Story &story, const Step &step) {
    const uint16_t type = step.argument % (VEND_MSG_TYPE_LIMIT + 1);
    deliver(story, kvtest::message(story.peer, type, step.body), entry);
}

void playIntelWithoutLength(Story &story, const Step &step) {
    Bytes value = step.body;
    value.resize(kv::kIntelRequestLen);
    deliver(story, value,
            [](const KvRecvVendTlv *tlv, uint32_t, uint32_t id) { kvMAP1905_VendSpecMsg_handle_Intel(tlv, id); });
}

void playIntelSend(Story &story, const Step &step) {
    KvIntelVendMsg msg = {};
    KvRssiMeasurement measurement = {};
    Bytes records = step.body;
    records.resize(sizeof msg + sizeof measurement);
    std::memcpy(&msg, records.data(), sizeof msg);
    std::memcpy(&measurement, records.data() + sizeof msg, sizeof measurement);
    std::memcpy(msg.oui, kv::kIntelOui, sizeof msg.oui);
    msg.payload = (step.argument & 2) != 0 ? nullptr : &measurement;
    if ((step.argument & 1) != 0) {
        kvMAP1905_RssiMeasurementNotify_send(story.peer.data(), &msg);
    } else {
        kvMAP1905_IntelVenderSpecMsg_send(story.peer.data(), &story.msgId, &msg);
    }
}

// Somebody known, or somebody that the host adds, forgets or knows by an interface alone.
void playPeer(Story &story, const Step &step) {
    constexpr Mac kMacs[] = {kvtest::kAgent, kSecondAgent, kvtest::kLocal, kvtest::kStranger};
    story.peer = kMacs[step.argument % std::size(kMacs)];
    story.msgId = static_cast<uint16_t>(0x1000 + step.argument / 4 % 8);
    const uint8_t change = Input(step.body).u8();
    if (change == 1) story.host.owners[story.peer] = kvtest::kAgent;
    if (change == 2) story.host.owners.erase(story.peer);
}

void playClock(Story &story, const Step &step) {
    constexpr std::time_t kTimes[] = {1, kStart, INT32_MAX, UINT32_MAX, kStart - 1000};
    story.now = kTimes[step.argument % std::size(kTimes)];
    story.advance(0);
}

using Entry = void (*)(Story &story, uint8_t choice);

constexpr Entry kEntries[] = {
    [](Story &story, uint8_t retry) { kvMAP1905_ConfQuery_send(story.peer.data(), retry); },
    [](Story &story, uint8_t retry) { kvMAP1905_IntfPwrStateQuery_send(story.peer.data(), retry); },
    [](Story &story, uint8_t retry) { kvMAP1905_WifiStateQuery_send(story.peer.data(), retry); },
    [](Story &story, uint8_t command) { kvMAP1905_SyncCtrlSettingReq_send(story.peer.data(), command % 3); },
    [](Story &story, uint8_t mcast) {
        const KvRecvVendTlv source = {{0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB}, nullptr};
        kvMAP1905_ConfRespMsg_send(&source, story.msgId, mcast % 2);
    },
    [](Story &story, uint8_t) { kvMAP1905_DeviceDm_init(&story.host.local()); },
    [](Story &story, uint8_t) { kvMAP1905_DeviceDm_update(&story.host.local()); },
};

// The body's first byte tells how many times more: open queries fill a table.
void playEntry(Story &story, const Step &step) {
    for (int more = Input(step.body).u8() % 96; more >= 0; --more) {
        kEntries[step.argument % 8 % std::size(kEntries)](story, step.argument / 8);
    }
}

// The text of a report of stations. One that is not taken over changes nothing.
void playReport(Story &story, const Step &step) {
    const Bytes text = Input(step.body).bytes(kv::kMaxReportText);
    const Bytes length = {static_cast<uint8_t>(text.size() >> 8), static_cast<uint8_t>(text.size())};
    const Bytes payload = join(story.peer, length, text);
    const int writes = story.host.jsonWrites;
    const std::string before = story.state();
    story.host.receive(story.peer, kvtest::message(story.peer, VEND_MSG_TYPE_WIFI_CLIENT_MCAST2, payload), 1);
    require(story.host.jsonWrites != writes || story.state() == before, "a refused report changes nothing");
}

// A BSS of a neighbour's onboarding, from the vendor ID on. What is read is written and read again.
void playBss(Story &, const Step &step) {
    constexpr uint32_t kAttributeHeader = 4, kAttributeLen = 24;
    constexpr size_t kInOrderRoom = 18;  // what the parser without a length may look at
    const ExactBlock exact(step.body);
    Bytes padded = step.body;
    padded.resize(std::max(padded.size(), kInOrderRoom));
    KvBssInfo bss = {}, again = {}, inOrder = {};
    kvMAP1905_ApCfg_parse(ExactBlock(padded).data(), &inOrder);
    if (kvMAP1905_ApCfg_parse_check_len(exact.data(), static_cast<uint32_t>(exact.size()), &bss) != 0) return;
    const ExactBlock attribute{Bytes(kAttributeLen)};
    const uint8_t *written = attribute.data() + kAttributeHeader;
    require(kvMAP1905_ApCfg_fill(attribute.data(), 0, &bss) == kAttributeLen &&
                kvMAP1905_ApCfg_parse_check_len(written, kAttributeLen - kAttributeHeader, &again) == 0 &&
                isSame(bss, again) && bss.ExtAttribute == again.ExtAttribute,
            "a BSS survives writing and reading");
    require(kvMAP1905_ApCfg_parse(written, &inOrder) == 0 && isSame(bss, inOrder), "both parsers read a BSS alike");
}

// The buffer is as long as the code's record; a shorter body is zero-filled, and a text ends.
void playCommand(Story &, const Step &step) {
    const uint32_t code = 100u + step.argument;
    const kv1905d::CommandRow *row = kv1905d::findCommandRow(code);
    Bytes buffer = step.body;
    buffer.resize(row != nullptr && code != KV_CMD_SYNC_CTRL_PWD ? row->size : buffer.size() + 1);
    kvMAP1905_VendSpecCmd_handle(ExactBlock(buffer).data(), code);
}

void playDevice(Story &story, const Step &step) {
    auto &devices = story.host.devices;
    const auto device = devices.find(story.peer);
    if ((step.argument & 1) == 0) {
        story.host.owners[story.peer] = story.peer;
        if (device == devices.end()) story.host.addDevice(story.peer);
    } else if (device != devices.end() && story.peer != kvtest::kLocal) {
        kv::FreeLinked()(device->second->wifiNbrHead);
        std::free(device->second->security.secData);
        devices.erase(device);
    }
}

void playHost(Story &story, const Step &step) {
    story.host.sendResult = step.argument & 1;
    story.host.jsonResult = step.argument >> 1 & 1;
    story.host.local().rebootFromNbrCap = step.argument >> 2 & 1;
    story.host.local().intfPwrCtrlFromNbrCap = step.argument >> 3 & 1;
}

void playFailure(Story &story, const Step &step) {
    constexpr Call kCalls[] = {Call::Allocation, Call::Send,   Call::RunCommand, Call::OpenPipe,
                               Call::JsonWrite,  Call::Config, Call::Query};
    story.failNext(kCalls[step.argument % std::size(kCalls)], 1 + step.argument / std::size(kCalls) % 8);
}

// The index is the step's kind.
constexpr Play<Story> kPlays[] = {
    playMessage<kvMAP1905_VendSpecTlv_handle>, playMessage<withoutLength>,
    // of any making: with a length of its own, or of another maker
    [](Story &story, const Step &step) { deliver(story, step.body, kvMAP1905_VendSpecTlv_handle); },
    playIntelWithoutLength, playIntelSend, playPeer,
    [](Story &story, const Step &step) { story.advance(step.argument * 3); }, playClock, playEntry, playCommand,
    playDevice, playHost, playFailure, playReport, playBss};

bool writeFiles() {
    writeFile(
        kConfigFile,
        "ModelName=KV-1\nFirmwareVersion=1.2\n24GMainSSID=home\n5GMainSSID=home5\n24GMainBSSID=02:00:00:00:00:01\n"
        "Mode=repeater\n24GMainIfname=wl0\n5GMainIfname=wl1\n24GPower=1\n5GPower=0\nLedEnable=1\n");
    writeFile(kVersionFile, "AppVersion=2.0\nL2DeviveCtrl=1\nWiFiAutoCfg=1\n");
    writeFile(kStations24File, "02:11:22:33:44:01 65000 -50 30 1 wl0 100 200 65000 52000 8\n");
    writeFile(kStations5File, "02:11:22:33:44:02 866000 -61 25 1 wl1 1 2 866000 650000 10\n");
    return true;
}

}  // namespace

void playInput(Input in) {
    [[maybe_unused]] static const bool isPrepared = writeFiles();
    Story story;
    kvMAP1905_DeviceDm_init(&story.host.local());
    playStory(readSteps(in), story, kPlays);
}

}  // namespace kvfuzz
