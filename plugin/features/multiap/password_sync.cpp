#include "features/multiap/password_sync.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "features/multiap/settings_sync_codec.h"
#include "frame/config_service.h"
#include "frame/log.h"
#include "frame/shell.h"
#include "protocol/kvMAP1905_message.h"
#include "protocol/message_row.h"
#include "transport/send.h"

namespace kv {

namespace {

// The controller's own password, encrypted on the device; the first line of the output.
constexpr char kPasswordCommand[] =
    "cat /data/FMUBBW3CBI.dat | openssl enc -aes-256-cbc -pbkdf2 -a -d -pass pass:Qm7tR2xLp9Vd4Kw8Zs3Hn6Jb1Y";
constexpr char kAdminAccount[] = "admin";
constexpr size_t kMaxKeyLen = 256;

// Memory that held a password is wiped before it is given back.
template <typename Record>
struct Wiped {
    Record value = {};

    Wiped() = default;
    Wiped(const Wiped &) = delete;
    Wiped &operator=(const Wiped &) = delete;
    ~Wiped() { explicit_bzero(&value, sizeof value); }
};

// Applies the key to the first bytes of data, as many as it has characters.
template <typename Step>
void applyKey(uint8_t *data, size_t length, Step step) {
    const Owned<RdmSyncKeySource> source = readFirstInstance<RdmSyncKeySource>(RDM_OID_SYNC_KEY_SOURCE);
    if (source == nullptr) return;
    const size_t keyLength = strnlen(source->key, kMaxKeyLen);
    for (size_t i = 0; i < std::min(keyLength, length); ++i) {
        data[i] = static_cast<uint8_t>(step(data[i], static_cast<uint8_t>(source->key[i])));
    }
    explicit_bzero(source.get(), sizeof *source);
}

// Reads the password into line without its last character, the newline. Returns false if there is none.
bool readOwnPassword(char (&line)[257]) {
    const Pipe output = openCommand(kPasswordCommand);
    if (output == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "popen /data/FMUBBW3CBI.dat failed\n\n");
        return false;
    }
    std::setvbuf(output.get(), nullptr, _IONBF, 0);  // a buffer of the C library's would not be wiped
    if (std::fgets(line, sizeof line, output.get()) == nullptr) {
        LOG_PLAIN(KV_LOG_ERROR, "Get admin password failed\n\n");
        return false;
    }
    const size_t length = std::strlen(line);
    if (length > 0) {
        line[length - 1] = '\0';
    }
    return true;
}

bool isAdmin(const RdmNatIntfSetting &account) {
    return std::strncmp(account.userName, kAdminAccount, sizeof account.userName) == 0;
}

// text: NUL-terminated after length bytes at the latest.
void storePassword(KcfgInstanceIndex &index, RdmNatIntfSetting &account, const uint8_t *text, size_t length) {
    std::memset(account.password, 0, sizeof account.password);
    std::memcpy(account.password, text, strnlen(reinterpret_cast<const char *>(text), length));
    if (kcfgFeObjStructSet(RDM_OID_NAT_INTF_SETTING, &index, &account, nullptr) != 0) {
        std::printf("[%s][Line : %d] : Set RDM_OID_NAT_INTF_SETTING Fail\n", "parseSyncCtrlerPwdMsgData", __LINE__);
    }
}

}  // namespace

int handleSyncControllerPwdReqMsg(const KvRecvVendTlv *source, uint16_t msgId) {
    LOG_MSG(KV_LOG_DEBUG, "received vendor msg %04x msgId(%04x) to " KV_MAC "\n", VEND_MSG_TYPE_SYNC_CTRL_PWD_REQ,
            msgId, KV_MAC_BYTES(source->srcMac));
    Wiped<char[257]> line;
    if (!readOwnPassword(line.value)) return KV_RET_ERR;
    Wiped<SyncCtrlerPwdMsgData> data;
    std::memcpy(data.value.alMac, getMAPAlMac(), sizeof data.value.alMac);
    data.value.pwdLen = static_cast<uint16_t>(std::strlen(line.value));
    std::memcpy(data.value.pwd, line.value, data.value.pwdLen);
    kvEncryptPwd(data.value.pwd, data.value.pwdLen);
    const KvVendMsg msg = makeVendMsg(VEND_MSG_TYPE_SYNC_CTRL_PWD_RESP, kSyncPwdLen, &data.value);
    if (sendUnicast(source->srcMac, &msgId, &msg) != KV_RET_OK) {
        LOG_MSG(KV_LOG_ERROR, "fail send sync controller password to " KV_MAC "\n", KV_MAC_BYTES(source->srcMac));
        return KV_RET_ERR;
    }
    return KV_RET_OK;
}

void applyScrambledPassword(uint8_t *password, size_t length) {
    kvDecryptPwd(password, length);
    forEachInstance<RdmNatIntfSetting>(RDM_OID_NAT_INTF_SETTING,
                                       [&](KcfgInstanceIndex &index, RdmNatIntfSetting &account) {
                                           const bool found = isAdmin(account);
                                           if (found) {
                                               storePassword(index, account, password, length);
                                           }
                                           explicit_bzero(account.password, sizeof account.password);
                                           return !found;
                                       });
}

void kvEncryptPwd(uint8_t *data, size_t length) {
    applyKey(data, length, [](unsigned byte, unsigned key) { return byte + key; });
}

void kvDecryptPwd(uint8_t *data, size_t length) {
    applyKey(data, length, [](unsigned byte, unsigned key) { return byte - key; });
}

}  // namespace kv
