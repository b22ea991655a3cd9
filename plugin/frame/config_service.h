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

// A copy of an object's only instance, or null.
template <typename Record>
Owned<Record> readConfigObject(uint32_t object) {
    KcfgInstanceIndex index = {};
    void *copy = nullptr;
    const int result = kcfgFeObjStructGetWithoutUpdate(object, &index, &copy);
    Owned<Record> record(static_cast<Record *>(copy));
    return result == 0 ? std::move(record) : nullptr;
}

// Writes the only instance and applies it. 0 on success.
template <typename Record>
int writeConfigObject(uint32_t object, Record &value) {
    KcfgInstanceIndex index = {};
    return kcfgFeObjStructSet(object, &index, &value, nullptr);
}

}  // namespace kv
