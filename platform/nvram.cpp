#include <kv1905/kvlog.h>
#include <kv1905/nvram.h>

#include <cstring>

#include "platform_api.h"
#include "settings_store.h"

namespace {

constinit kvplatform::SettingsStore gStore;

// Says that the store cannot be read, once for each new reason.
void reportFailure(int failure) {
    static int reported = 0;
    if (failure != 0 && failure != reported) {
        kvMAP_syslog(0, KV_LOG_WARNING, "%s: cannot read the settings: %s\n", kvplatform::storePath(),
                     strerror(failure));
    }
    reported = failure;
}

}  // namespace

KV_PLATFORM_API char *nvram_get(const char *name) {
    if (name == nullptr || !kvplatform::isSettingName(name)) return nullptr;
    reportFailure(gStore.refresh(kvplatform::storePath()));
    return gStore.find(name);
}
