// The device's own files, which other components write: configuration, version, stations, and what commands print.
#include <cstring>
#include <iterator>

#include "common/device_world.h"
#include "common/story.h"
#include "ieee1905/bss_elements.h"
#include "protocol/message_row.h"
#include "support/captured_log.h"

namespace kvfuzz {

namespace {

// What a step writes: a file, what a command prints, or, with the next kind, a setting that the plug-in asks for.
const std::string *const kFiles[] = {&kConfigFile, &kVersionFile, &kStations24File, &kStations5File};
constexpr std::string DeviceWorld::*kOutputs[] = {&DeviceWorld::channel, &DeviceWorld::address, &DeviceWorld::password,
                                                  &DeviceWorld::nvramDump};
constexpr size_t kSetting = std::size(kFiles) + std::size(kOutputs);

// The element for the host's BSSs, from the dump and then from the last answer, is one that the host reads.
void checkMdids(size_t count) {
    KvMdidInterfaceList list = {};
    list.InterfaceNumberOfEntries = static_cast<uint32_t>(count);
    for (size_t i = 0; i < std::min(count, std::size(list.interfaces)); ++i) {
        std::strcpy(list.interfaces[i].ifname, ("wl" + std::to_string(i % 2) + "." + std::to_string(i)).c_str());
    }
    ExactBlock buffer(Bytes(7 + 9 * KV_MAX_MDID_INTERFACES));
    for (int i = 0; i < 2; ++i) {
        uint32_t length = 0;
        kv1905d::BssElements elements;
        require(kvMAP1905_TlvMDID_insert(buffer.data(), &length, &list) != 0 ||
                    (kv1905d::readBssElement({buffer.data(), length}, elements) && elements.mdids.size() == count),
                "the host reads the plug-in's MDIDs");
    }
}

void loadEverything(DeviceWorld &world, uint8_t choice) {
    kvMAP1905_param_update();
    if ((choice & 1) != 0) kvMAP1905_DeviceDm_init(&world.host.local());
    require(kvFlags <= 0xF && controller <= 1, "the flags are the four known ones, the role is one of two");
    kvMAP1905_DeviceDm_update(&world.host.local());
    for (const uint32_t mediaType : {0x0103u, 0x0105u, 0x0001u}) {
        KvIntfVendorData intf = {};
        kvMAP1905_DevIntfDm_init(&intf, mediaType);
        require(intf.pwrState == 0 || intf.pwrState == 2 || intf.pwrState == 255, "a known power state");
    }
    world.advance(130);
    kvMAP1905_ConfRespMsg_send(nullptr, 0, 1);  // tells all that was read
    kvMAP1905_VendSpecCmd_handle(nullptr, KV_CMD_UPDATE_DEVICE_INFO);
    if ((choice & 2) != 0) {  // the password, which a request makes this device read
        const Bytes payload(kvtest::kLocal.begin(), kvtest::kLocal.end());
        world.host.receive(kvtest::kAgent,
                           kvtest::message(kvtest::kAgent, VEND_MSG_TYPE_SYNC_CTRL_PWD_REQ, payload), 1);
    }
    checkMdids(choice / 4 % (KV_MAX_MDID_INTERFACES + 2));
}

void play(DeviceWorld &world, const Step &step) {
    const std::string text(step.body.begin(), step.body.end());
    const size_t kind = step.kind % (kSetting + 1);
    if (kind < std::size(kFiles)) {
        writeFile(*kFiles[kind], text);
    } else if (kind < kSetting) {
        world.*kOutputs[kind - std::size(kFiles)] = text;
    } else {
        KvBssInfo bss = {};
        const Bytes elements = {1, 1, step.argument};
        kvtest::nvram() = {{"wl0_extattr", text.c_str()}, {"wl1.2_extattr", text.c_str()}};
        kvMAP1905_parameter_init(elements.data(), &bss);
    }
    loadEverything(world, step.argument);
}

}  // namespace

void playInput(Input in) {
    for (const std::string *file : kFiles) {
        std::remove(file->c_str());
    }
    DeviceWorld world;
    playStory(readSteps(in), world, {play});
}

}  // namespace kvfuzz
