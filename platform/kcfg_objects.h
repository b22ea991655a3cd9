// The objects of the configuration data model: one table for structures, JSON, checks, resets, the command and its
// help.
#pragma once

#include <kv1905/kcfg.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

#include "support/json.h"

namespace kvplatform {

using support::JsonPtr;

enum class FieldKind : uint8_t { kNumber, kText };

struct ConfigField {
    const char *name;
    FieldKind kind;
    size_t offset;     // in the object's structure
    size_t size;       // bytes there, a text's NUL included
    unsigned highest;  // of a number
};

// Bits of "FactoryResetUnpurgedList": objects that a partial reset keeps.
enum : unsigned {
    kKeepAccounts = 1,
    kKeepMesh = 2,  // needed to join the mesh again: the radios' country and the key of the password sync
    kKeepBits = kKeepAccounts | kKeepMesh
};

struct ConfigObject {
    uint32_t number;
    const char *name;
    const char *meaning;
    std::span<const ConfigField> fields;
    size_t structSize;  // 0: the object exists only as JSON
    bool single;        // exactly one instance, which an all-zero index addresses as well
    unsigned keptBy;    // kKeep* bits, each of which keeps the object in a partial reset
};

inline constexpr ConfigField kAccountFields[] = {
    {"userName", FieldKind::kText, offsetof(RdmNatIntfSetting, userName), sizeof(RdmNatIntfSetting::userName), 0},
    {"password", FieldKind::kText, offsetof(RdmNatIntfSetting, password), sizeof(RdmNatIntfSetting::password), 0},
};
inline constexpr ConfigField kResetFields[] = {
    {"FactoryResetUnpurgedList", FieldKind::kNumber, 0, 0, kKeepBits},
};
inline constexpr ConfigField kLedFields[] = {
    {"enable", FieldKind::kNumber, offsetof(RdmLedCtrl, enable), sizeof(RdmLedCtrl::enable), 1},
};
inline constexpr ConfigField kRadioFields[] = {
    {"ifName", FieldKind::kText, offsetof(RdmWifiRadio, ifName), sizeof(RdmWifiRadio::ifName), 0},
    {"countryCode", FieldKind::kText, offsetof(RdmWifiRadio, countryCode), sizeof(RdmWifiRadio::countryCode), 0},
    {"countryInBeacon", FieldKind::kText, offsetof(RdmWifiRadio, countryInBeacon),
     sizeof(RdmWifiRadio::countryInBeacon), 0},
};
inline constexpr ConfigField kKeyFields[] = {
    {"key", FieldKind::kText, offsetof(RdmSyncKeySource, key), sizeof(RdmSyncKeySource::key), 0},
};

#define KV_OBJECT(name) name, #name
inline constexpr ConfigObject kConfigObjects[] = {
    {KV_OBJECT(RDM_OID_NAT_INTF_SETTING), "login accounts", kAccountFields, sizeof(RdmNatIntfSetting), false,
     kKeepAccounts},
    {KV_OBJECT(RDM_OID_FACTORY_RESET), "what a partial reset keeps, a sum of the numbers here", kResetFields, 0, true,
     0},
    {KV_OBJECT(RDM_OID_LED_CTRL), "LEDs: 1 on, 0 off", kLedFields, sizeof(RdmLedCtrl), true, 0},
    {KV_OBJECT(RDM_OID_WIFI_RADIO), "Wi-Fi radios", kRadioFields, sizeof(RdmWifiRadio), false, kKeepMesh},
    {KV_OBJECT(RDM_OID_SYNC_KEY_SOURCE), "scrambling key of the password sync", kKeyFields, sizeof(RdmSyncKeySource),
     true, kKeepMesh},
};
#undef KV_OBJECT

// Returns null for an unknown number.
const ConfigObject *findConfigObject(uint32_t number);

// Returns whether the field can hold the value (null: absent).
bool fieldFits(const ConfigField &field, json_object *value);

// Returns a field's range for messages: "a number from 0 to 1".
std::string rangeOf(const ConfigField &field);

// Returns the instance as a new structure for free(). Every field must fit.
void *structFromJson(const ConfigObject &object, json_object *instance);

// Overwrites the instance's fields with the structure's.
void jsonFromStruct(const ConfigObject &object, const void *value, json_object *instance);

// Wrap json-c calls and throw std::bad_alloc. addMember() passes the value's ownership on.
JsonPtr checked(json_object *value);
JsonPtr copyOf(json_object *source);
void addMember(json_object *object, const char *name, JsonPtr value);

}  // namespace kvplatform
