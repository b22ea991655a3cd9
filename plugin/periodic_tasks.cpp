// ONE table: periodic task -> period.
#include "periodic_tasks.h"

#include <cstdint>
#include <ctime>

#include "features/wifi_clients/client_report.h"
#include "features/wifi_clients/local_stations.h"
#include "features/wifi_clients/neighbor_table.h"
#include "frame/host_table.h"
#include "frame/local_files.h"
#include "transport/outstanding_queries.h"

namespace kv {

namespace {

// A JSON write is requested while the host's stamp is older than this.
constexpr double kJsonStampAge = 2.0;  // seconds, exclusive

struct PeriodicTask {
    int (*run)();
    double period;         // seconds, inclusive
    uint32_t lastRun = 0;  // seconds since the epoch
};

// Sorted in the order of execution.
PeriodicTask tasks[] = {
    {runNetCtrl, 10.0},
    {kvSendWIFIClientInfo, 10.0},  // reports what runNetCtrl has collected
    {checkWIFIClientInfo, 10.0},
    {checkWIFIChannelInfo, 120.0},
};

}  // namespace

int mainLoop() {
    const std::time_t now = std::time(nullptr);
    if (std::difftime(now, static_cast<std::time_t>(data_model_time_stamp)) > kJsonStampAge) {
        writeJsonDataModel();
    }
    checkKvVendRespMsgReceived(&now);
    int result = 0;
    for (PeriodicTask &task : tasks) {
        result = 0;
        if (std::difftime(now, static_cast<std::time_t>(task.lastRun)) >= task.period) {
            result = task.run();
            task.lastRun = static_cast<uint32_t>(now);
        }
    }
    return result;
}

void resetPeriodicTasks() {
    for (PeriodicTask &task : tasks) {
        task.lastRun = 0;
    }
}

}  // namespace kv
