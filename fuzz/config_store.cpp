// The two files of the platform's stand-in, configuration and settings: whatever stands in them, the stores offer
// whole objects and valid settings.
#include <filesystem>
#include <fstream>
#include <stdexcept>

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

void ignoreReport(const std::string &) {}

// False when a member that the service does not know cannot be written, such as an infinite number.
template <typename Change>
bool isDone(const Change &change) {
    try {
        change();
        return true;
    } catch (const std::runtime_error &) {
        return false;
    }
}

bool prepare() {
    setenv("KV_KCFG_FILE", kConfigPath, 1);
    setenv("KV_KCFG_DEFAULTS", kDefaultsPath, 1);
    setenv("KV_NVRAM_FILE", kSettingsPath, 1);
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
    for (const ConfigField &field : object.fields) {
        require(fieldFits(field, json_object_object_get(instance.get(), field.name)), "every field fits");
    }
    if (object.structSize != 0) {
        void *copy = structFromJson(object, instance.get());
        const JsonPtr before = store.instance(object, number);
        jsonFromStruct(object, copy, instance.get());
        require(json_object_equal(before.get(), instance.get()) != 0, "a structure holds the whole instance");
        std::free(copy);
    }
    store.setInstance(object, number, instance.get());
}

void checkInstances(ConfigStore &store) {
    for (const ConfigObject &object : kConfigObjects) {
        require(!object.single || store.count(object) == 1, "a single object has one instance");
        for (size_t number = 1; number <= store.count(object); ++number) {
            checkInstance(store, object, number);
        }
    }
}

void checkConfig(ConfigStore::Access access) {
    ConfigStore store(access, ignoreReport);
    checkInstances(store);
    if (access == ConfigStore::Access::Read) return;
    if (!isDone([&] { store.save(); })) return;
    ConfigStore again(ConfigStore::Access::Read,
                      [](const std::string &) { require(false, "what was saved is whole"); });
    checkInstances(again);
}

// A change keeps every other setting, and the store that is written is read without damage.
void checkChange(const std::string &changed, const std::optional<std::string> &value) {
    Settings expected = readSettings();
    changeSetting(changed, value);
    expected.values.erase(changed);
    if (value) expected.values[changed] = *value;
    const Settings after = readSettings();
    require(after.values == expected.values, "a change is stored as it was given, and keeps the other settings");
    require(after.damagedLine == 0 || !value, "no damaged line is written");
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
        const std::string changed = isSettingName(name) && name.size() < 100 ? name : "added";
        checkChange(changed, "=new value");
        return checkChange(changed, std::nullopt);
    }
    checkConfig((choice & 1) != 0 ? ConfigStore::Access::Read : ConfigStore::Access::Change);
    if ((choice & 2) != 0) isDone([&] { ConfigStore::reset((choice & 4) != 0, ignoreReport); });
}

}  // namespace kvfuzz
