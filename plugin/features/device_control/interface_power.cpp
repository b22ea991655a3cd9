#include "features/device_control/interface_power.h"

#include <cstring>

#include "features/device_control/answer.h"
#include "features/device_control/interface_power_codec.h"
#include "features/kvMAP1905_netCtrl.h"
#include "frame/host_table.h"
#include "frame/local_files.h"
#include "frame/log.h"
#include "frame/vendor_data.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "transport/outstanding_queries.h"
#include "transport/tracked_query.h"

namespace kv {

namespace {

InterfaceList interfacesOrLog(const uint8_t *alMac) {
    InterfaceList list = interfacesOf(alMac);
    if (list == nullptr) {
        LOG_DB(KV_LOG_WARNING, "interface data is null\n");
    }
    return list;
}

void logState(const KvIntfPwrStateEntry &entry) {
    LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType %x, pwrState %d\n", KV_MAC_BYTES(entry.mac),
              entry.mediaType, entry.pwrState);
}

// Collects the first 30 local interfaces with the power state that the configuration file contains for their media
// type.
KvIntfPwrStateRec reportStates(const KvIntfList &list) {
    KvIntfPwrStateRec report = {};
    std::memcpy(report.alMac, getMAPAlMac(), sizeof report.alMac);
    for (const KvIntfEntry *intf = list.head;
         intf != nullptr && report.count < list.count && report.count < kMaxPowerEntries; intf = intf->next) {
        KvIntfPwrStateEntry &entry = report.entries[report.count++];
        std::memcpy(entry.mac, intf->mac, sizeof entry.mac);
        entry.mediaType = static_cast<uint16_t>(intf->mediaType);
        entry.pwrState = static_cast<uint8_t>(getIntfPwrSt(intf->mediaType));
        logState(entry);
    }
    return report;
}

bool isLocalInterface(const KvIntfList &list, const KvIntfPwrCtrlEntry &wanted) {
    for (const KvIntfEntry *intf = list.head; intf != nullptr; intf = intf->next) {
        if (sameMac(intf->mac, wanted.mac) && static_cast<uint16_t>(intf->mediaType) == wanted.mediaType) return true;
    }
    return false;
}

uint8_t setOne(const KvIntfList &list, const KvIntfPwrCtrlEntry &wanted, uint32_t pwrState) {
    if (!isLocalInterface(list, wanted)) {
        LOG_PLAIN(KV_LOG_DEBUG, "Interface MAC " KV_MAC " is unmatched, mediaType %x\n", KV_MAC_BYTES(wanted.mac),
                  wanted.mediaType);
        return kPowerNoSuchInterface;
    }
    LOG_PLAIN(KV_LOG_DEBUG, "Interface MAC " KV_MAC " is matched, mediaType %x\n", KV_MAC_BYTES(wanted.mac),
              wanted.mediaType);
    if (pwrState > kHighestPowerState) {
        LOG_PLAIN(KV_LOG_DEBUG, "Request power state %d is unsupport\n", static_cast<int>(pwrState));
        return kPowerStateUnsupported;
    }
    LOG_PLAIN(KV_LOG_DEBUG, "Change power state %d\n", static_cast<int>(pwrState));
    return setKvIntfPwrStateById(wanted.mac, wanted.mediaType, pwrState);
}

void copyInterface(const KvIntfPwrCtrlEntry &from, KvIntfPwrCtrlResult &to) {
    std::memcpy(to.mac, from.mac, sizeof to.mac);
    to.mediaType = from.mediaType;
}

void answerAll(const KvIntfPwrCtrlReq &request, uint8_t retCode, KvIntfPwrCtrlResp &response) {
    for (unsigned i = 0; i < request.count; ++i) {
        copyInterface(request.entries[i], response.entries[i]);
        response.entries[i].retCode = retCode;
    }
}

// Sets the listed interfaces. An entry without a MAC means its media type and ends the request: later entries keep
// zeroed answers.
void setEach(const KvIntfList &list, const KvIntfPwrCtrlReq &request, KvIntfPwrCtrlResp &response) {
    for (unsigned i = 0; i < request.count; ++i) {
        const KvIntfPwrCtrlEntry &wanted = request.entries[i];
        copyInterface(wanted, response.entries[i]);
        if (isZeroMac(wanted.mac)) {
            response.entries[i].retCode = setKvIntfPwrStateByMedia(wanted.mediaType, request.pwrState);
            return;
        }
        response.entries[i].retCode = setOne(list, wanted, request.pwrState);
    }
}

KvIntfPwrCtrlResp carryOut(const KvIntfList &list, const KvIntfPwrCtrlReq &request) {
    KvIntfPwrCtrlResp response = {};
    response.count = request.count;
    if (!sameMac(request.alMac, getMAPAlMac())) {
        LOG_PLAIN(KV_LOG_WARNING, "Requested AL MAC is unmatched " KV_MAC "\n", KV_MAC_BYTES(request.alMac));
        answerAll(request, KV_RET_NOT_FOUND, response);
    } else if (getEnableIntfPwrCtrlFromNbrCap() == 0) {
        LOG_DEVICE(KV_LOG_NOTICE, "unsupport interface power control\n");
        answerAll(request, KV_RET_ERR, response);
    } else {
        setEach(list, request, response);
    }
    return response;
}

uint32_t overallResult(const KvIntfPwrCtrlResp &response) {
    for (unsigned i = 0; i < response.count; ++i) {
        if (response.entries[i].retCode != 0) return KV_RET_ERR;
    }
    return KV_RET_OK;
}

}  // namespace

