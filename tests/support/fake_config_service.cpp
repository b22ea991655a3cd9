#include "support/fake_config_service.h"

#include <json-c/json.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <span>

#include "support/fake_system.h"

using kvtest::configService;

namespace {

// Notes the call and returns whether it works.
bool enter(const std::string &call) {
    kvtest::notes.push_back((call == "get" || call == "jsonGet" ? "reads config " : "config ") + call);
    return !kvtest::callFails("kcfg");
}

// Returns the record of an instance, empty when there is none.
std::span<uint8_t> recordOf(uint32_t object, const KcfgInstanceIndex &index) {
    auto &service = configService;
    const auto bytes = [](auto &record) { return std::span(reinterpret_cast<uint8_t *>(&record), sizeof record); };
    const size_t at = index.level == 1 ? index.instance[0] - 1u : SIZE_MAX;
    if (object == RDM_OID_LED_CTRL && index.level == 0) return bytes(service.led);
    if (object == RDM_OID_NAT_INTF_SETTING && at < service.accounts.size()) return bytes(service.accounts[at]);
    if (object == RDM_OID_WIFI_RADIO && at < service.radios.size()) return bytes(service.radios[at]);
    if (object == RDM_OID_SYNC_KEY_SOURCE && at == 0 && service.key.key[0] != '\0') return bytes(service.key);
    return {};
}

int get(uint32_t object, const KcfgInstanceIndex &index, void **copy) {
    const std::span<uint8_t> record = recordOf(object, index);
    if (record.empty()) return -1;
    *copy = reallocarray(nullptr, 1, record.size());
    std::memcpy(*copy, record.data(), record.size());
    return 0;
}

int set(uint32_t object, const KcfgInstanceIndex &index, const void *value, const char *options) {
    const std::span<uint8_t> record = recordOf(object, index);
    if (record.empty() || options != nullptr) return -1;
    std::memcpy(record.data(), value, record.size());
    return 0;
}

}  // namespace

int kcfgFeObjStructGetWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    *copy = nullptr;
    return enter("get") ? get(object, *index, copy) : -1;
}

int kcfgFeObjStructGetNextWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    *copy = nullptr;
    if (kvtest::callFails("kcfg")) return -1;
    index->instance[0] = static_cast<uint8_t>(index->level == 0 ? 1 : index->instance[0] + 1);
    index->level = 1;
    return get(object, *index, copy);
}

int kcfgFeObjStructSet(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return enter("set") ? set(object, *index, value, options) : -1;
}

int kcfgFeObjStructSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return enter("setQuietly") ? set(object, *index, value, options) : -1;
}

int kcfgFeObjJsonGet(uint32_t object, KcfgInstanceIndex *, json_object **copy) {
    const bool works = enter("jsonGet") && object == RDM_OID_FACTORY_RESET;
    *copy = works ? json_tokener_parse(configService.factoryReset) : nullptr;
    return works ? 0 : -1;
}

int kcfgFeObjJsonSetWithoutApply(uint32_t object, KcfgInstanceIndex *, json_object *value, const char *options) {
    if (!enter("jsonSet") || object != RDM_OID_FACTORY_RESET || options != nullptr) return -1;
    char(&text)[64] = configService.factoryReset;
    std::snprintf(text, sizeof text, "%s", json_object_to_json_string_ext(value, JSON_C_TO_STRING_PLAIN));
    return 0;
}

int kcfgFeReqSend(uint32_t request, const void *payload, uint32_t length) {
    return enter("req" + std::to_string(request)) && payload == nullptr && length == 0 ? 0 : -1;
}
