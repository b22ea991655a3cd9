#include "daemon/frame_sender.h"

#include <sys/socket.h>

#include "ieee1905/lldp.h"

namespace kv1905d {

bool FrameSender::multicast(const Message &message, std::optional<size_t> exceptPort) {
    const std::vector<Bytes> payloads = encodeMessage(message);
    bool sent = false;
    for (size_t port = 0; port < ports_.size(); ++port) {
        if (port != exceptPort) sent |= send(ports_[port].fd, kMulticastMac, payloads);
    }
    return sent;
}

bool FrameSender::multicastOn(size_t port, const Message &message) {
    return send(ports_[port].fd, kMulticastMac, encodeMessage(message));
}

bool FrameSender::unicast(const Message &message, const MacAddress &alMac, std::optional<size_t> port) {
    const std::vector<Bytes> payloads = encodeMessage(message);
    if (bridgeFd_ >= 0) return send(bridgeFd_, alMac, payloads);
    if (port) return send(ports_[*port].fd, alMac, payloads);
    bool sent = false;
    for (const Port &each : ports_)
        sent |= send(each.fd, alMac, payloads);
    return sent;
}

bool FrameSender::bridgeDiscoveryOn(size_t port) {
    return sendFrame(ports_[port].fd, kLldpMac, kLldpEtherType, encodeBridgeDiscovery({alMac_, ports_[port].mac}));
}

bool FrameSender::send(int fd, const MacAddress &destination, const std::vector<Bytes> &payloads) {
    for (const Bytes &payload : payloads) {
        if (!sendFrame(fd, destination, kEtherType, payload)) return false;
    }
    return !payloads.empty();
}

bool FrameSender::sendFrame(int fd, const MacAddress &destination, uint16_t etherType, ByteView payload) {
    constexpr size_t kEthernetHeader = 14;
    WireWriter out(kEthernetHeader + payload.size());
    out.mac(destination);
    out.mac(alMac_);
    out.u16(etherType);
    out.bytes(payload);
    const Bytes frame = out.take();
    if (::send(fd, frame.data(), frame.size(), MSG_DONTWAIT | MSG_NOSIGNAL) != static_cast<ssize_t>(frame.size())) {
        ++counters_.sendFailures;
        return false;
    }
    ++counters_.framesSent;
    return true;
}

}  // namespace kv1905d
