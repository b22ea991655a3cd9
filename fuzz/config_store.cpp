// The platform's configuration and settings files: with any content, its calls work and give whole objects.
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

// Every instance is the same after writing and reading. Writing may fail, because an unknown member of the file, such
// as an infinite number, cannot be written.
void checkInstances(uint32_t object, size_t size) {
    KcfgInstanceIndex index = {};
    void *copy = nullptr, *again = nullptr;
    while (kcfgFeObjStructGetNextWithoutUpdate(object, &index, &copy) == 0) {
        kcfgFeObjStructSetWithoutApply(object, &index, copy, nullptr);
        require(kcfgFeObjStructGetWithoutUpdate(object, &index, &again) == 0, "a structure can be read again");
        require(std::memcmp(copy, again, size) == 0, "a structure is the same after writing and reading");
        std::free(copy);
        std::free(again);
        json_object *json = nullptr;
        require(kcfgFeObjJsonGet(object, &index, &json) == 0, "each instance is an object");
        kcfgFeObjJsonSetWithoutApply(object, &index, json, nullptr);
        json_object_put(json);
    }
}

// A change keeps the other settings.
void checkChange(const std::string &name, const std::optional<std::string> &value) {
    std::map<std::string, std::string> expected = kvplatform::readSettings().values;
    kvplatform::changeSetting(name, value);
    expected.erase(name);
    if (value) expected[name] = *value;
    require(kvplatform::readSettings().values == expected, "a change is stored and keeps the other settings");
}

}  // namespace

// The first byte: 1 settings, 2 and 4 a reset, 8 a partial reset. The rest is the file.
void playInput(const Bytes &input) {
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
        checkChange(name, "=new value");
        return checkChange(name, std::nullopt);
    }
    if ((choice & 6) != 0) {
        kcfgFeReqSend((choice & 8) != 0 ? KCFG_REQ_PARTIAL_RESET_DEFAULT : KCFG_REQ_RESET_DEFAULT, nullptr, 0);
    }
    checkInstances(RDM_OID_NAT_INTF_SETTING, sizeof(RdmNatIntfSetting));
    checkInstances(RDM_OID_LED_CTRL, sizeof(RdmLedCtrl));
    checkInstances(RDM_OID_WIFI_RADIO, sizeof(RdmWifiRadio));
    checkInstances(RDM_OID_SYNC_KEY_SOURCE, sizeof(RdmSyncKeySource));
}

}  // namespace kvfuzz
