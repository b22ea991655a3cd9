#include <kv1905/kvlog.h>
#include <kv1905/nvram.h>

#include <exception>

#include "platform_api.h"
#include "settings_store.h"

KV_PLATFORM_API char *nvram_get(const char *name) {
    static std::string value;     // of the last call
    static std::string reported;  // why the store cannot be read, logged once for each reason
    try {
        const kvplatform::Settings settings = kvplatform::readSettings();
        reported.clear();
        const auto found = settings.values.find(name != nullptr ? name : "");
        if (found == settings.values.end()) return nullptr;
        value = found->second;
        return value.data();
    } catch (const std::exception &error) {
        if (reported != error.what()) kvMAP_syslog(0, KV_LOG_WARNING, "cannot read the settings: %s\n", error.what());
        reported = error.what();
        return nullptr;
    }
}
