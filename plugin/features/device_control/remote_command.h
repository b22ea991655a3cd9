// A command line as text, which the agent turns into one of the other requests and handles as that request.
#pragma once

#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// A word of a command text.
struct KvCommandWord {
    KvCommandWord *next;
    char text[1024];  // with its terminator; a longer word refuses the command
};

int handleCommandReqMsg(const KvRecvVendTlv *source, uint16_t msgId, KvVendMsg *msg);
int handleCommandRespMsg(uint16_t msgId, KvVendMsg *msg);

// Turns the words (option, then its arguments) into the embedded request inside msg, whose former payload is freed.
// Returns KV_RET_ERR, with a null payload, for an unknown option, missing words or no memory. A malformed MAC becomes
// all zero.
int parseCommand(unsigned wordCount, const KvCommandWord *firstWord, KvVendMsg *msg);

}  // namespace kv
