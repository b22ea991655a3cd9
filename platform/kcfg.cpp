#include <kv1905/kcfg.h>
#include <kv1905/kvlog.h>

#include "kcfg_store.h"
#include "platform_api.h"

using namespace kvplatform;

namespace {

constexpr int kOk = 0;
constexpr int kFailure = -1;

void logLine(int level, const char *text) {
    kvMAP_syslog(0, level, "%s\n", text);
}

int result(bool done) {
    return done ? kOk : kFailure;
}

int refused(const char *call, const char *reason) {
    reportf(logLine, KV_LOG_ERROR, "%s: %s", call, reason);
    return kFailure;
}

const ConfigObject *knownObject(const char *call, uint32_t number) {
    const ConfigObject *object = findConfigObject(number);
    if (object == nullptr) reportf(logLine, KV_LOG_ERROR, "%s: no configuration object %u", call, number);
    return object;
}

const ConfigObject *objectWithStruct(const char *call, uint32_t number) {
    const ConfigObject *object = knownObject(call, number);
    if (object == nullptr || object->structSize != 0) return object;
    reportf(logLine, KV_LOG_ERROR, "%s: %s has no structure, only JSON", call, object->name);
    return nullptr;
}

// The instance that an index addresses, counted from 1; 0 when it addresses none.
size_t addressed(const char *call, const ConfigObject &object, const KcfgInstanceIndex *index) {
    if (index != nullptr && index->level == 0 && object.single) return 1;
    if (index != nullptr && index->level == 1 && index->instance[0] != 0) return index->instance[0];
    reportf(logLine, KV_LOG_ERROR, "%s: %s: want an index of %sone level, instances count from 1", call, object.name,
            object.single ? "zeros or " : "");
    return 0;
}

int structGet(const ConfigObject &object, ConfigStore &store, size_t number, void **copy) {
    const JsonPtr instance = store.instance(object, number);
    if (!instance) return kFailure;
    *copy = structFromJson(object, instance.get());
    return *copy != nullptr ? kOk : refused(object.name, "out of memory");
}

// What the sets have in common; change makes the instance's new value from its present one.
template <typename Change>
bool changeInstance(const ConfigObject &object, size_t number, bool apply, Change change) {
    ConfigStore store(logLine);
    if (!store.openToChange()) return false;
    const JsonPtr present = store.instance(object, number);
    if (!present) return false;
    json_object *const next = change(present.get());
    return next != nullptr && store.setInstance(object, number, next) && (!apply || store.noteApplied()) &&
           store.save();
}

int structSet(const char *call, uint32_t objectNumber, const KcfgInstanceIndex *index, const void *value,
              const char *options, bool apply) {
    if (value == nullptr) return refused(call, "no structure given");
    if (options != nullptr) return refused(call, "options must be null");
    const ConfigObject *object = objectWithStruct(call, objectNumber);
    const size_t number = object != nullptr ? addressed(call, *object, index) : 0;
    if (number == 0) return kFailure;
    return result(changeInstance(*object, number, apply, [&](json_object *present) {
        return jsonFromStruct(*object, value, present, logLine) ? present : nullptr;
    }));
}

}  // namespace

KV_PLATFORM_API int kcfgFeObjStructGetWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    if (copy == nullptr) return refused(__func__, "no place for the copy");
    *copy = nullptr;
    const ConfigObject *const found = objectWithStruct(__func__, object);
    const size_t number = found != nullptr ? addressed(__func__, *found, index) : 0;
    ConfigStore store(logLine);
    if (number == 0 || !store.openToRead()) return kFailure;
    return structGet(*found, store, number, copy);
}

KV_PLATFORM_API int kcfgFeObjStructGetNextWithoutUpdate(uint32_t object, KcfgInstanceIndex *index, void **copy) {
    if (copy == nullptr) return refused(__func__, "no place for the copy");
    *copy = nullptr;
    const ConfigObject *const found = objectWithStruct(__func__, object);
    if (found == nullptr) return kFailure;
    const bool starts = index != nullptr && index->level == 0;
    const size_t last = starts ? 0 : addressed(__func__, *found, index);
    ConfigStore store(logLine);
    if ((last == 0 && !starts) || !store.openToRead()) return kFailure;
    if (last >= store.count(*found)) return kFailure;
    if (const int failure = structGet(*found, store, last + 1, copy); failure != kOk) return failure;
    *index = {1, {static_cast<uint8_t>(last + 1)}};
    return kOk;
}

KV_PLATFORM_API int kcfgFeObjStructSet(uint32_t object, KcfgInstanceIndex *index, void *value, const char *options) {
    return structSet(__func__, object, index, value, options, true);
}

KV_PLATFORM_API int kcfgFeObjStructSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, void *value,
                                                   const char *options) {
    return structSet(__func__, object, index, value, options, false);
}

KV_PLATFORM_API int kcfgFeObjJsonGet(uint32_t object, KcfgInstanceIndex *index, json_object **copy) {
    if (copy == nullptr) return refused(__func__, "no place for the copy");
    *copy = nullptr;
    const ConfigObject *const found = knownObject(__func__, object);
    const size_t number = found != nullptr ? addressed(__func__, *found, index) : 0;
    ConfigStore store(logLine);
    if (number == 0 || !store.openToRead()) return kFailure;
    *copy = store.instance(*found, number).release();
    return result(*copy != nullptr);
}

KV_PLATFORM_API int kcfgFeObjJsonSetWithoutApply(uint32_t object, KcfgInstanceIndex *index, json_object *value,
                                                 const char *options) {
    if (value == nullptr) return refused(__func__, "no JSON object given");
    if (options != nullptr) return refused(__func__, "options must be null");
    const ConfigObject *const found = knownObject(__func__, object);
    const size_t number = found != nullptr ? addressed(__func__, *found, index) : 0;
    if (number == 0) return kFailure;
    return result(changeInstance(*found, number, false, [value](json_object *) { return value; }));
}

KV_PLATFORM_API int kcfgFeReqSend(uint32_t request, const void *, uint32_t length) {
    const bool partial = request == KCFG_REQ_PARTIAL_RESET_DEFAULT;
    if (!partial && request != KCFG_REQ_RESET_DEFAULT) {
        reportf(logLine, KV_LOG_ERROR, "%s: no such request %u", __func__, request);
        return kFailure;
    }
    if (length != 0) return refused(__func__, "a reset takes no payload");
    return result(ConfigStore::reset(logLine, partial));
}
