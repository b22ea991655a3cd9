#include "support/fake_host.h"

#include <algorithm>
#include <cstring>

#include "features/device_control/firmware_upgrade_list.h"
#include "features/multiap/ap_cfg.h"
#include "features/multiap/mdid_tlv.h"
#include "features/wifi_clients/local_stations.h"
#include "periodic_tasks.h"
#include "frame/vendor_data.h"
#include "support/captured_log.h"
#include "support/fake_system.h"
#include "transport/outstanding_queries.h"

namespace kvtest {

namespace {

FakeHost *host = nullptr;

Mac macAt(const void *bytes) {
    Mac mac;
    std::memcpy(mac.data(), bytes, mac.size());
    return mac;
}

KvIntfList *newInterfaceList() {
    if (host->interfaces.empty()) {
        return nullptr;
    }
    auto *list = static_cast<KvIntfList *>(std::malloc(sizeof(KvIntfList)));
    list->count = static_cast<uint32_t>(host->interfaces.size());
    KvIntfEntry **link = &list->head;
    for (const auto &[mac, mediaType] : host->interfaces) {
        *link = static_cast<KvIntfEntry *>(std::malloc(sizeof(KvIntfEntry)));
        std::memcpy((*link)->mac, mac.data(), mac.size());
        (*link)->mediaType = mediaType;
        link = &(*link)->next;
    }
    *link = nullptr;
    return list;
}

uintptr_t dmDataGet(uint32_t code, void *argument, uintptr_t argument2) {
    if (callFails(Call::Query)) {
        return code <= DM_QUERY_ALMAC_BY_IFMAC ? KV_RET_ERR : 0;
    }
    const Mac mac = argument == nullptr ? kLocal : macAt(argument);
    const auto device = host->devices.find(mac);
    switch (code) {
        case DM_QUERY_DEVICE:
            return device == host->devices.end() ? KV_RET_ERR : 0;
        case DM_QUERY_ALMAC_BY_IFMAC: {
            const auto owner = host->owners.find(mac);
            if (owner == host->owners.end()) {
                return KV_RET_ERR;
            }
            std::memcpy(reinterpret_cast<void *>(argument2), owner->second.data(), KV_MAC_LEN);
            return 0;
        }
        case DM_QUERY_DEV_VENDOR_DATA:
        case DM_QUERY_DEV_WIFI_NBR:
            return device == host->devices.end() ? 0 : reinterpret_cast<uintptr_t>(device->second.get());
        case DM_QUERY_INTF_LIST:
            return device == host->devices.end() ? 0 : reinterpret_cast<uintptr_t>(newInterfaceList());
        default:
            return 0;
    }
}

template <Slot slot>
int send(KvVendMsgDest *dest, uint16_t *msgId) {
    Sent record = {slot, macAt(dest->dstMac), Bytes(dest->buffer, dest->buffer + dest->length), std::nullopt};
    if (msgId != nullptr) {
        record.msgIdIn = *msgId;
        if (*msgId == 0) {
            *msgId = host->nextMsgId++;
        }
    }
    host->sent.push_back(record);
    note("send");
    return callFails(Call::Send) ? KV_RET_ERR : host->sendResult;
}

int jsonWrite(uint32_t) {
    ++host->jsonWrites;
    note("writes json");
    return callFails(Call::JsonWrite) ? KV_RET_ERR : host->jsonResult;
}

void resetPlugin() {
    g_kv1905_bcm_cbs = {};
    controller = 1;
    kvFlags = 0;
    data_model_time_stamp = 0;
    kv::outstandingQueries().clear();
    kv::registeredNeighbors().clear();
    kv::clearFWupgradeList();
    kv::localStations().clear();
    kv::mdidCache().clear();
    kv::rememberedRadio().clear();
    nvram().clear();
    State_fw_is_download = 0;
    State_fw_upgrade = 0;
    kv::resetPeriodicTasks();
    setClock(0);
    clearLog();
}

}  // namespace

Bytes fromHex(const std::string &text) {
    Bytes bytes;
    std::string digits;
    std::copy_if(text.begin(), text.end(), std::back_inserter(digits), [](char c) { return c != ' '; });
    for (size_t i = 0; i + 1 < digits.size(); i += 2) {
        bytes.push_back(static_cast<uint8_t>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

FakeHost::FakeHost() {
    resetPlugin();
    host = this;
    std::memcpy(KvDevAlMac, kLocal.data(), kLocal.size());
    addDevice(kLocal);
    const Kv1905BcmCbs table = {
        dmDataGet, jsonWrite, send<Slot::Unicast>, send<Slot::Multicast>, send<Slot::RelayedMulticast>,
        nullptr,   nullptr};
    kvMAP1905_Func_reg(&table, 0);
}

FakeHost::~FakeHost() {
    for (auto &[mac, device] : devices) {
        std::free(device->security.secData);
        if (mac != kLocal) {
            kv::FreeLinked()(device->wifiNbrHead);
        }
    }
    resetPlugin();
    host = nullptr;
}

KvDevVendorData &FakeHost::addDevice(const Mac &alMac) {
    auto &device = devices[alMac];
    device = std::make_unique<KvDevVendorData>();
    return *device;
}

void FakeHost::receive(const Mac &source, const Bytes &value, uint16_t msgId) {
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[value.size()]);
    std::copy(value.begin(), value.end(), exact.get());
    KvRecvVendTlv tlv = {};
    std::memcpy(tlv.srcMac, source.data(), source.size());
    tlv.value = exact.get();
    kvMAP1905_VendSpecTlv_handle(&tlv, static_cast<uint32_t>(value.size()), msgId);
}

Bytes message(const Mac &alMac, uint16_t type, const Bytes &payload, std::optional<uint16_t> length) {
    const uint16_t claimed = length.value_or(static_cast<uint16_t>(payload.size()));
    Bytes value = {0x02, 0x4E, 0xA7};
    append(value, alMac);
    append(value, std::initializer_list<int>{0x00, 0x01, type >> 8, type & 0xFF, claimed >> 8, claimed & 0xFF});
    append(value, payload);
    return value;
}

}  // namespace kvtest
