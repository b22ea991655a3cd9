// Objects of the device's configuration data model, as values that release themselves.
#pragma once

#include <json-c/json_object.h>

#include <memory>

#include "frame/memory.h"
#include "kv1905/kcfg.h"

namespace kv {

struct PutJson {
    void operator()(json_object *object) const { json_object_put(object); }
};
using JsonObject = std::unique_ptr<json_object, PutJson>;

// Returns a copy of an object's only instance, or null.
template <typename Record>
Owned<Record> readConfigObject(uint32_t object) {
    KcfgInstanceIndex index = {};
    void *copy = nullptr;
    const int result = kcfgFeObjStructGetWithoutUpdate(object, &index, &copy);
    Owned<Record> record(static_cast<Record *>(copy));
    return result == 0 ? std::move(record) : nullptr;
}

// Returns a copy of the first instance of an object that has several, or null.
template <typename Record>
Owned<Record> readFirstInstance(uint32_t object) {
    KcfgInstanceIndex index = {1, {1}};
    void *copy = nullptr;
    const int result = kcfgFeObjStructGetWithoutUpdate(object, &index, &copy);
    Owned<Record> record(static_cast<Record *>(copy));
    return result == 0 ? std::move(record) : nullptr;
}

// Passes every instance with its index to `use`, in the service's order, until it returns false.
template <typename Record, typename Use>
void forEachInstance(uint32_t object, Use use) {
    constexpr int kMostInstances = 1024;  // an endless iteration of the service must not block the host
    KcfgInstanceIndex index = {};
    for (int i = 0; i < kMostInstances; ++i) {
        void *copy = nullptr;
        const int result = kcfgFeObjStructGetNextWithoutUpdate(object, &index, &copy);
        const Owned<Record> record(static_cast<Record *>(copy));
        if (result != 0 || record == nullptr || !use(index, *record)) return;
    }
}

// Writes the only instance and applies it. Returns 0 on success.
template <typename Record>
int writeConfigObject(uint32_t object, Record &value) {
    KcfgInstanceIndex index = {};
    return kcfgFeObjStructSet(object, &index, &value, nullptr);
}

}  // namespace kv
