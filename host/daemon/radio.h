// A Wi-Fi interface of this device.
#pragma once

#include <string>

#include "ieee1905/topology_tlvs.h"

namespace kv1905d {

struct Radio {
    std::string name;
    LocalInterface facts;
};

}  // namespace kv1905d
