// One text, read as the settings file of the platform and as what "nvram show" prints to the plug-in.
#include <unistd.h>

#include <cstring>

#include "common/device_world.h"
#include "settings_store.h"
#include "support/captured_log.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using kvplatform::Setting;
using kvplatform::SettingsStore;

constexpr char kPath[] = "/tmp/settings";

void checkSorted(const SettingsStore &store) {
    const Setting *before = nullptr;
    for (const Setting &setting : store.settings()) {
        require(kvplatform::isSettingName(setting.name) && kvplatform::isSettingValue(setting.value), "valid settings");
        require(before == nullptr || std::strcmp(before->name, setting.name) < 0, "settings are sorted and unique");
        require(store.find(setting.name) == setting.value, "every setting is found");
        before = &setting;
    }
}

// A change keeps every other setting, and the store that is written is read without damage.
void checkChange(const std::string &text) {
    writeFile(kPath, text);
    SettingsStore store;
    require(store.refresh(kPath) == 0, "a small file is read");
    checkSorted(store);
    const std::string name = text.substr(0, text.find('='));
    const char *changed = kvplatform::isSettingName(name) && name.size() < 100 ? name.c_str() : "added";
    for (const char *value : {"=new value", static_cast<const char *>(nullptr)}) {
        require(kvplatform::changeSetting(kPath, changed, value) == 0, "a change succeeds");
        SettingsStore after;
        require(after.refresh(kPath) == 0 && after.damagedLine() == 0, "a written store is whole");
        const char *found = after.find(changed);
        require((found == nullptr) == (value == nullptr), "a change is found");
        require(found == nullptr || std::strcmp(found, value) == 0, "a change is stored as it was given");
        for (const Setting &setting : store.settings()) {
            const char *kept = after.find(setting.name);
            require(std::strcmp(setting.name, changed) == 0 || (kept != nullptr && !std::strcmp(kept, setting.value)),
                    "a change leaves the other settings alone");
        }
    }
}

void readAsDump(const std::string &text, uint8_t choice) {
    DeviceWorld world;
    world.nvramDump = text;
    const int role = kvMAP1905_findController();
    require(role == 0 || role == 1, "the controller's role is a flag");
    KvMdidInterfaceList list = {};
    list.InterfaceNumberOfEntries = choice % (KV_MAX_MDID_INTERFACES + 2);
    for (uint32_t i = 0; i < list.InterfaceNumberOfEntries && i < KV_MAX_MDID_INTERFACES; ++i) {
        list.interfaces[i].bssid[5] = static_cast<uint8_t>(i);
        std::snprintf(list.interfaces[i].ifname, sizeof list.interfaces[i].ifname, "wl%u.%u", i % 2, i);
    }
    ExactBlock buffer(Bytes(7 + 9 * KV_MAX_MDID_INTERFACES));
    for (int i = 0; i < 2; ++i) {  // from the dump, then from the last answer
        uint32_t length = 0;
        if (kvMAP1905_TlvMDID_insert(buffer.data(), &length, &list) == 0) {
            require(length == 7 + 9 * list.InterfaceNumberOfEntries, "the element is as long as its list");
        }
    }
    kvtest::nvram() = {{"wl0_extattr", text.c_str()}, {"wl1.2_extattr", text.c_str()}};
    KvBssInfo bss = {};
    const Bytes elements = {1, 1, static_cast<uint8_t>(choice)};
    kvMAP1905_parameter_init(elements.data(), &bss);
    world.check();
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    Input in(data, size);
    const uint8_t choice = in.u8();
    const std::string text = in.text(4096);
    checkChange(text);
    readAsDump(text, choice);
    return 0;
}
