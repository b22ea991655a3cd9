#include "kcfg_objects.h"

#include <kv1905/kvlog.h>
#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include <algorithm>
#include <iterator>

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
    if (field.kind == FieldKind::kNumber) return JsonPtr(json_object_new_int(*bytes));
    const auto *text = reinterpret_cast<const char *>(bytes);
    return JsonPtr(json_object_new_string_len(text, static_cast<int>(strnlen(text, field.size))));
}

}  // namespace

void reportf(Report report, int level, const char *format, ...) {
    char text[PATH_MAX + 512];
    va_list arguments;
    va_start(arguments, format);
    vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    report(level, text);
}

const ConfigObject *findConfigObject(uint32_t number) {
    const auto *found = std::find_if(std::begin(kConfigObjects), std::end(kConfigObjects),
                                     [number](const ConfigObject &object) { return object.number == number; });
    return found != std::end(kConfigObjects) ? found : nullptr;
}

bool fieldFits(const ConfigField &field, json_object *value) {
    if (field.kind == FieldKind::kNumber) {
        if (!json_object_is_type(value, json_type_int)) return false;
        const int64_t number = json_object_get_int64(value);
        return number >= 0 && number <= field.highest;
    }
    if (!json_object_is_type(value, json_type_string)) return false;
    const auto length = static_cast<size_t>(json_object_get_string_len(value));
    return length < field.size && memchr(json_object_get_string(value), '\0', length) == nullptr;
}

FieldRange::FieldRange(const ConfigField &field) {
    if (field.kind == FieldKind::kNumber) {
        snprintf(text, sizeof text, "a number from 0 to %u", field.highest);
    } else {
        snprintf(text, sizeof text, "text of at most %zu bytes", field.size - 1);
    }
}

void *structFromJson(const ConfigObject &object, json_object *instance) {
    auto *bytes = static_cast<uint8_t *>(calloc(1, object.structSize));
    if (bytes == nullptr) return nullptr;
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

bool jsonFromStruct(const ConfigObject &object, const void *value, json_object *instance, Report report) {
    for (const ConfigField &field : object.fields) {
        JsonPtr member = fieldFromStruct(field, value);
        if (!member || json_object_object_add(instance, field.name, member.get()) != 0) {
            reportf(report, KV_LOG_ERROR, "%s.%s: out of memory", object.name, field.name);
            return false;
        }
        member.release();  // the instance owns it now
    }
    return true;
}

}  // namespace kvplatform
