#include "commands/tool_entries.h"

#include <climits>
#include <cstdlib>
#include <cstring>

#include "frame/log.h"
#include "frame/mac_text.h"
#include "frame/memory.h"
#include "frame/result_file.h"
#include "protocol/shared_payloads.h"

namespace kv {

namespace {

constexpr int kRefused = -1;

// A tool command's name in log lines, and the number of its arguments.
struct ToolCommand {
    const char *name;
    int minArguments;
    int maxArguments;
};

constexpr ToolCommand kReboot = {"2", 3, 3};
constexpr ToolCommand kIntfPwrCtrl = {"3", 6, 6};
constexpr ToolCommand kFWCtrl = {"9", 6, 6};
constexpr ToolCommand kResetDefault = {"10", 3, 3};
constexpr ToolCommand kFWResult = {"11", 3, 3};
constexpr ToolCommand kLedCtrl = {"14", 4, 4};
constexpr ToolCommand kPartialResetDefault = {"20", 3, 3};
constexpr ToolCommand kRemoteCommand = {"100", 4, INT_MAX};
constexpr ToolCommand kCountry = {"2", 3, 3};  // named like reboot: operators' scripts know the line
constexpr ToolCommand kLogSetting = {"d", 4, INT_MAX};

constexpr long kLowestFWOption = 1;
constexpr long kHighestFWOption = 7;

bool checkCount(const ToolCommand &command, int argc) {
    if (argc >= command.minArguments && argc <= command.maxArguments) return true;
    LOG_PLAIN(KV_LOG_WARNING, "kv1905App %s: Invalid input number %d\n", command.name, argc);
    return false;
}

bool readMac(const ToolCommand &command, const char *text, uint8_t *mac) {
    if (string2MacAddr(text, mac) != nullptr) return true;
    LOG_PLAIN(KV_LOG_WARNING, "kv1905App %s: MAC Address must be of form xx:xx:xx:xx:xx:xx\n", command.name);
    return false;
}

long decimal(const char *text) {
    return std::strtol(text, nullptr, 10);
}

int post(uint32_t code, void *buffer, size_t size) {
    if (g_kv1905_bcm_cbs.cmdSend == nullptr) {
        LOG_DEVICE(KV_LOG_ERROR, "NULL registar function\n");
        return kRefused;
    }
    return g_kv1905_bcm_cbs.cmdSend(code, buffer, static_cast<uint32_t>(size));
}

template <typename Record>
int post(uint32_t code, Record &record) {
    return post(code, &record, sizeof record);
}

template <typename Record>
Owned<Record> allocateRequest(const ToolCommand &command) {
    auto record = allocateRecord<Record>();
    if (record == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "kv1905App %s: allocate memory fail\n", command.name);
    }
    return record;
}

int postTarget(const ToolCommand &command, const char *action, uint32_t code, int argc, char **argv) {
    KvTargetData target = {};
    if (!checkCount(command, argc) || !readMac(command, argv[2], target.alMac)) return kRefused;
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App %s: %s alMac " KV_MAC "\n", command.name, action, KV_MAC_BYTES(target.alMac));
    return post(code, target);
}

const char *powerName(uint32_t pwrState) {
    switch (pwrState) {
        case 0:
            return "ON";
        case 2:
            return "OFF";
        default:
            return "Unknown";
    }
}

int refuseLength(const ToolCommand &command, const char *what) {
    LOG_PLAIN(KV_LOG_WARNING, "kv1905App %s: %s is longer than %d characters\n", command.name, what,
              KV_MAX_COMMAND_TEXT);
    return kRefused;
}

// Appends a piece of text; false when it does not fit.
bool append(KvCommandReq &request, const char *text, size_t length) {
    if (length > sizeof request.CommandURL - request.CommandURLcount) return false;
    std::memcpy(request.CommandURL + request.CommandURLcount, text, length);
    request.CommandURLcount = static_cast<uint16_t>(request.CommandURLcount + length);
    return true;
}

// Joins the words, with one blank after each but the last argument; empty ones add nothing.
bool joinWords(KvCommandReq &request, int argc, char **argv) {
    for (int i = 3; i < argc; ++i) {
        const size_t length = std::strlen(argv[i]);
        if (length == 0) continue;
        if (!append(request, argv[i], length) || (i + 1 < argc && !append(request, " ", 1))) return false;
    }
    return true;
}

}  // namespace

int postReboot(int argc, char **argv) {
    return postTarget(kReboot, "Reboot", KV_CMD_REBOOT, argc, argv);
}

int postResetDefault(int argc, char **argv) {
    return postTarget(kResetDefault, "Reset", KV_CMD_RESET_DEFAULT, argc, argv);
}

int postPartialResetDefault(int argc, char **argv) {
    return postTarget(kPartialResetDefault, "Partial Reset", KV_CMD_PARTIAL_RESET_DEFAULT, argc, argv);
}

