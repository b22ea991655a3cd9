// The device's configuration: one JSON file of {"OBJECT": [instance, ...]}, shared by the library and the command.
#ifndef KV1905_PLATFORM_KCFG_STORE_H
#define KV1905_PLATFORM_KCFG_STORE_H

#include "kcfg_objects.h"
#include "safe_file.h"

namespace kvplatform {

// Largest configuration and factory defaults, in bytes.
inline constexpr size_t kConfigLimit = size_t{1} << 20;

// Path of the configuration: KV_KCFG_FILE, or the device's own place. Belongs to the environment.
const char *configPath();

// The configuration as it was when it was opened, and the change that is made to it. Objects that the file does not
// have, or a file that is missing, are the factory defaults. A file that is no configuration is renamed to
// FILE.damaged-1 to -9 and replaced by them. Every call that fails has told the report why.
class ConfigStore {
  public:
    explicit ConfigStore(Report report) : report_(report) {}

    bool openToRead();

    // Keeps other writers away until the store is destroyed.
    bool openToChange();

    size_t count(const ConfigObject &object) const;

    // A copy of an instance, counted from 1; null on failure. A field that is missing or cannot hold its value is the
    // factory default's, or empty for an instance that has no default; the file keeps the value until it is set.
    JsonPtr instance(const ConfigObject &object, size_t number);

    // The members of a whole object, as instance() gives them.
    JsonPtr instances(const ConfigObject &object);

    // Replaces an instance by a copy of value, which must hold every field of the object and may hold more.
    bool setInstance(const ConfigObject &object, size_t number, json_object *value);

    // Counts that settings were applied, in the member "kcfg".
    bool noteApplied();

    // Writes the configuration. Needs openToChange().
    bool save();

    // Puts the factory defaults in the configuration's place; partial: but for what FactoryResetUnpurgedList selects.
    static bool reset(Report report, bool partial);

  private:
    bool lock();
    bool load();
    bool setAsideDamaged(const char *fault);
    bool completeFromDefaults();
    bool restoreDefaults(unsigned keep);
    json_object *defaults();
    json_object *list(const ConfigObject &object) const;
    bool mend(const ConfigObject &object, size_t number, json_object *instance);
    JsonPtr defaultField(const ConfigObject &object, size_t number, const ConfigField &field);
    bool outOfMemory() const;

    Report report_;
    WriterLock lock_;
    JsonPtr root_;
    JsonPtr defaults_;  // read when first needed
};

}  // namespace kvplatform

#endif
