#include "features/multiap/ap_cfg.h"

#include "kv1905/kvlog.h"

namespace kv {

int setApConfiguration(void *) {
    kvMAP_syslog(KV_LOG_FACILITY_AP_CFG, KV_LOG_DEBUG, "Enter.\n");
    return 0;
}

}  // namespace kv
