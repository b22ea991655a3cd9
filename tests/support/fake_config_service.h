// The configuration library, faked: objects in memory, a journal of calls, failures on demand.
#pragma once

#include <string>
#include <vector>

#include "kv1905/kcfg.h"

namespace kvtest {

struct ConfigService {
    RdmLedCtrl led = {1};
    std::vector<RdmNatIntfSetting> accounts;
    std::vector<RdmWifiRadio> radios;
    std::vector<RdmSyncKeySource> keys;
    int unpurged = -1;              // "FactoryResetUnpurgedList" as last written
    bool unpurgedIsNumber = false;  // hand out a number where an object belongs
    std::string failing;            // the call that fails from now on
    int failingInstance = 0;        // the instance whose set fails, 0 for none
};

ConfigService &configService();

}  // namespace kvtest
