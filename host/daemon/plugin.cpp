#include "daemon/plugin.h"

#include <algorithm>
#include <chrono>
#include <exception>

#include "support/log.h"
#include "support/plugin_library.h"

namespace kv1905d {
namespace {

PluginHost *theHost = nullptr;
uint64_t failures = 0;
support::LogGate errorLog;

// The caller cannot handle exceptions: running out of memory is a failed callback.
template <typename Result, typename Call>
Result guarded(Result failure, const Call &call) noexcept {
    try {
        return theHost == nullptr ? failure : call();
    } catch (const std::exception &error) {
        ++failures;
        errorLog.log(KV_LOG_ERROR, std::chrono::steady_clock::now(), "callback failed: %s", error.what());
        return failure;
    }
}

template <Reach reach>
int sendSlot(KvVendMsgDest *dest, uint16_t *msgId) {
    if (dest == nullptr || (dest->buffer == nullptr && dest->length > 0)) return KV_RET_ERR;
    return guarded(KV_RET_ERR, [&] { return theHost->sendVendor(reach, *dest, msgId); });
}

uintptr_t dataSlot(uint32_t code, void *argument, uintptr_t argument2) {
    // 0 is "no record" to the queries for records, but success to the first two.
    const uintptr_t failure = code <= DM_QUERY_ALMAC_BY_IFMAC ? KV_RET_ERR : 0;
    return guarded(failure, [&] { return theHost->dataQuery(code, argument, argument2); });
}

int writeSlot(uint32_t) {
    return guarded(KV_RET_ERR, [] { return theHost->writeDataModel(); });
}

}  // namespace

PluginSymbols loadPlugin(const std::string &path) {
    const support::PluginLibrary library(path);
#define KV_LOOK_UP(member, symbol_) library.symbol<decltype(PluginSymbols::member)>(#symbol_),
    return {KV_PLUGIN_SYMBOLS(KV_LOOK_UP)};
#undef KV_LOOK_UP
}

uint64_t failedCallbacks() {
    return failures;
}

void startPlugin(const PluginSymbols &plugin, PluginHost &host, const MacAddress &alMac, KvDevVendorData *local) {
    theHost = &host;
    const Kv1905BcmCbs slots{
        dataSlot, writeSlot, sendSlot<Reach::Unicast>, sendSlot<Reach::Neighbours>, sendSlot<Reach::Network>,
        nullptr,  // commands are posted by the command tool
        nullptr,  // filled by the plug-in in its own table
    };
    plugin.funcReg(&slots, 0);
    plugin.apCfgReg(nullptr);
    std::copy(alMac.bytes.begin(), alMac.bytes.end(), *plugin.alMac);
    plugin.deviceInit(local);
}

}  // namespace kv1905d
