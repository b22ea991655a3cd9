// Messages of other devices, the clock and the operator against one live plug-in: what one of them leaves behind, the
// next one meets.
#include <iterator>

#include "common/device_world.h"
#include "common/steps.h"
#include "protocol/message_row.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using kvtest::Call;

struct Peer {
    Mac mac = kvtest::kAgent;
    uint16_t msgId = 0x1000;  // of its messages; requests of the plug-in count from there
};

struct Story {
    DeviceWorld world;
    Peer peer;
};

// The catalogue's types, and one that it does not have.
const std::vector<uint16_t> &types() {
    static const std::vector<uint16_t> all = [] {
        std::vector<uint16_t> found;
        for (uint16_t type = 0; type < kv::VEND_MSG_TYPE_LIMIT; ++type) {
            if (kv::findMessageRow(type) != nullptr) {
                found.push_back(type);
            }
        }
        found.push_back(kv::VEND_MSG_TYPE_LIMIT);
        return found;
    }();
    return all;
}

uint16_t typeOf(const Step &step) {
    return types()[step.argument % types().size()];
}

// Hands over a value of exactly its size. A message that its decoder refuses changes nothing.
template <typename Entry>
void deliver(Story &story, const Bytes &value, Entry entry) {
    ExactBlock block(value);
    KvRecvVendTlv tlv = {};
    std::copy(story.peer.mac.begin(), story.peer.mac.end(), tlv.srcMac);
    tlv.value = block.data();
    const uint64_t before = story.world.digest();
    entry(&tlv, static_cast<uint32_t>(block.size()), story.peer.msgId);
    require(!DeviceWorld::refused() || story.world.digest() == before, "a refused message changes nothing");
}

void withLength(Story &story, const Bytes &value) {
    deliver(story, value, kvMAP1905_VendSpecTlv_handle);
}

void playMessage(Story &story, const Step &step) {
    withLength(story, kvtest::message(story.peer.mac, typeOf(step), step.body));
}

void playMessageWithoutLength(Story &story, const Step &step) {
    deliver(story, kvtest::message(story.peer.mac, typeOf(step), step.body),
            [](const KvRecvVendTlv *tlv, uint32_t, uint16_t id) { kvMAP1905_VendSpecMsg_handle(tlv, id); });
}

void playMessageWithWrongLength(Story &story, const Step &step) {
    Input in(step.body);
    const uint16_t claimed = in.u16();
    withLength(story, kvtest::message(story.peer.mac, typeOf(step), in.rest(), claimed));
}

void playValue(Story &story, const Step &step) {
    withLength(story, step.body);
}

void playIntel(Story &story, const Step &step) {
    Bytes value = {0x00, 0x03, 0x47, 0, 0, 0, 0, 0, 0, step.argument};
    value.insert(value.end(), step.body.begin(), step.body.end());
    withLength(story, value);
}

// Who speaks from now on: somebody known, or somebody that the host adds, forgets or knows by an interface alone.
void playPeer(Story &story, const Step &step) {
    constexpr Mac kMacs[] = {kvtest::kAgent, kSecondAgent, kvtest::kLocal, kvtest::kStranger};
    story.peer.mac = kMacs[step.argument % std::size(kMacs)];
    story.peer.msgId = static_cast<uint16_t>(0x1000 + step.argument / 4 % 8);
    Input in(step.body);
    switch (in.u8()) {
        case 1:
            story.world.host.owners[story.peer.mac] = kvtest::kAgent;
            break;
        case 2:
            story.world.host.owners.erase(story.peer.mac);
            break;
        default:
            break;
    }
}

void playAdvance(Story &story, const Step &step) {
    story.world.advance(step.argument * 3u);
}

void playClock(Story &story, const Step &step) {
    constexpr std::time_t kTimes[] = {1, kStart, INT32_MAX, UINT32_MAX, kStart - 1000};
    story.world.setClock(kTimes[step.argument % std::size(kTimes)]);
    kvMAP1905_MainLoop();
}

void askOnce(Story &story, const Step &step) {
    const uint8_t *mac = story.peer.mac.data();
    const KvRecvVendTlv source = {{0x66, 0x77, 0x88, 0x99, 0xAA, 0xBB}, nullptr};
    const uint8_t rest = step.argument / 8;
    switch (step.argument % 8) {
        case 0:
        case 1:
            kvMAP1905_ConfQuery_send(mac, rest);
            break;
        case 2:
            kvMAP1905_IntfPwrStateQuery_send(mac, rest);
            break;
        case 3:
            kvMAP1905_WifiStateQuery_send(mac, rest);
            break;
        case 4:
            kvMAP1905_SyncCtrlSettingReq_send(mac, rest % 3);
            break;
        case 5:
            kvMAP1905_ConfRespMsg_send(&source, story.peer.msgId, rest % 2);
            break;
        case 6:
            kvMAP1905_DeviceDm_init(&story.world.host.local());
            break;
        default:
            kvMAP1905_DeviceDm_update(&story.world.host.local());
            break;
    }
}

