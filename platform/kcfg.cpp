#include <kv1905/kcfg.h>
#include <kv1905/kvlog.h>

#include <exception>
#include <stdexcept>

#include "kcfg_store.h"
#include "platform_api.h"

using namespace kvplatform;

namespace {

constexpr int kOk = 0;
constexpr int kFailure = -1;

using Access = ConfigStore::Access;

void logLine(const std::string &text) {
    kvMAP_syslog(0, KV_LOG_ERROR, "%s\n", text.c_str());
}

// Runs the body of a call. What it throws is logged and becomes the call's failure.
template <typename Body>
int guarded(const char *call, const Body &body) noexcept {
    try {
        return body();
    } catch (const std::exception &error) {
        kvMAP_syslog(0, KV_LOG_ERROR, "%s: %s\n", call, error.what());
        return kFailure;
    }
}

const ConfigObject &objectOf(uint32_t number) {
    const ConfigObject *object = findConfigObject(number);
    if (object == nullptr) throw std::invalid_argument("no configuration object " + std::to_string(number));
    return *object;
}

const ConfigObject &objectWithStruct(uint32_t number) {
    const ConfigObject &object = objectOf(number);
    if (object.structSize == 0) throw std::invalid_argument(object.name + std::string(" has no structure, only JSON"));
    return object;
}

// Returns the instance that an index addresses, counted from 1.
size_t addressed(const ConfigObject &object, const KcfgInstanceIndex *index) {
    if (index != nullptr && index->level == 0 && object.single) return 1;
    if (index != nullptr && index->level == 1 && index->instance[0] != 0) return index->instance[0];
    throw std::invalid_argument(std::string(object.name) + ": expected an index of " +
                                (object.single ? "zeros or " : "") + "one level, instances count from 1");
}

template <typename T>
T &required(T *pointer) {
    if (pointer == nullptr) throw std::invalid_argument("a null pointer was given");
    return *pointer;
}

void refuseOptions(const char *options) {
    if (options != nullptr) throw std::invalid_argument("options must be null");
}

int structSet(const char *call, uint32_t number, KcfgInstanceIndex *index, const void *value, const char *options) {
    return guarded(call, [&] {
        refuseOptions(options);
        if (value == nullptr) throw std::invalid_argument("no structure given");
        const ConfigObject &object = objectWithStruct(number);
        const size_t instance = addressed(object, index);
        ConfigStore store(Access::Change, logLine);
        const JsonPtr next = store.instance(object, instance);
        jsonFromStruct(object, value, next.get());
        store.setInstance(object, instance, next.get());
        store.save();
        return kOk;
    });
}

}  // namespace

KV_PLATFORM_API int kcfgFeObjStructGetWithoutUpdate(uint32_t number, KcfgInstanceIndex *index, void **copy) {
    return guarded(__func__, [&] {
        required(copy) = nullptr;
        const ConfigObject &object = objectWithStruct(number);
        const size_t instance = addressed(object, index);
        *copy = structFromJson(object, ConfigStore(Access::Read, logLine).instance(object, instance).get());
        return kOk;
    });
}

KV_PLATFORM_API int kcfgFeObjStructGetNextWithoutUpdate(uint32_t number, KcfgInstanceIndex *index, void **copy) {
    return guarded(__func__, [&] {
        required(copy) = nullptr;
        const ConfigObject &object = objectWithStruct(number);
        const size_t next = required(index).level == 0 ? 1 : addressed(object, index) + 1;
        ConfigStore store(Access::Read, logLine);
        if (next > store.count(object)) return kFailure;
        *copy = structFromJson(object, store.instance(object, next).get());
        *index = {1, {static_cast<uint8_t>(next)}};
        return kOk;
    });
}

KV_PLATFORM_API int kcfgFeObjStructSet(uint32_t number, KcfgInstanceIndex *index, void *value, const char *options) {
    return structSet(__func__, number, index, value, options);
}

// Does the same as saving, which already applies the LEDs, the only setting that the stand-in applies.
KV_PLATFORM_API int kcfgFeObjStructSetWithoutApply(uint32_t number, KcfgInstanceIndex *index, void *value,
                                                   const char *options) {
    return structSet(__func__, number, index, value, options);
}

KV_PLATFORM_API int kcfgFeObjJsonGet(uint32_t number, KcfgInstanceIndex *index, json_object **copy) {
    return guarded(__func__, [&] {
        required(copy) = nullptr;
        const ConfigObject &object = objectOf(number);
        const size_t instance = addressed(object, index);
        *copy = ConfigStore(Access::Read, logLine).instance(object, instance).release();
        return kOk;
    });
}

KV_PLATFORM_API int kcfgFeObjJsonSetWithoutApply(uint32_t number, KcfgInstanceIndex *index, json_object *value,
                                                 const char *options) {
    return guarded(__func__, [&] {
        refuseOptions(options);
        const ConfigObject &object = objectOf(number);
        const size_t instance = addressed(object, index);
        ConfigStore store(Access::Change, logLine);
        store.setInstance(object, instance, value);
        store.save();
        return kOk;
    });
}

KV_PLATFORM_API int kcfgFeReqSend(uint32_t request, const void *, uint32_t length) {
    return guarded(__func__, [&] {
        const bool partial = request == KCFG_REQ_PARTIAL_RESET_DEFAULT;
        if (!partial && request != KCFG_REQ_RESET_DEFAULT) {
            throw std::invalid_argument("no such request " + std::to_string(request));
        }
        if (length != 0) throw std::invalid_argument("a reset has no payload");
        ConfigStore::reset(partial, logLine);
        return kOk;
    });
}
