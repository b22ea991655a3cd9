#include "features/device_control/remote_command.h"

#include <cstdlib>
#include <cstring>

#include "features/device_control/answer.h"
#include "frame/log.h"
#include "frame/mac_text.h"
#include "frame/memory.h"
#include "protocol/message_row.h"
#include "protocol/shared_payloads.h"
#include "transport/receive.h"

namespace kv {

namespace {

using WordList = std::unique_ptr<KvCommandWord, FreeLinked>;

// Splits text into words in place. Returns false if one does not fit, or memory runs out.
bool splitWords(char *text, WordList &words, unsigned &count) {
    KvCommandWord *tail = nullptr;
    char *rest = nullptr;
    for (const char *part = strtok_r(text, " ", &rest); part != nullptr; part = strtok_r(nullptr, " ", &rest)) {
        const size_t length = std::strlen(part);
        if (length >= sizeof KvCommandWord::text) {
            LOG_DEVICE(KV_LOG_WARNING, "command word of %zu characters is too long\n", length);
            return false;
        }
        auto word = allocateRecord<KvCommandWord>();
        if (word == nullptr) {
            LOG_DEVICE(KV_LOG_ERROR, "allocate memory fail for a command word\n");
            return false;
        }
        std::memcpy(word->text, part, length);
        KvCommandWord *added = word.release();
        if (tail == nullptr) {
            words.reset(added);
        } else {
            tail->next = added;
        }
        tail = added;
        ++count;
    }
    return true;
}

long decimal(const KvCommandWord *word) {
    return std::strtol(word->text, nullptr, 10);
}

// Null words are missing from the text.
const KvCommandWord *after(const KvCommandWord *word) {
    return word == nullptr ? nullptr : word->next;
}

// Reads a MAC word into a zero-filled mac, and leaves it unchanged if the word does not match: the command then counts
// as another device's.
void readMac(const KvCommandWord *word, uint8_t *mac) {
    uint8_t parsed[KV_MAC_LEN];
    if (scanMac(word->text, parsed)) {
        std::memcpy(mac, parsed, sizeof parsed);
    }
}

// Performs the steps that every copy has in common: message type, record, AL MAC.
template <typename Record>
Owned<Record> startRequest(KvVendMsg *msg, uint16_t type, const KvCommandWord *word, bool logNoMemory = false) {
    msg->msgType = type;
    if (word == nullptr) return nullptr;
    auto record = allocateRecord<Record>();
    if (record == nullptr) {
        if (logNoMemory) {
            LOG_DEVICE(KV_LOG_ERROR, "allocate memory fail when copy cmd\n");
        }
        return nullptr;
    }
    readMac(word, record->alMac);
    LOG_MSG(KV_LOG_DEBUG, "copy command data AlMac " KV_MAC "\n", KV_MAC_BYTES(record->alMac));
    return record;
}

template <typename Record>
int finish(Owned<Record> record, KvVendMsg *msg) {
    if (record == nullptr) return KV_RET_ERR;
    msg->payload = record.release();
    return KV_RET_OK;
}

int copyCommand_Set_Reboot(unsigned, const KvCommandWord *word, KvVendMsg *msg) {
    return finish(startRequest<KvTargetData>(msg, VEND_MSG_TYPE_REBOOT_REQ, word, true), msg);
}

int copyCommand_Reset_To_Default(unsigned, const KvCommandWord *word, KvVendMsg *msg) {
    return finish(startRequest<KvTargetData>(msg, VEND_MSG_TYPE_RESET_DEFAULT_REQ, word), msg);
}

int copyCommand_Partial_Reset_To_Default(unsigned, const KvCommandWord *word, KvVendMsg *msg) {
    return finish(startRequest<KvTargetData>(msg, VEND_MSG_TYPE_PARTIAL_RESET_DEFAULT_REQ, word), msg);
}

// AL MAC, pairs of interface MAC and media type, power state.
int copyCommand_Set_Power_Ctrl(unsigned wordCount, const KvCommandWord *word, KvVendMsg *msg) {
    constexpr unsigned kOtherWords = 3;  // option, AL MAC, power state
    if (wordCount < kOtherWords || (wordCount - kOtherWords) / 2 > KV_MAX_INTF_PWR_ENTRIES) return KV_RET_ERR;
    auto request = startRequest<KvIntfPwrCtrlReq>(msg, VEND_MSG_TYPE_INTF_PWR_CTRL_REQ, word, true);
    if (request == nullptr) return KV_RET_ERR;
    request->count = static_cast<uint8_t>((wordCount - kOtherWords) / 2);
    for (unsigned i = 0; i < request->count; ++i) {
        KvIntfPwrCtrlEntry &entry = request->entries[i];
        const KvCommandWord *mac = after(word);
        word = after(mac);
        if (word == nullptr) return KV_RET_ERR;
        readMac(mac, entry.mac);
        entry.mediaType = static_cast<uint16_t>(std::strtoul(word->text, nullptr, 16));
        LOG_PLAIN(KV_LOG_DEBUG, "Interface Mac " KV_MAC ", mediaType = %x\n", KV_MAC_BYTES(entry.mac), entry.mediaType);
    }
    word = after(word);
    if (word == nullptr) return KV_RET_ERR;
    request->pwrState = static_cast<uint32_t>(decimal(word));
    LOG_PLAIN(KV_LOG_DEBUG, "Set power state = %x\n", request->pwrState);
    return finish(std::move(request), msg);
}

// AL MAC, option, topology option, URL.
int copyCommand_FW_control(unsigned, const KvCommandWord *word, KvVendMsg *msg) {
    const KvCommandWord *option = after(word);
    const KvCommandWord *topoOption = after(option);
    const KvCommandWord *url = after(topoOption);
    if (url == nullptr) return KV_RET_ERR;
    auto request = startRequest<KvFWCtrlReq>(msg, VEND_MSG_TYPE_FW_CTRL_REQ, word);
    if (request == nullptr) return KV_RET_ERR;
    static_assert(sizeof url->text <= sizeof request->FWURL);
    request->FWOption = static_cast<uint16_t>(decimal(option));
    request->FWTopoOption = static_cast<uint16_t>(decimal(topoOption));
    request->FWURLcount = static_cast<uint16_t>(std::strlen(url->text));
    std::memcpy(request->FWURL, url->text, request->FWURLcount);
    LOG_PLAIN(KV_LOG_DEBUG, "FWOption %d, FWTopoOption %d, FWURLcount %d, FWURL %s\n", request->FWOption,
              request->FWTopoOption, request->FWURLcount, request->FWURL);
    return finish(std::move(request), msg);
}

// The numbers are those of the command tool.
struct CommandOption {
    long option;
    int (*copy)(unsigned wordCount, const KvCommandWord *firstArgument, KvVendMsg *msg);
};

constexpr CommandOption kOptions[] = {
    {2, copyCommand_Set_Reboot},
    {3, copyCommand_Set_Power_Ctrl},
    {9, copyCommand_FW_control},
    {10, copyCommand_Reset_To_Default},
    {20, copyCommand_Partial_Reset_To_Default},
};

void logCommand(const KvCommandReq &request, const char *text) {
    LOG_PLAIN(KV_LOG_DEBUG, "CommandDatacount %d\n", request.CommandDatacount);
    LOG_PLAIN(KV_LOG_DEBUG, "CommandURLcount  %d\n", request.CommandURLcount);
    LOG_PLAIN(KV_LOG_DEBUG, "CommandURL       %s\n", text);
}

}  // namespace

int handleCommandReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg) {
    LOG_MSG(KV_LOG_DEBUG, "received vendor msgId %04x\n", msgId);
    const auto &request = *static_cast<const KvCommandReq *>(msg->payload);
    char text[KV_MAX_COMMAND_TEXT] = {};
    if (request.CommandURLcount >= sizeof text) {
        LOG_DEVICE(KV_LOG_WARNING, "command text of %d characters is too long\n", request.CommandURLcount);
        return KV_RET_ERR;
    }
    std::memcpy(text, request.CommandURL, request.CommandURLcount);
    logCommand(request, text);

    WordList words;
    unsigned count = 0;
    if (!splitWords(text, words, count)) return KV_RET_ERR;
    const int parsed = parseCommand(count, words.get(), msg);  // request is freed
    words.reset();
    if (parsed != KV_RET_OK) return KV_RET_ERR;
    return handleKvVendSpecMsg(source, msgId, msg, kOriginCommand) == KV_RET_OK ? KV_RET_OK : KV_RET_ERR;
}

int handleCommandRespMsg(uint16_t msgId, KvVendMsg *msg) {
    const uint32_t result = resultOf(msg);
    LOG_MSG(KV_LOG_DEBUG, "received msgId %04x, send command result %d\n", msgId, static_cast<int>(result));
    reportResult(result);
    return KV_RET_OK;
}

int parseCommand(unsigned wordCount, const KvCommandWord *firstWord, KvVendMsg *msg) {
    const long option = firstWord == nullptr ? 0 : decimal(firstWord);
    LOG_PLAIN(KV_LOG_INFO, "Check command option %d\n", static_cast<int>(option));
    std::free(msg->payload);
    msg->payload = nullptr;
    for (const CommandOption &row : kOptions) {
        if (row.option == option) return row.copy(wordCount, after(firstWord), msg);
    }
    LOG_PLAIN(KV_LOG_WARNING, "Unsupport command option\n");
    return KV_RET_ERR;
}

}  // namespace kv
