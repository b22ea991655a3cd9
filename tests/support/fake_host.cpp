#include "support/fake_host.h"

#include <cstring>

#include "features/device_control/firmware_upgrade_list.h"
#include "features/multiap/ap_cfg.h"
#include "features/multiap/mdid_tlv.h"
#include "features/wifi_clients/local_stations.h"
#include "frame/vendor_data.h"
#include "periodic_tasks.h"
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
    if (host->interfaces.empty()) return nullptr;
    auto *list = new (reallocarray(nullptr, 1, sizeof(KvIntfList))) KvIntfList{0, nullptr};
    for (auto each = host->interfaces.rbegin(); each != host->interfaces.rend(); ++each) {
        list->head = new (reallocarray(nullptr, 1, sizeof(KvIntfEntry))) KvIntfEntry{list->head, {}, each->second};
        std::memcpy(list->head->mac, each->first.data(), KV_MAC_LEN);
        ++list->count;
    }
    return list;
}

uintptr_t dmDataGet(uint32_t code, void *argument, uintptr_t argument2) {
    if (callFails("query")) return code <= DM_QUERY_ALMAC_BY_IFMAC ? KV_RET_ERR : 0;
    const Mac mac = argument == nullptr ? kLocal : macAt(argument);
    const auto found = host->devices.find(mac);
    KvDevVendorData *const device = found == host->devices.end() ? nullptr : found->second.get();
    switch (code) {
        case DM_QUERY_DEVICE:
            return device == nullptr ? KV_RET_ERR : 0;
        case DM_QUERY_ALMAC_BY_IFMAC:
            if (!host->owners.contains(mac)) return KV_RET_ERR;
            std::memcpy(reinterpret_cast<void *>(argument2), host->owners.at(mac).data(), KV_MAC_LEN);
            return 0;
        case DM_QUERY_DEV_VENDOR_DATA:
        case DM_QUERY_DEV_WIFI_NBR:
            return reinterpret_cast<uintptr_t>(device);
        case DM_QUERY_INTF_LIST:
            return device == nullptr ? 0 : reinterpret_cast<uintptr_t>(newInterfaceList());
        default:
            return 0;
    }
}

template <Slot slot>
int send(KvVendMsgDest *dest, uint16_t *msgId) {
    const bool isTracked = msgId != nullptr;
    host->sent.push_back({slot, macAt(dest->dstMac), Bytes(dest->buffer, dest->buffer + dest->length),
                          isTracked ? std::optional(*msgId) : std::nullopt});
    if (isTracked && *msgId == 0) *msgId = host->nextMsgId++;
    notes.push_back("send");
    return callFails("send") ? KV_RET_ERR : host->sendResult;
}

int jsonWrite(uint32_t) {
    notes.push_back("writes json");
    return callFails("JSON") ? KV_RET_ERR : host->jsonResult;
}

// Acts like the daemon on a post of the tool.
int cmdSend(uint32_t code, void *buffer, uint32_t size) {
    notes.push_back("posts " + std::to_string(code) + " " + std::to_string(size));
    if (callFails("post")) return -1;
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    host->command(code, Bytes(bytes, bytes + size));
    return host->postResult;
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
    nvram.clear();
    State_fw_is_download = 0;
    State_fw_upgrade = 0;
    kv::resetPeriodicTasks();
    setClock(kScriptStart);
    notes.clear();
}

}  // namespace

Bytes fromHex(std::string text) {
    std::erase(text, ' ');
    Bytes bytes;
    for (size_t i = 0; i + 1 < text.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoi(text.substr(i, 2), nullptr, 16)));
    return bytes;
}

FakeHost::FakeHost() {
    resetPlugin();
    host = this;
    std::memcpy(KvDevAlMac, kLocal.data(), kLocal.size());
    addDevice(kLocal);
    const Kv1905BcmCbs table = {
        dmDataGet, jsonWrite, send<Slot::Unicast>, send<Slot::Multicast>, send<Slot::RelayedMulticast>,
        cmdSend,   nullptr};
    kvMAP1905_Func_reg(&table, 0);
    kvMAP1905_Func_reg(&table, 1);
}

FakeHost::~FakeHost() {
    while (!devices.empty())
        removeDevice(devices.begin()->first);
    resetPlugin();
    host = nullptr;
}

KvDevVendorData &FakeHost::addDevice(const Mac &alMac) {
    auto &device = devices[alMac];
    device = std::make_unique<KvDevVendorData>();
    return *device;
}

void FakeHost::removeDevice(const Mac &alMac) {
    const auto found = devices.find(alMac);
    std::free(found->second->security.secData);
    if (alMac != kLocal) {  // whose list is the plug-in's
        kv::FreeLinked()(found->second->wifiNbrHead);
    }
    devices.erase(found);
}

void FakeHost::receive(const Mac &source, const Bytes &value, uint16_t msgId, bool hasLength) {
    const std::unique_ptr<uint8_t[]> exact(new uint8_t[value.size()]);
    std::copy(value.begin(), value.end(), exact.get());
    KvRecvVendTlv tlv = {};
    std::memcpy(tlv.srcMac, source.data(), source.size());
    tlv.value = exact.get();
    if (hasLength) return kvMAP1905_VendSpecTlv_handle(&tlv, static_cast<uint32_t>(value.size()), msgId);
    (value[0] == 0 ? kvMAP1905_VendSpecMsg_handle_Intel : kvMAP1905_VendSpecMsg_handle)(&tlv, msgId);
}

void FakeHost::command(uint32_t code, const Bytes &buffer) {
    const std::unique_ptr<uint8_t[]> block(new uint8_t[buffer.size() + 1]);
    std::copy(buffer.begin(), buffer.end(), block.get() + 1);
    kvMAP1905_VendSpecCmd_handle(block.get() + 1, code);
}

Bytes message(const Mac &alMac, uint16_t type, const Bytes &payload) {
    const auto length = static_cast<int>(payload.size());
    Bytes value = {0x02, 0x4E, 0xA7};
    append(value, alMac);
    append(value, std::initializer_list<int>{0, 1, type >> 8, type & 0xFF, length >> 8, length & 0xFF});
    append(value, payload);
    return value;
}

}  // namespace kvtest
