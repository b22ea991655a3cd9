#include "frame/mac_text.h"

#include <cstdio>

namespace kv {

uint8_t *string2MacAddr(const char *text, uint8_t *mac) {
    if (text == nullptr || mac == nullptr) {
        return nullptr;
    }
    const int fields =
        std::sscanf(text, "%2hhx:%2hhx:%2hhx:%2hhx:%2hhx:%2hhx", &mac[0], &mac[1], &mac[2], &mac[3], &mac[4], &mac[5]);
    return fields == 6 ? mac : nullptr;
}

}  // namespace kv
