// Fails each call to the outside of each step once: the first allocation, the second, ..., each file, command, message,
// query of the host and call of the configuration service. Whatever fails, five invariants hold: nothing leaks or
// crashes; only messages that the run without the failure sends; state as before or after that run; no scratch file is
// left; the next call works.
#include <gtest/gtest.h>
#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
#endif

#include <algorithm>
#include <memory>
#include <regex>

#include "kv1905/vendor_messages.h"
#include "periodic_tasks.h"
#include "scenarios/scripted_device.h"
#include "support/fake_system.h"
#include "support/sample_messages.h"

using namespace kvtest;

namespace {

// A device on which every step succeeds.
const std::string kSetUp[] = {
    "set local.protoVersion=3.0 agent.protoVersion=3.0 agent.rebootFromNbrCap=1 key=key accounts=\"admin ''\" "
    "radios=\"wl1 DE ''\"",
    "interfaces radio5 0x0105",
    "script nvram 'echo multiap_mode=3; echo wl1_mdid=17'",
    "script openssl 'echo secret'",
    "file password x$",
    "file version AppVersion=1 L2DeviveCtrl=1 WiFiAutoCfg=1 WiFiOnOff=1 FwUpgrade=1 LEDOnOff=1",
    "file conf ModelName=M 5GPower=1 Mode=ap",
    "stations 1 '1000 -60 30 1 wl1 1 2 3000 4000 10'",
};

// Steps in addition to one message of every type.
constexpr const char *kSteps[] = {"raw 000347 01020304 0506 67 00 112233445566 00 0708 0000 020000000000",
                                  "call kvMAP1905_ConfQuery_send agent 0",
                                  "call kvMAP1905_ConfRespMsg_send null 0 1",
                                  "call kvMAP1905_IntfPwrStateQuery_send agent 0",
                                  "call kvMAP1905_WifiStateQuery_send agent 0",
                                  "call kvMAP1905_SyncCtrlSettingReq_send agent 0",
                                  "call kvMAP1905_RssiMeasurementNotify_send agent 020000000000",
                                  "call kvMAP1905_VenderSpecMcastMsg_send 10 0",
                                  "loop",
                                  "call kvMAP1905_DeviceDm_init",
                                  "call kvMAP1905_DeviceDm_update",
                                  "call kvMAP1905_DevIntfDm_init 0x0105",
                                  "call kvMAP1905_param_update",
                                  "call kvMAP1905_findController",
                                  "call kvMAP1905_WifiChan_get wl1",
                                  "call updateKvFWNewfirmware 1",
                                  "call kvMAP1905_TlvMDID_insert 1 wl1",
                                  "call kvMAP1905_CountryInBcn_update wl1 DE/1 ''",
                                  "command 202 '2 7878' 00",
                                  "command 301",
                                  "tool reboot AGENT",
                                  "tool power AGENT 2:0:0:0:0:5 0105 0",
                                  "tool firmware AGENT 1 0 u",
                                  "tool firmware-result 4",
                                  "tool led AGENT 1",
                                  "tool command AGENT reboot",
                                  "tool country-request AGENT",
                                  "tool country DE"};

// Permitted effects of a failure: patterns of "KIND N STEP: FAULT".
const std::regex kExceptions(
    // The response contains no address.
    "(fopen|system) 1 .*(ConfRespMsg_send|CONF_QUERY).*: .*(CONF_RESP|cfgAttrCount|scratch files)"
    // The file that cannot be read stays.
    "|fopen 1 call (kvMAP1905_findController|kvMAP1905_TlvMDID_insert).*: .*scratch files"
    // Missing settings make no controller; a missing version file means defaults.
    "|(fopen|system) 1 call kvMAP1905_DeviceDm_init: .*(scratch files|controller = 0)"
    "|fopen 4 call kvMAP1905_DeviceDm_init: leaves local"
    // Both files stay closed until they change.
    "|fopen (1 call kvMAP1905_DeviceDm_update: lacks|3 call kvMAP1905_DeviceDm_update:.*) local"
    // The power state is unknown.
    "|fopen 1 receive INTF_PWR_STATE_QUERY.*: .*0105ff"
    // A station is not found, is left out, or the old list stays and none of it is valid.
    "|allocation 4 raw.*: .*020000000000000000000000a6"
    "|allocation 2 call kvMAP1905_RssiMeasurementNotify_send.*: .*020000000000000000000000b0"
    "|allocation 5 receive WIFI_STATE_REQ.*: .*WIFI_STATE_RESP 00"
    "|(allocation|fopen) 2 loop: .*local.stations = nothing|allocation 1 loop: .*local.stations = 0"
    // A device without vendor data has no capability.
    "|query 1 receive (REBOOT|COMMAND|(PARTIAL_)?RESET_DEFAULT)_REQ.*: .*_RESP 10"
    "|query 2 receive INTF_PWR_CTRL_REQ.*: .*INTF_PWR_CTRL_RESP 01020000000005010510"
    // Passwords are not scrambled without a key.
    "|kcfg 1 receive SYNC_CTRL_PWD_RE.*: .*(account.* = admin tgfvjz|0006736563726574)");

using Values = std::map<std::string, std::string>;

struct StepRun {
    std::vector<std::string> sent;
    Values state;
    std::map<std::string, size_t> calls;  // that could fail, by their kinds
};

// Runs a step with all periodic tasks due.
StepRun runStep(ScriptedDevice &device, const std::string &step) {
    StepRun run;
    kv::resetPeriodicTasks();
    data_model_time_stamp = 0;
    callCounts.clear();
    const auto effects = device.run(step);
    for (const std::string &effect : effects->ordered)
        if (effect.starts_with("to ")) run.sent.push_back(effect);
    run.calls = callCounts;
    run.state = device.observe();
    return run;
}

std::unique_ptr<ScriptedDevice> preparedDevice() {
    auto device = std::make_unique<ScriptedDevice>();
    for (const std::string &step : kSetUp)
        device->run(step);
    return device;
}

// Returns what a failed call, and the call after it, do beyond a part of what calls without a failure do.
std::vector<std::string> faultsOf(const Values &before, const StepRun &clean, const StepRun &cleanAgain,
                                  const StepRun &failed, const StepRun &next) {
    std::vector<std::string> faults;
    for (const std::string &message : failed.sent)
        if (std::count(clean.sent.begin(), clean.sent.end(), message) == 0) faults.push_back("sends " + message);
    for (const auto &[name, value] : failed.state) {
        if (value != before.at(name) && value != clean.state.at(name))
            faults.push_back("leaves " + name + " = " + value);
        if (!name.starts_with("query") && next.state.at(name) != cleanAgain.state.at(name))
            faults.push_back("lacks " + name + " = " + cleanAgain.state.at(name) + " after the next call");
    }
    if (next.sent != clean.sent && next.sent != cleanAgain.sent)
        faults.emplace_back("sends something else at the next call");
    return faults;
}

}  // namespace

