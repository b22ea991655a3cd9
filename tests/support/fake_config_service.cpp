#include "support/fake_config_service.h"

#include <json-c/json.h>

#include <cstdlib>
#include <cstring>

namespace kvtest {

ConfigService &configService() {
    static ConfigService service;
    return service;
}

namespace {

bool enter(const std::string &call) {
    ConfigService &service = configService();
    service.calls += call + " ";
    if (service.also != nullptr) {
        *service.also += call + " ";
    }
    return service.failing != call;
}

}  // namespace

}  // namespace kvtest

using kvtest::configService;

int kcfgFeObjStructGetWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    *copy = nullptr;
    if (!kvtest::enter("get") || object != RDM_OID_LED_CTRL || index->level != 0) {
        return -1;
    }
    *copy = std::malloc(sizeof(RdmLedCtrl));
    std::memcpy(*copy, &configService().led, sizeof(RdmLedCtrl));
    return 0;
}

int kcfgFeObjStructSet(uint32_t object, KcfgInstanceIndex *, void *value, const char *options) {
    if (!kvtest::enter("set") || object != RDM_OID_LED_CTRL || options != nullptr) {
        return -1;
    }
    std::memcpy(&configService().led, value, sizeof(RdmLedCtrl));
    return 0;
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