int sendIntfPwrStateQuery(const uint8_t *alMac, uint8_t retry) {
    return sendTrackedQuery(VEND_MSG_TYPE_INTF_PWR_STATE_QUERY, "intfPwr state query", alMac, retry);
}

int handleIntfPwrStateQueryMsg(const KvRecvVendTlv *source, uint16_t msgId) {
    LOG_MSG(KV_LOG_DEBUG, "received Intf Pwr State Query msgId %04x\n", msgId);
    InterfaceList list = interfacesOrLog(nullptr);
    if (list == nullptr) return KV_RET_ERR;
    KvIntfPwrStateRec report = reportStates(*list);
    list.reset();
    const KvVendMsg msg = makeVendMsg(VEND_MSG_TYPE_INTF_PWR_STATE_RESP, powerStateRespLen(report.count), &report);
    if (sendAnswer(source, msgId, msg) != KV_RET_OK) return KV_RET_ERR;
    LOG_MSG(KV_LOG_DEBUG, "transmit vendor msgId %04x\n", msgId);
    return KV_RET_OK;
}

int handleIntfPwrStateRespMsg(uint16_t msgId, KvVendMsg *msg) {
    LOG_MSG(KV_LOG_DEBUG, "received Intf Pwr State Resp msgId %04x\n", msgId);
    const auto *report = static_cast<const KvIntfPwrStateRec *>(msg->payload);
    const InterfaceList list = interfacesOrLog(report->alMac);
    if (list == nullptr) {
        return KV_RET_ERR;  // unreported, so the query is sent again
    }
    unsigned i = 0;
    for (const KvIntfEntry *intf = list->head; intf != nullptr && i < report->count; intf = intf->next, ++i) {
        logState(report->entries[i]);
    }
    reportKvVendRespMsgReceived(msg->alMac, msgId, VEND_MSG_TYPE_INTF_PWR_STATE_RESP);
    return KV_RET_OK;
}

int handleIntfPwrCtrlReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg, unsigned origin) {
    LOG_MSG(KV_LOG_DEBUG, "received Intf Pwr Ctrl Req msgId %04x\n", msgId);
    InterfaceList list = interfacesOrLog(nullptr);
    if (list == nullptr) return KV_RET_ERR;
    KvIntfPwrCtrlResp response = carryOut(*list, *static_cast<const KvIntfPwrCtrlReq *>(msg->payload));
    list.reset();
    if (origin == kOriginCommand) return sendCommandRespMsg(source, msgId, overallResult(response));
    const KvVendMsg answer = makeVendMsg(VEND_MSG_TYPE_INTF_PWR_CTRL_RESP, powerCtrlRespLen(response.count), &response);
    const int sent = sendAnswer(source, msgId, answer);
    LOG_MSG(KV_LOG_DEBUG, "transmit vendor msgId %04x\n", msgId);
    return sent;
}

int handleIntfPwrCtrlRespMsg(uint16_t msgId, KvVendMsg *msg) {
    LOG_MSG(KV_LOG_DEBUG, "received vendor msgId %04x\n", msgId);
    const auto *response = static_cast<const KvIntfPwrCtrlResp *>(msg->payload);
    for (unsigned i = 0; i < response->count; ++i) {
        const KvIntfPwrCtrlResult &entry = response->entries[i];
        LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType %.2x, retCode %.2x\n", KV_MAC_BYTES(entry.mac),
                  entry.mediaType, entry.retCode);
        reportResult(entry.retCode);
    }
    return KV_RET_OK;
}

}  // namespace kv