TEST(FailureSweep, RecoversFromEveryFailedCall) {
    std::vector<std::string> steps(std::begin(kSteps), std::end(kSteps));
    for (const SampleMessage &sample : kSampleMessages)
        steps.push_back(std::string("receive ") + kvVendorMessageName(sample.type) + " " + sample.payload);
    size_t failures = 0;
    for (const std::string &step : steps) {
        auto device = preparedDevice();
        const Values before = device->observe();
        const StepRun clean = runStep(*device, step);
        const StepRun cleanAgain = runStep(*device, step);
        for (const auto &[kind, count] : clean.calls) {
            for (size_t nth = 1; nth <= count; ++nth, ++failures) {
                device.reset();  // one exists at a time
                device = preparedDevice();
                const std::string failing = kind + " " + std::to_string(nth) + " " + step;
                const StepRun failed = runStep(*device, "with fail " + failing);
                EXPECT_FALSE(device->failureIsMissing) << failing;
                const StepRun next = runStep(*device, step);
                for (const std::string &fault : faultsOf(before, clean, cleanAgain, failed, next)) {
                    EXPECT_TRUE(
                        std::regex_search(failing + ": " + fault, kExceptions, std::regex_constants::match_continuous))
                        << "with fail " << failing << "\n"
                        << fault;
                }
            }
        }
    }
    std::printf("%zu failures injected\n", failures);
#if defined(__SANITIZE_ADDRESS__)
    EXPECT_EQ(__lsan_do_recoverable_leak_check(), 0);
#endif
}
