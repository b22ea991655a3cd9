// Implements the calls of kcfg.h with objects in memory.
#pragma once

#include <vector>

#include "kv1905/kcfg.h"

namespace kvtest {

struct ConfigService {
    RdmLedCtrl led = {1};
    std::vector<RdmNatIntfSetting> accounts;
    std::vector<RdmWifiRadio> radios;
    RdmSyncKeySource key = {};     // empty: none exists
    char factoryReset[64] = "{}";  // JSON
};

inline ConfigService configService;

}  // namespace kvtest
