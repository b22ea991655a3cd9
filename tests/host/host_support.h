// Shared by the host's tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

#include "app/outcome.h"
#include "daemon/ethernet_port.h"
#include "ieee1905/cmdu.h"

namespace kv1905d {

inline constexpr const char *kPlugin = "lib/libkvMAP1905.so";  // below the build directory, where the tests run

// "01 80 C2" as bytes; blanks may be left out.
inline Bytes fromHex(std::string_view text) {
    std::string digits(text);
    std::erase(digits, ' ');
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

inline bool contains(const Bytes &bytes, const std::string &hex) {
    const Bytes part = fromHex(hex);
    return std::search(bytes.begin(), bytes.end(), part.begin(), part.end()) != bytes.end();
}

inline Bytes prefix(const Bytes &bytes, size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)};
}

inline MacAddress mac(unsigned device, unsigned port = 0) {
    return {{0x02, 0x00, 0x5E, 0x00, static_cast<uint8_t>(device), static_cast<uint8_t>(port)}};
}

inline bool takeFrame(const FileDescriptor &fd, Bytes &frame) {
    frame.resize(2000);
    const ssize_t size = recv(fd.get(), frame.data(), frame.size(), 0);
    if (size >= 0) frame.resize(static_cast<size_t>(size));
    return size >= 0;
}

// Returns the result of a command that ends with the call's exception.
template <typename Call>
CommandResult resultOf(const Call &call) {
    try {
        call();
    } catch (const std::exception &error) {
        return failureOf(error);
    }
    return {};
}

}  // namespace kv1905d

#define EXPECT_CONTAINS(part, text) EXPECT_PRED_FORMAT2(testing::IsSubstring, part, text)
