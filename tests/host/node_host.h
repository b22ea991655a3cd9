// A single node, for tests that act as the rest of its network.
#pragma once

#include <memory>
#include <tuple>
#include <vector>

#include "daemon/node.h"
#include "host_support.h"
#include "ieee1905/lldp.h"

namespace kv1905d {

inline constexpr TimePoint kStart{Duration(5000)};

// Headers of frames of device 2, and its topology discovery.
inline const std::string kToAll = "0180C2000013 02005E000200 893A 00 00",
                         kToNode = "02005E000100 02005E000200 893A 00 00",
                         kDiscovery = kToAll + "0000 0001 00 80 01 0006 02005E000200 02 0006 02005E000210 00 0000";

// A node whose ports are socket pairs, where one write is one frame; the test holds the far ends.
struct Host {
    explicit Host(unsigned device = 1, unsigned ports = 2) {
        config.alMac = mac(device);
        config.seed = device;
        config.radios = {{mac(device, 0x20), 0x0103, Bytes(10)}, {mac(device, 0x21), 0x0105, {}}};
        for (unsigned port = 0; port < ports; ++port) {
            int fds[2];
            EXPECT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds), 0);
            near.emplace_back(fds[0]);
            far.emplace_back(fds[1]);
            config.ports.push_back({"eth" + std::to_string(port), mac(device, 0x10 + port), 0x0001, fds[0]});
        }
        events.vendorTlv = [this](const VendorTlv &tlv) {
            received.emplace_back(tlv.source, Bytes(tlv.value.begin(), tlv.value.end()), tlv.msgId);
        };
        start(kStart);
    }
    void start(TimePoint now) { node = std::make_unique<Node>(config, events, now); }
    TimePoint run(TimePoint now) const { return node->run(now); }
    void receive(size_t port, const std::string &frame, TimePoint now = kStart) const {
        node->receive(port, fromHex(frame), now);
    }
    // Frames of other protocols are dropped.
    std::vector<Bytes> sent(size_t port = 0, uint16_t etherType = kEtherType) const {
        std::vector<Bytes> frames;
        for (Bytes frame; takeFrame(far[port], frame);)
            if ((frame.at(12) << 8 | frame.at(13)) == etherType) frames.push_back(frame);
        return frames;
    }
    // Returns whether the node counts the frame as malformed.
    bool refuses(size_t port, const Bytes &frame) const {
        const uint64_t before = node->counters().parseFailures;
        node->receive(port, frame, kStart);
        return node->counters().parseFailures != before;
    }
    const Device *find(unsigned device) const { return node->topology().find(mac(device)); }

    NodeConfig config;
    NodeEvents events;
    std::vector<FileDescriptor> near, far;
    std::unique_ptr<Node> node;
    std::vector<std::tuple<MacAddress, Bytes, uint16_t>> received;  // vendor TLVs with their sources and identifiers
};

}  // namespace kv1905d
