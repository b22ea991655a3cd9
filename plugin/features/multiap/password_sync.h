// Copies the controller's administrator password to an agent. Neither side checks roles or the peer's identity.
#pragma once

#include <cstddef>
#include <cstdint>

#include "kv1905/kvMAP1905.h"

namespace kv {

// Controller: reads its own password and responds with it, scrambled. Returns 0 or KV_RET_ERR.
int handleSyncControllerPwdReqMsg(const KvRecvVendTlv *source, uint16_t msgId);

// Agent: unscrambles length bytes of password (at most 255, in a buffer of 256) in place and stores them in the "admin"
// account. Does nothing without that account.
void applyScrambledPassword(uint8_t *password, size_t length);

// Scrambles or unscrambles in place, byte by byte with the device's key. Bytes after the key's end are unchanged.
void kvEncryptPwd(uint8_t *data, size_t length);
void kvDecryptPwd(uint8_t *data, size_t length);

}  // namespace kv
