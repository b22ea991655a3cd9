// Shared by the host's tests.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>

#include <algorithm>
#include <string>
#include <string_view>

#include "ethernet_port.h"
#include "ieee1905/cmdu.h"

namespace kv1905d {

// "01 80 C2" as bytes; blanks may be left out.
inline Bytes fromHex(std::string_view text) {
    std::string digits(text);
    std::erase(digits, ' ');
    Bytes bytes;
    for (size_t i = 0; i < digits.size(); i += 2)
        bytes.push_back(static_cast<uint8_t>(std::stoul(digits.substr(i, 2), nullptr, 16)));
    return bytes;
}

inline Bytes prefix(const Bytes &bytes, size_t size) {
    return {bytes.begin(), bytes.begin() + static_cast<ptrdiff_t>(size)};
}

inline MacAddress mac(unsigned device, unsigned port = 0) {
    return {{0x02, 0x00, 0x5E, 0x00, static_cast<uint8_t>(device), static_cast<uint8_t>(port)}};
}

// Two ends of a link: one write is one frame.
inline void joinPorts(FileDescriptor &a, FileDescriptor &b) {
    int fds[2];
    ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0);
    a = FileDescriptor(fds[0]);
    b = FileDescriptor(fds[1]);
}

inline bool takeFrame(const FileDescriptor &fd, Bytes &frame) {
    frame.resize(2000);
    const ssize_t size = recv(fd.get(), frame.data(), frame.size(), 0);
    if (size >= 0) frame.resize(static_cast<size_t>(size));
    return size >= 0;
}

// What the call throws.
template <typename Call>
std::string errorOf(const Call &call) {
    try {
        call();
    } catch (const std::exception &error) {
        return error.what();
    }
    return "(nothing thrown)";
}

}  // namespace kv1905d
