#include "quiet_system.h"

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "frame/mac_text.h"
#include "kv1905/kcfg.h"
#include "kv1905/kos.h"
#include "kv1905/kvlog.h"
#include "kv1905/nvram.h"

// The platform. Every line is filtered out, which costs what a call with its arguments costs.
int kvMAP_syslog(int, int, const char *, ...) {
    return 0;
}
void kvlog(int, const char *, int, const char *, const char *, ...) {}
void kvMAP_log_setting(int, int, int) {}
int kos_pk(const char *, ...) {
    return 0;
}
int kos_fpk(FILE *, const char *, ...) {
    return 0;
}
int kos_snprintf(char *text, size_t size, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    const int length = std::vsnprintf(text, size, format, arguments);
    va_end(arguments);
    return length;
}
int kos_formsys(int, const char *) {
    return 0;
}
char *nvram_get(const char *) {
    return nullptr;
}
int kcfgFeObjStructGetWithoutUpdate(uint32_t, KcfgInstanceIndex *, void **) {
    return -1;
}
int kcfgFeObjStructGetNextWithoutUpdate(uint32_t, KcfgInstanceIndex *, void **) {
    return -1;
}
int kcfgFeObjStructSet(uint32_t, KcfgInstanceIndex *, void *, const char *) {
    return -1;
}
int kcfgFeObjStructSetWithoutApply(uint32_t, KcfgInstanceIndex *, void *, const char *) {
    return -1;
}
int kcfgFeObjJsonGet(uint32_t, KcfgInstanceIndex *, struct json_object **) {
    return -1;
}
int kcfgFeObjJsonSetWithoutApply(uint32_t, KcfgInstanceIndex *, struct json_object *, const char *) {
    return -1;
}
int kcfgFeReqSend(uint32_t, const void *, uint32_t) {
    return -1;
}

// Replace the C library's functions: no command runs, no call sleeps.
extern "C" int system(const char *) {
    return 0;
}
extern "C" FILE *popen(const char *, const char *) {
    return nullptr;
}
extern "C" unsigned sleep(unsigned) {
    return 0;
}

namespace {

std::vector<size_t> *blocks = nullptr;
std::vector<kvbench::Bytes> *sent = nullptr;
KvDevVendorData localRecord = {};
KvDevVendorData remoteRecord = {};

bool isLocal(const void *alMac) {
    return alMac == nullptr || std::memcmp(alMac, kvbench::kLocal, KV_MAC_LEN) == 0;
}

bool isAgent(const void *alMac) {
    return std::memcmp(alMac, kvbench::kAgent, KV_MAC_LEN) == 0;
}

uintptr_t dmDataGet(uint32_t code, void *argument, uintptr_t argument2) {
    switch (code) {
        case DM_QUERY_DEVICE:
            return 0;
        case DM_QUERY_ALMAC_BY_IFMAC:
            if (!isAgent(argument)) {
                return KV_RET_ERR;
            }
            std::memcpy(reinterpret_cast<void *>(argument2), argument, KV_MAC_LEN);
            return 0;
        case DM_QUERY_INTF_LIST:
            return 0;
        default:
            return reinterpret_cast<uintptr_t>(isLocal(argument) ? &localRecord : &remoteRecord);
    }
}

int send(KvVendMsgDest *dest, uint16_t *msgId) {
    if (msgId != nullptr && *msgId == 0) {
        *msgId = 1;
    }
    if (sent != nullptr) {
        sent->emplace_back(dest->buffer, dest->buffer + dest->length);
    }
    return 0;
}

int jsonWrite(uint32_t) {
    return 0;
}

}  // namespace

// Receive the plug-in's calls through the linker's --wrap.
extern "C" void *__real_calloc(size_t count, size_t size);
extern "C" void *__wrap_calloc(size_t count, size_t size) {
    if (blocks != nullptr) {
        blocks->push_back(count * size);
    }
    return __real_calloc(count, size);
}
extern "C" void *__real_malloc(size_t size);
extern "C" void *__wrap_malloc(size_t size) {
    if (blocks != nullptr) {
        blocks->push_back(size);
    }
    return __real_malloc(size);
}

namespace kvbench {

void startHost() {
    std::memcpy(KvDevAlMac, kLocal, sizeof kLocal);
    const Kv1905BcmCbs table = {dmDataGet, jsonWrite, send, send, send, nullptr, nullptr};
    kvMAP1905_Func_reg(&table, 0);
    std::strcpy(localRecord.protoVersion, "3.0");
    localRecord.rebootFromNbrCap = localRecord.intfPwrCtrlFromNbrCap = 1;
}

KvDevVendorData &agentRecord() {
    return remoteRecord;
}

std::vector<Bytes> sentBy(const std::function<void()> &work) {
    std::vector<Bytes> values;
    sent = &values;
    work();
    sent = nullptr;
    return values;
}

std::vector<size_t> blocksOf(const std::function<void()> &work) {
    std::vector<size_t> sizes;
    blocks = &sizes;
    work();
    blocks = nullptr;
    return sizes;
}

Bytes fromHex(std::string_view text) {
    Bytes bytes;
    int high = -1;
    for (const char c : text) {
        const int digit = kv::hexadecimalDigit(c);
        if (digit < 0) {
            continue;
        }
        if (high >= 0) {
            bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
        }
        high = high < 0 ? digit : -1;
    }
    return bytes;
}

}  // namespace kvbench