// The body's first byte tells how many times more: open queries fill a table.
void playQuery(Story &story, const Step &step) {
    const unsigned times = 1u + Input(step.body).u8() % 96;
    for (unsigned i = 0; i < times; ++i) {
        askOnce(story, step);
    }
}

// The buffer is as long as the code's record; a shorter body is zero-filled, and a text ends.
void playCommand(Story &, const Step &step) {
    constexpr struct {
        uint32_t code;
        size_t size;
    } kCodes[] = {
        {KV_CMD_REBOOT, KV_MAC_LEN},
        {KV_CMD_INTF_PWR_CTRL, sizeof(KvIntfPwrCtrlReq)},
        {KV_CMD_FW_CTRL, sizeof(KvFWCtrlReq)},
        {KV_CMD_RESET_DEFAULT, KV_MAC_LEN},
        {KV_CMD_FW_RESULT, 8},
        {KV_CMD_LED_CTRL, sizeof(KvLedCtrlReq)},
        {KV_CMD_PARTIAL_RESET_DEFAULT, KV_MAC_LEN},
        {KV_CMD_COMMAND, sizeof(KvCommandReq)},
        {KV_CMD_LOG_SETTING, 12},
        {KV_CMD_SYNC_CTRL_PWD, 0},
        {KV_CMD_SYNC_COUNTRY_BCN_REQ, KV_MAC_LEN},
        {KV_CMD_COUNTRY_IN_BCN, sizeof(SyncCtrlerCountryMsgData)},
        {KV_CMD_UPDATE_DEVICE_INFO, 0},
    };
    const auto &[code, recordSize] = kCodes[step.argument % std::size(kCodes)];
    Bytes buffer = step.body;
    buffer.resize(recordSize != 0 ? recordSize : buffer.size() + 1);
    ExactBlock block(buffer);
    kvMAP1905_VendSpecCmd_handle(block.data(), code);
}

void playDevice(Story &story, const Step &step) {
    kvtest::FakeHost &host = story.world.host;
    if ((step.argument & 1) == 0) {
        if (host.devices.count(story.peer.mac) == 0) {
            host.addDevice(story.peer.mac);
        }
        host.owners[story.peer.mac] = story.peer.mac;
        return;
    }
    const auto device = host.devices.find(story.peer.mac);
    if (device != host.devices.end() && story.peer.mac != kvtest::kLocal) {
        for (WIFINeighborEntry *station = device->second->wifiNbrHead; station != nullptr;) {
            WIFINeighborEntry *next = station->next;
            std::free(station);
            station = next;
        }
        std::free(device->second->security.secData);
        host.devices.erase(device);
    }
}

void playHost(Story &story, const Step &step) {
    story.world.host.sendResult = step.argument & 1;
    story.world.host.jsonResult = step.argument >> 1 & 1;
    story.world.host.local().rebootFromNbrCap = step.argument >> 2 & 1;
    story.world.host.local().intfPwrCtrlFromNbrCap = step.argument >> 3 & 1;
}

// Holds for the step behind it.
void playFailure(Story &story, const Step &step) {
    constexpr Call kCalls[] = {Call::Allocation, Call::Send,   Call::RunCommand, Call::OpenPipe,
                               Call::JsonWrite,  Call::Config, Call::Query};
    story.world.failNext(kCalls[step.argument % std::size(kCalls)], 1 + step.argument / std::size(kCalls) % 8);
}

using Play = void (*)(Story &story, const Step &step);

// The index is the step's kind.
constexpr Play kPlays[] = {playMessage,
                           playMessageWithoutLength,
                           playMessageWithWrongLength,
                           playValue,
                           playIntel,
                           playPeer,
                           playAdvance,
                           playClock,
                           playQuery,
                           playCommand,
                           playDevice,
                           playHost,
                           playFailure};

void prepareFiles() {
    writeFile(
        kConfigFile,
        "ModelName=KV-1\nFirmwareVersion=1.2\n24GMainSSID=home\n5GMainSSID=home5\n24GMainBSSID=02:00:00:00:00:01\n"
        "Mode=repeater\n24GMainIfname=wl0\n5GMainIfname=wl1\n24GPower=1\n5GPower=0\nLedEnable=1\n");
    writeFile(kVersionFile, "AppVersion=2.0\nL2DeviveCtrl=1\nWiFiAutoCfg=1\n");
    writeFile(kStations24File, "02:11:22:33:44:01 65000 -50 30 1 wl0 100 200 65000 52000 8\n");
    writeFile(kStations5File, "02:11:22:33:44:02 866000 -61 25 1 wl1 1 2 866000 650000 10\n");
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    static const bool prepared = (prepareFiles(), true);
    static_cast<void>(prepared);
    Story story;
    kvMAP1905_DeviceDm_init(&story.world.host.local());
    for (const Step &step : readSteps(data, size)) {
        const Play play = kPlays[step.kind % std::size(kPlays)];
        play(story, step);
        if (play != playFailure) {
            story.world.check();
        }
    }
    return 0;
}
