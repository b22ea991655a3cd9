// The device's own files, which other components write: configuration, version, stations, and what commands print.
#include <sys/stat.h>
#include <utime.h>

#include <iterator>

#include "common/device_world.h"
#include "common/steps.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

// Written files look newer than what was loaded before.
void renew(DeviceWorld &world, const std::string &path, const Bytes &body) {
    writeFile(path, {body.begin(), body.end()});
    world.setClock(world.now + 1);
    const utimbuf times = {world.now, world.now};
    utime(path.c_str(), &times);
}

struct Place {
    const std::string *file;           // or
    std::string DeviceWorld::*output;  // of a command
};

const Place kPlaces[] = {
    {&kConfigFile, nullptr},           {&kVersionFile, nullptr},         {&kStations24File, nullptr},
    {&kStations5File, nullptr},        {nullptr, &DeviceWorld::channel}, {nullptr, &DeviceWorld::address},
    {nullptr, &DeviceWorld::password},
};

void loadEverything(DeviceWorld &world, uint8_t choice) {
    KvDevVendorData &local = world.host.local();
    kvMAP1905_param_update();
    require(kvFlags <= 0xF, "the flags are the four known ones");
    if ((choice & 1) != 0) {
        kvMAP1905_DeviceDm_init(&local);
    }
    kvMAP1905_DeviceDm_update(&local);
    for (const uint32_t mediaType : {0x0103u, 0x0105u, 0x0001u}) {
        KvIntfVendorData intf = {};
        kvMAP1905_DevIntfDm_init(&intf, mediaType);
        require(intf.pwrState == 0 || intf.pwrState == 2 || intf.pwrState == 255, "a known power state");
    }
    world.advance(130);
    kvMAP1905_ConfRespMsg_send(nullptr, 0, 1);  // tells all that was read
    kvMAP1905_VendSpecCmd_handle(nullptr, KV_CMD_UPDATE_DEVICE_INFO);
    if ((choice & 2) != 0) {  // the password, which a request makes this device read
        Bytes payload(kvtest::kLocal.begin(), kvtest::kLocal.end());
        world.host.receive(kvtest::kAgent, kvtest::message(kvtest::kAgent, 70, payload), 1);
    }
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    for (const Place &place : kPlaces) {
        if (place.file != nullptr) {
            std::remove(place.file->c_str());
        }
    }
    DeviceWorld world;
    for (const Step &step : readSteps(data, size)) {
        const Place &place = kPlaces[step.kind % std::size(kPlaces)];
        if (place.file != nullptr) {
            renew(world, *place.file, step.body);
        } else {
            world.*place.output = {step.body.begin(), step.body.end()};
        }
        loadEverything(world, step.argument);
        world.check();
    }
    return 0;
}
