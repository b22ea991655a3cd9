// The two files of the platform's stand-in, configuration and settings: whatever stands in them, the stores offer
// whole objects and valid settings.
#include <cstring>
#include <filesystem>
#include <fstream>
#include <utility>

#include "common/input.h"
#include "kcfg_store.h"
#include "settings_store.h"

namespace kvfuzz {

namespace {

using namespace kvplatform;

constexpr char kDirectory[] = "/tmp/config";
constexpr char kConfigPath[] = "/tmp/config/kcfg.json";
constexpr char kDefaultsPath[] = "/tmp/kcfg_defaults.json";
constexpr char kSettingsPath[] = "/tmp/config/settings";

void checkReport(int, const char *text) {
    require(std::strchr(text, '\n') == nullptr || std::strstr(text, ".json") != nullptr, "a report is one line");
}

bool prepare() {
    setenv("KV_KCFG_FILE", kConfigPath, 1);
    setenv("KV_KCFG_DEFAULTS", kDefaultsPath, 1);
    std::ofstream(kDefaultsPath) << R"({
"RDM_OID_NAT_INTF_SETTING": [{"userName": "admin", "password": "admin"}, {"userName": "user", "password": "user"}],
"RDM_OID_FACTORY_RESET": [{"FactoryResetUnpurgedList": 0}],
"RDM_OID_LED_CTRL": [{"enable": 1}],
"RDM_OID_WIFI_RADIO": [{"ifName": "wl0", "countryCode": "DE", "countryInBeacon": "DE"}],
"RDM_OID_SYNC_KEY_SOURCE": [{"key": "key"}]})";
    return true;
}

// Whole, and as a structure it goes back into the file.
void checkInstance(ConfigStore &store, const ConfigObject &object, size_t number) {
    const JsonPtr instance = store.instance(object, number);
    require(instance != nullptr, "every counted instance is there");
    for (const ConfigField &field : object.fields) {
        require(fieldFits(field, json_object_object_get(instance.get(), field.name)), "every field fits");
    }
    if (object.structSize != 0) {
        void *copy = structFromJson(object, instance.get());
        require(copy != nullptr, "an instance fits its structure");
        const JsonPtr before = store.instance(object, number);
        require(jsonFromStruct(object, copy, instance.get(), checkReport), "a structure goes back");
        require(json_object_equal(before.get(), instance.get()) != 0, "a structure holds the whole instance");
        std::free(copy);
    }
    require(store.setInstance(object, number, instance.get()), "a whole instance is taken");
}

void checkInstances(ConfigStore &store) {
    for (const ConfigObject &object : kConfigObjects) {
        require(!object.single || store.count(object) == 1, "a single object has one instance");
        for (size_t number = 1; number <= store.count(object); ++number) {
            checkInstance(store, object, number);
        }
    }
}

void checkConfig(bool toRead) {
    ConfigStore store(checkReport);
    require(toRead ? store.openToRead() : store.openToChange(), "any file opens");
    checkInstances(store);
    store.noteApplied();
    if (!toRead && store.save()) {
        ConfigStore again(checkReport);
        require(again.openToRead(), "what was saved opens");
        checkInstances(again);
    }
}

SettingsStore readSettings() {
    SettingsStore store;
    require(store.refresh(kSettingsPath) == 0, "a small file is read");
    return store;
}

bool holds(const SettingsStore &store, const char *name, const char *value) {
    const char *found = store.find(name);
    return value == nullptr ? found == nullptr : found != nullptr && std::strcmp(found, value) == 0;
}

// A change keeps every other setting, and the store that is written is read without damage.
void checkChange(const char *changed, const char *value) {
    const SettingsStore before = readSettings();
    require(changeSetting(kSettingsPath, changed, value) == 0, "a change succeeds");
    const SettingsStore after = readSettings();
    require(after.damagedLine() == 0 && holds(after, changed, value), "a change is stored as it was given");
    for (const auto &[name, kept] : before.settings()) {
        require(isSettingName(name) && isSettingValue(kept), "valid settings");
        require(std::strcmp(name, changed) == 0 || holds(after, name, kept), "a change keeps the other settings");
    }
}

}  // namespace

// The first byte: 1 open to read, 2 reset, 4 partially, 8 settings.
void playInput(Input in) {
    [[maybe_unused]] static const bool isPrepared = prepare();
    const uint8_t choice = in.u8();
    const Bytes bytes = in.rest();
    const std::string text(bytes.begin(), bytes.end());
    std::filesystem::remove_all(kDirectory);
    std::filesystem::create_directory(kDirectory);
    std::ofstream((choice & 8) != 0 ? kSettingsPath : kConfigPath, std::ios::binary) << text;
    if ((choice & 8) != 0) {
        const std::string name = text.substr(0, text.find('='));
        const char *changed = isSettingName(name) && name.size() < 100 ? name.c_str() : "added";
        checkChange(changed, "=new value");
        return checkChange(changed, nullptr);
    }
    checkConfig((choice & 1) != 0);
    require((choice & 2) == 0 || ConfigStore::reset(checkReport, (choice & 4) != 0), "a reset succeeds");
}

}  // namespace kvfuzz
