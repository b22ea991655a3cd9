// The platform's configuration and settings files: with any content, its calls work and return complete objects.
#include <json-c/json.h>
#include <kv1905/kcfg.h>

#include <cstring>
#include <filesystem>
#include <fstream>

#include "fuzz.h"
#include "settings_store.h"

namespace kvfuzz {

namespace {

constexpr char kDirectory[] = "/tmp/config", kConfig[] = "/tmp/config/kcfg.json", kSettings[] = "/tmp/config/settings";

// Requires every instance to be the same after writing and reading. Writing may fail, because an unknown member of the
// file, such as an infinite number, cannot be written.
template <typename Record>
void checkInstances(uint32_t object) {
    KcfgInstanceIndex index = {};
    void *copy = nullptr, *again = nullptr;
    while (kcfgFeObjStructGetNextWithoutUpdate(object, &index, &copy) == 0) {
        kcfgFeObjStructSetWithoutApply(object, &index, copy, nullptr);
        json_object *json = nullptr;
        require(kcfgFeObjJsonGet(object, &index, &json) == 0, "each instance is an object");
        kcfgFeObjJsonSetWithoutApply(object, &index, json, nullptr);
        json_object_put(json);
        require(kcfgFeObjStructGetWithoutUpdate(object, &index, &again) == 0 &&
                    std::memcmp(copy, again, sizeof(Record)) == 0,
                "an instance is the same after writing and reading");
        std::free(copy);
        std::free(again);
    }
}

}  // namespace

// The first byte: 1 settings, 2 and 4 a reset, 8 a partial reset. The rest is the file.
void runInput(const Bytes &input) {
    setenv("KV_KCFG_FILE", kConfig, 1);
    setenv("KV_NVRAM_FILE", kSettings, 1);
    const uint8_t choice = input.empty() ? 0 : input[0];
    const std::string text(input.begin() + !input.empty(), input.end());
    std::filesystem::remove_all(kDirectory);
    std::filesystem::create_directory(kDirectory);
    std::ofstream((choice & 1) != 0 ? kSettings : kConfig, std::ios::binary) << text;
    if ((choice & 1) != 0) {
        const std::string name = text.substr(0, text.find('='));
        if (!kvplatform::isSettingName(name)) return;
        auto expected = kvplatform::readSettings().values;
        kvplatform::changeSetting(name, expected[name] = "=new value");
        require(kvplatform::readSettings().values == expected, "a change is stored and keeps the other settings");
        kvplatform::changeSetting(name, std::nullopt);
        expected.erase(name);
        return require(kvplatform::readSettings().values == expected, "a removal keeps the other settings");
    }
    if ((choice & 6) != 0)
        kcfgFeReqSend((choice & 8) != 0 ? KCFG_REQ_PARTIAL_RESET_DEFAULT : KCFG_REQ_RESET_DEFAULT, nullptr, 0);
    checkInstances<RdmNatIntfSetting>(RDM_OID_NAT_INTF_SETTING);
    checkInstances<RdmLedCtrl>(RDM_OID_LED_CTRL);
    checkInstances<RdmWifiRadio>(RDM_OID_WIFI_RADIO);
    checkInstances<RdmSyncKeySource>(RDM_OID_SYNC_KEY_SOURCE);
}

}  // namespace kvfuzz
