#include "frame/main_loop.h"

#include <iterator>

#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/host_table.h"
#include "frame/local_files.h"
#include "transport/outstanding_queries.h"

namespace kv {

namespace {

// The host is asked for a JSON write while its stamp is older than this.
constexpr double kJsonStampAge = 2.0;  // seconds, exclusive

struct PeriodicTask {
    int (*run)();
    double period;  // seconds, inclusive
};

// In the order in which they run; the last one's result is the main loop's.
constexpr PeriodicTask kTasks[] = {
    {runNetCtrl, 10.0},
    {kvSendWIFIClientInfo, 10.0},  // of what was just collected
    {checkWIFIClientInfo, 10.0},
    {checkWIFIChannelInfo, 120.0},
};

Schedule instance;

}  // namespace

int Schedule::runDue(std::time_t now) {
    static_assert(std::size(kTasks) == kTaskCount);
    int result = 0;
    for (size_t i = 0; i < std::size(kTasks); ++i) {
        const bool due = std::difftime(now, static_cast<std::time_t>(lastRun_[i])) >= kTasks[i].period;
        result = 0;
        if (due) {
            result = kTasks[i].run();
            lastRun_[i] = static_cast<uint32_t>(now);
        }
    }
    return result;
}

Schedule &schedule() {
    return instance;
}

int mainLoop() {
    const std::time_t now = std::time(nullptr);
    if (std::difftime(now, static_cast<std::time_t>(data_model_time_stamp)) > kJsonStampAge) {
        writeJsonDataModel();
    }
    checkKvVendRespMsgReceived(&now);
    return instance.runDue(now);
}

}  // namespace kv
