#include "kcfg_objects.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <new>

namespace kvplatform {

namespace {

constexpr bool fieldsLieInside(const ConfigObject &object) {
    return std::all_of(object.fields.begin(), object.fields.end(), [&object](const ConfigField &field) {
        const bool oneByte = field.kind == FieldKind::kText || (field.size <= 1 && field.highest <= UINT8_MAX);
        return oneByte && field.offset + field.size <= object.structSize;
    });
}
static_assert(std::all_of(std::begin(kConfigObjects), std::end(kConfigObjects), fieldsLieInside));
static_assert(std::is_sorted(std::begin(kConfigObjects), std::end(kConfigObjects),
                             [](const ConfigObject &a, const ConfigObject &b) { return a.number <= b.number; }),
              "object numbers ascend, each once");

JsonPtr fieldFromStruct(const ConfigField &field, const void *value) {
    const auto *bytes = static_cast<const uint8_t *>(value) + field.offset;
    if (field.kind == FieldKind::kNumber) return checked(json_object_new_int(*bytes));
    const auto *text = reinterpret_cast<const char *>(bytes);
    return checked(json_object_new_string_len(text, static_cast<int>(strnlen(text, field.size))));
}

}  // namespace

const ConfigObject *findConfigObject(uint32_t number) {
    const auto *found = std::find_if(std::begin(kConfigObjects), std::end(kConfigObjects),
                                     [number](const ConfigObject &object) { return object.number == number; });
    return found != std::end(kConfigObjects) ? found : nullptr;
}

bool fieldFits(const ConfigField &field, json_object *value) {
    if (field.kind == FieldKind::kNumber) {
        const int64_t number = json_object_get_int64(value);
        return json_object_is_type(value, json_type_int) && number >= 0 && number <= field.highest;
    }
    if (!json_object_is_type(value, json_type_string)) return false;
    const auto length = static_cast<size_t>(json_object_get_string_len(value));
    return length < field.size && memchr(json_object_get_string(value), '\0', length) == nullptr;
}

std::string rangeOf(const ConfigField &field) {
    return field.kind == FieldKind::kNumber ? "a number from 0 to " + std::to_string(field.highest)
                                            : "text of at most " + std::to_string(field.size - 1) + " bytes";
}

void *structFromJson(const ConfigObject &object, json_object *instance) {
    auto *bytes = static_cast<uint8_t *>(calloc(1, object.structSize));
    if (bytes == nullptr) throw std::bad_alloc();
    for (const ConfigField &field : object.fields) {
        json_object *value = json_object_object_get(instance, field.name);
        if (field.kind == FieldKind::kNumber) {
            bytes[field.offset] = static_cast<uint8_t>(json_object_get_int(value));
        } else {
            memcpy(&bytes[field.offset], json_object_get_string(value),
                   static_cast<size_t>(json_object_get_string_len(value)));
        }
    }
    return bytes;
}

void jsonFromStruct(const ConfigObject &object, const void *value, json_object *instance) {
    for (const ConfigField &field : object.fields)
        addMember(instance, field.name, fieldFromStruct(field, value));
}

JsonPtr checked(json_object *value) {
    if (value == nullptr) throw std::bad_alloc();
    return JsonPtr(value);
}

JsonPtr copyOf(json_object *source) {
    json_object *copy = nullptr;
    if (json_object_deep_copy(source, &copy, nullptr) != 0) throw std::bad_alloc();
    return JsonPtr(copy);
}

void addMember(json_object *object, const char *name, JsonPtr value) {
    if (json_object_object_add(object, name, value.get()) != 0) throw std::bad_alloc();
    value.release();
}

}  // namespace kvplatform
