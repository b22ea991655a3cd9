// The configuration file of the platform's stand-in: whatever stands in it, the store offers whole objects.
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <fstream>

#include "common/input.h"
#include "kcfg_store.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using namespace kvplatform;

constexpr char kPath[] = "/tmp/kcfg.json";
constexpr char kDefaultsPath[] = "/tmp/kcfg_defaults.json";
constexpr int kDamagedFiles = 9;

void checkReport(int, const char *text) {
    require(std::strchr(text, '\n') == nullptr || std::strstr(text, ".json") != nullptr, "a report is one line");
}

void prepare() {
    setenv("KV_KCFG_FILE", kPath, 1);
    setenv("KV_KCFG_DEFAULTS", kDefaultsPath, 1);
    std::ofstream(kDefaultsPath) << R"({
"RDM_OID_NAT_INTF_SETTING": [{"userName": "admin", "password": "admin"}, {"userName": "user", "password": "user"}],
"RDM_OID_FACTORY_RESET": [{"FactoryResetUnpurgedList": 0}],
"RDM_OID_LED_CTRL": [{"enable": 1}],
"RDM_OID_WIFI_RADIO": [{"ifName": "wl0", "countryCode": "DE", "countryInBeacon": "DE"}],
"RDM_OID_SYNC_KEY_SOURCE": [{"key": "key"}]})";
}

// Every instance is whole; as a structure it goes back into the file.
void checkInstances(ConfigStore &store) {
    for (const ConfigObject &object : kConfigObjects) {
        require(!object.single || store.count(object) == 1, "a single object has one instance");
        for (size_t number = 1; number <= store.count(object); ++number) {
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
    }
}

void clean() {
    unlink(kPath);
    for (int i = 1; i <= kDamagedFiles; ++i) {
        unlink((std::string(kPath) + ".damaged-" + std::to_string(i)).c_str());
    }
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    static const bool prepared = (prepare(), true);
    static_cast<void>(prepared);
    Input in(data, size);
    const uint8_t choice = in.u8();
    std::ofstream(kPath, std::ios::binary) << in.text(1 << 16);
    {
        ConfigStore store(checkReport);
        require((choice & 1) != 0 ? store.openToRead() : store.openToChange(), "any file opens");
        checkInstances(store);
        store.noteApplied();
        if ((choice & 1) == 0 && store.save()) {
            ConfigStore again(checkReport);
            require(again.openToRead(), "what was saved opens");
            checkInstances(again);
        }
    }
    if ((choice & 2) != 0) {
        require(ConfigStore::reset(checkReport, (choice & 4) != 0), "a reset succeeds");
    }
    clean();
    return 0;
}
