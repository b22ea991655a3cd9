// The configuration library, faked: an LED object and a reset object in memory, a journal of calls, failures on demand.
#pragma once

#include <string>

#include "kv1905/kcfg.h"

namespace kvtest {

struct ConfigService {
    RdmLedCtrl led = {1};
    int unpurged = -1;              // "FactoryResetUnpurgedList" as last written
    bool unpurgedIsNumber = false;  // hand out a number where an object belongs
    std::string calls;              // "get", "set", "jsonGet", "jsonSet", "req8", ... separated by blanks
    std::string failing;            // the call that fails from now on
    std::string *also = nullptr;    // a second journal, to see the order with other events
};

ConfigService &configService();

}  // namespace kvtest