int postIntfPwrCtrl(int argc, char **argv) {
    KvIntfPwrCtrlReq request = {};
    KvIntfPwrCtrlEntry &entry = request.entries[0];
    if (!checkCount(kIntfPwrCtrl, argc) || !readMac(kIntfPwrCtrl, argv[2], request.alMac) ||
        !readMac(kIntfPwrCtrl, argv[3], entry.mac)) {
        return kRefused;
    }
    request.count = 1;
    entry.mediaType = static_cast<uint16_t>(std::strtol(argv[4], nullptr, 16));
    request.pwrState = static_cast<uint32_t>(decimal(argv[5]));
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 3: AlMac " KV_MAC "\n", KV_MAC_BYTES(request.alMac));
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 3: Intf " KV_MAC "\n", KV_MAC_BYTES(entry.mac));
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 3: Media type 0x%x, Power state %s\n", entry.mediaType,
              powerName(request.pwrState));
    return post(KV_CMD_INTF_PWR_CTRL, request);
}

int postFWCtrl(int argc, char **argv) {
    if (!checkCount(kFWCtrl, argc)) return kRefused;
    const auto request = allocateRequest<KvFWCtrlReq>(kFWCtrl);
    if (request == nullptr || !readMac(kFWCtrl, argv[2], request->alMac)) return kRefused;
    request->FWOption = static_cast<uint16_t>(decimal(argv[3]));
    if (request->FWOption < kLowestFWOption || request->FWOption > kHighestFWOption) {
        output_ReturnValue(KV_RET_ERR);
        return kRefused;
    }
    request->FWTopoOption = static_cast<uint16_t>(decimal(argv[4]));
    const char *url = argv[5];
    const size_t length = std::strlen(url);
    if (length > sizeof request->FWURL) return refuseLength(kFWCtrl, "URL");
    request->FWURLcount = static_cast<uint16_t>(length);
    std::memcpy(request->FWURL, url, length);
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 9: AlMac " KV_MAC "\n", KV_MAC_BYTES(request->alMac));
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 9: Firmware option:[%d], FW Topology option:[%d]\n", request->FWOption,
              request->FWTopoOption);
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 9: FW URL count:[%d], FW URL:[%s]\n", request->FWURLcount, url);
    return post(KV_CMD_FW_CTRL, *request);
}

int postFWResult(int argc, char **argv) {
    if (!checkCount(kFWResult, argc)) return kRefused;
    int32_t values[2] = {static_cast<int32_t>(decimal(argv[2])), 0};
    return post(KV_CMD_FW_RESULT, values);
}

int postLedCtrl(int argc, char **argv) {
    KvLedCtrlReq request = {};
    if (!checkCount(kLedCtrl, argc) || !readMac(kLedCtrl, argv[2], request.alMac)) return kRefused;
    request.ledOption = static_cast<uint16_t>(decimal(argv[3]));
    return post(KV_CMD_LED_CTRL, request);
}

int postRemoteCommand(int argc, char **argv) {
    if (!checkCount(kRemoteCommand, argc)) return kRefused;
    const auto request = allocateRequest<KvCommandReq>(kRemoteCommand);
    if (request == nullptr || !readMac(kRemoteCommand, argv[2], request->alMac)) return kRefused;
    if (!joinWords(*request, argc, argv)) return refuseLength(kRemoteCommand, "command text");
    request->CommandDatacount = static_cast<uint16_t>(argc - 3);
    const int length = request->CommandURLcount;
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 100: CommandDatacount = %d\n", request->CommandDatacount);
    LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 100: CommandURLcount = %d\n", length);
    // The text is joined in place in the buffer, so the joined text and the buffer's copy are the same bytes.
    for (int line = 0; line < 2; ++line) {
        LOG_PLAIN(KV_LOG_DEBUG, "kv1905App 100: CommandURL = [%.*s]\n", length, request->CommandURL);
    }
    return post(KV_CMD_COMMAND, *request);
}

int postSyncCountryReq(int argc, char **) {
    KvTargetData unused = {};
    return checkCount(kCountry, argc) ? post(KV_CMD_SYNC_COUNTRY_BCN_REQ, unused) : kRefused;
}

int postCountry(int argc, char **argv) {
    if (!checkCount(kCountry, argc)) return kRefused;
    SyncCtrlerCountryMsgData data = {};
    const size_t length = std::strlen(argv[2]);
    if (length > sizeof data.country) {
        LOG_PLAIN(KV_LOG_WARNING, "kv1905App: country %s is longer than 4 characters\n", argv[2]);
        return kRefused;
    }
    data.countryLen = static_cast<uint8_t>(length);
    std::memcpy(data.country, argv[2], length);
    return post(KV_CMD_COUNTRY_IN_BCN, data);
}

int postLogSetting(int argc, char **argv) {
    constexpr int32_t kDefaultThird = 7;
    if (!checkCount(kLogSetting, argc)) return kRefused;
    int32_t values[3] = {static_cast<int32_t>(decimal(argv[2])), static_cast<int32_t>(decimal(argv[3])),
                         argc > 4 ? static_cast<int32_t>(decimal(argv[4])) : kDefaultThird};
    return post(KV_CMD_LOG_SETTING, values);
}

}  // namespace kv
