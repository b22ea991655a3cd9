#include "frame/mac_text.h"

#include <cstdio>
#include <cstring>

#include "kv1905/kvMAP1905.h"

namespace kv {

int hexadecimalDigit(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    const int letter = c | 0x20;
    return letter >= 'a' && letter <= 'f' ? letter - 'a' + 10 : -1;
}

uint8_t *string2MacAddr(const char *text, uint8_t *mac) {
    if (text == nullptr || mac == nullptr) return nullptr;
    const int fields =
        std::sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]);
    return fields == KV_MAC_LEN ? mac : nullptr;
}

bool scanMac(const char *text, uint8_t *mac) {
    return std::sscanf(text, "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]) ==
           KV_MAC_LEN;
}

bool parseMacText(const char *text, size_t length, uint8_t *mac) {
    uint8_t parsed[KV_MAC_LEN] = {};
    size_t field = 0;
    int digits = 0;  // of this field
    for (size_t i = 0; i < length; ++i) {
        const int digit = hexadecimalDigit(text[i]);
        if (digit >= 0 && ++digits <= 2) {
            parsed[field] = static_cast<uint8_t>(parsed[field] << 4 | digit);
        } else if (text[i] == ':' && digits > 0 && ++field < KV_MAC_LEN) {
            digits = 0;
        } else {
            return false;
        }
    }
    if (field != KV_MAC_LEN - 1 || digits == 0) return false;
    std::memcpy(mac, parsed, sizeof parsed);
    return true;
}

}  // namespace kv
