#include "support/fake_config_service.h"

#include <json-c/json.h>

#include <cstdlib>
#include <cstring>

#include "support/captured_log.h"
#include "support/fake_system.h"

namespace kvtest {

ConfigService &configService() {
    static ConfigService service;
    return service;
}

namespace {

bool enter(const std::string &call) {
    note((call == "get" || call == "jsonGet" ? "reads config " : "config ") + call);
    return !callFails(Call::Config) && configService().failing != call;
}

}  // namespace

}  // namespace kvtest

using kvtest::configService;

namespace {

// Where an instance lies, counted from 1; null when there is none.
struct Place {
    void *record = nullptr;
    size_t size = 0;
};

template <typename Record>
Place placeIn(std::vector<Record> &records, size_t instance) {
    if (instance < 1 || instance > records.size()) {
        return {};
    }
    return {&records[instance - 1], sizeof(Record)};
}

Place placeOf(uint32_t object, const KcfgInstanceIndex &index) {
    auto &service = configService();
    const size_t instance = index.level == 1 ? index.instance[0] : 0;
    switch (object) {
        case RDM_OID_LED_CTRL:
            return index.level == 0 ? Place{&service.led, sizeof service.led} : Place{};
        case RDM_OID_NAT_INTF_SETTING:
            return placeIn(service.accounts, instance);
        case RDM_OID_WIFI_RADIO:
            return placeIn(service.radios, instance);
        case RDM_OID_SYNC_KEY_SOURCE:
            return placeIn(service.keys, instance);
        default:
            return {};
    }
}

int get(uint32_t object, const KcfgInstanceIndex &index, void **copy) {
    const Place place = placeOf(object, index);
    *copy = nullptr;
    if (place.record == nullptr) {
        return -1;
    }
    *copy = std::malloc(place.size);
    std::memcpy(*copy, place.record, place.size);
    return 0;
}

int set(uint32_t object, const KcfgInstanceIndex &index, const void *value, const char *options) {
    const Place place = placeOf(object, index);
    const int failing = configService().failingInstance;
    if (place.record == nullptr || options != nullptr || (failing != 0 && index.instance[0] == failing)) {
        return -1;
    }
    std::memcpy(place.record, value, place.size);
    return 0;
}

}  // namespace

int kcfgFeObjStructGetWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    *copy = nullptr;
    return kvtest::enter("get") ? get(object, *index, copy) : -1;
}

int kcfgFeObjStructGetNextWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    if (kvtest::callFails(kvtest::Call::Config)) {
        return -1;
    }
    index->instance[0] = static_cast<uint8_t>(index->level == 0 ? 1 : index->instance[0] + 1);
    index->level = 1;
    return get(object, *index, copy);
}

int kcfgFeObjStructSet(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return kvtest::enter("set") ? set(object, *index, value, options) : -1;
}

int kcfgFeObjStructSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return kvtest::enter("setQuietly") ? set(object, *index, value, options) : -1;
}

int kcfgFeObjJsonGet(uint32_t object, KcfgInstanceIndex *, json_object **copy) {
    *copy = nullptr;
    if (!kvtest::enter("jsonGet") || object != RDM_OID_FACTORY_RESET) {
        return -1;
    }
    *copy = configService().unpurgedIsNumber ? json_object_new_int(1) : json_object_new_object();
    return 0;
}

int kcfgFeObjJsonSetWithoutApply(uint32_t, KcfgInstanceIndex *, json_object *value, const char *options) {
    if (!kvtest::enter("jsonSet") || options != nullptr) {
        return -1;
    }
    configService().unpurged = json_object_get_int(json_object_object_get(value, "FactoryResetUnpurgedList"));
    return 0;
}

int kcfgFeReqSend(uint32_t request, const void *payload, uint32_t length) {
    return kvtest::enter("req" + std::to_string(request)) && payload == nullptr && length == 0 ? 0 : -1;
}
