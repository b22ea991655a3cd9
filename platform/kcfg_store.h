// The device's configuration: one JSON file of {"OBJECT": [instance, ...]}, shared by the library and the command. What
// fails throws: std::system_error for a file, std::invalid_argument for what a caller named or gave, else
// std::runtime_error.
#pragma once

#include <optional>

#include "kcfg_objects.h"
#include "support/files.h"

namespace kvplatform {

// Largest configuration and factory defaults, in bytes.
inline constexpr size_t kConfigLimit = size_t{1} << 20;

// Receives a line, without a newline, about a repair.
using Report = void (*)(const std::string &text);

// The configuration as it was when it was opened, and the change that is made to it. Objects that the file does not
// have, or a file that is missing or no configuration, are the factory defaults. Reading changes nothing.
class ConfigStore {
  public:
    enum class Access { Read, Change };

    // Access::Change excludes other writers until the store is destroyed.
    ConfigStore(Access access, Report report);

    size_t count(const ConfigObject &object) const;

    // Returns a copy of an instance, counted from 1. A missing or invalid field gets the factory default, or is empty
    // for an instance without one; the file keeps the value until it is set.
    JsonPtr instance(const ConfigObject &object, size_t number);

    // Replaces an instance by a copy of value, which must hold every field of the object and may hold more.
    void setInstance(const ConfigObject &object, size_t number, json_object *value);

    // Writes the configuration and applies the LED setting; a file that is no configuration is kept as FILE.damaged.
    void save();

    // Restores the factory defaults; partial: except for what FactoryResetUnpurgedList selects.
    static void reset(bool partial, Report report);

  private:
    void load();
    json_object *defaults();
    json_object *list(const ConfigObject &object) const;
    json_object *find(const ConfigObject &object, size_t number) const;
    void restoreDefaults(unsigned keep);

    Report report_;
    std::string path_;
    std::optional<support::FileLock> lock_;
    JsonPtr root_;
    JsonPtr defaults_;  // read when first needed
    bool isDamaged_ = false;
};

}  // namespace kvplatform
