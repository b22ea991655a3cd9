#include "daemon/ethernet_port.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <ctime>
#include <iterator>

#include "ieee1905/cmdu.h"
#include "ieee1905/lldp.h"

namespace kv1905d {
namespace {

// A device reports its stations in one burst: 2000 of them need about 130 full frames, 2.3 kB of kernel memory each.
constexpr int kSocketBuffer = 4 << 20;  // bytes

// The call that fills this program's timespec: on a 32-bit machine, the plain one has seconds of 32 bits.
#ifdef SYS_clock_gettime64
constexpr long kGetTime = SYS_clock_gettime64;
#else
constexpr long kGetTime = SYS_clock_gettime;
#endif

std::system_error failureOf(const std::string &interface, const char *step) {
    return support::systemError("interface " + interface, step);
}

template <typename T>
void setOption(int fd, int level, int option, const T &value, const std::string &interface, const char *step) {
    if (setsockopt(fd, level, option, &value, sizeof value) != 0) throw failureOf(interface, step);
}

bool interfaceRequest(const std::string &interface, unsigned long request, ifreq &answer) {
    if (interface.size() >= IFNAMSIZ) return false;
    const FileDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    answer = {};
    std::memcpy(answer.ifr_name, interface.c_str(), interface.size() + 1);
    return control.valid() && ioctl(control.get(), request, &answer) == 0;
}

// Accepts frames of our EtherType and LLDP. Node compares addresses: those of interfaces may change.
void attachFilter(int fd, const std::string &interface) {
    sock_filter program[] = {
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, offsetof(ethhdr, h_proto)),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kEtherType, 1, 0),
        BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, kLldpEtherType, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 0xFFFF),  // bytes
        BPF_STMT(BPF_RET | BPF_K, 0),
    };
    const sock_fprog filter{static_cast<unsigned short>(std::size(program)), program};
    setOption(fd, SOL_SOCKET, SO_ATTACH_FILTER, filter, interface, "attach the frame filter");
}

void addMembership(int fd, int index, unsigned short type, const MacAddress &mac, const std::string &interface,
                   const char *step) {
    packet_mreq membership{};
    membership.mr_ifindex = index;
    membership.mr_type = type;
    membership.mr_alen = 6;
    std::copy(mac.bytes.begin(), mac.bytes.end(), membership.mr_address);
    setOption(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, membership, interface, step);
}

void bindTo(int fd, int index, uint16_t protocol, const std::string &interface) {
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(protocol);
    address.sll_ifindex = index;
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) throw failureOf(interface, "bind");
}

// Exceeds the system's limit if that is permitted.
void enlargeBuffers(int fd) {
    constexpr struct { int beyond, within; } rows[] = {{SO_RCVBUFFORCE, SO_RCVBUF}, {SO_SNDBUFFORCE, SO_SNDBUF}};
    for (const auto &row : rows) {
        if (setsockopt(fd, SOL_SOCKET, row.beyond, &kSocketBuffer, sizeof kSocketBuffer) == 0) continue;
        setsockopt(fd, SOL_SOCKET, row.within, &kSocketBuffer, sizeof kSocketBuffer);
    }
}

// Opens with protocol 0: nothing arrives before bindTo sets one, so no frame bypasses the filter.
FileDescriptor openPacketSocket(const std::string &interface, int *index) {
    *index = interfaceIndex(interface);
    if (*index == 0) throw failureOf(interface, "look up");
    FileDescriptor fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.valid()) throw failureOf(interface, "open a packet socket");
    enlargeBuffers(fd.get());
    return fd;
}

}  // namespace

std::optional<MacAddress> interfaceMac(const std::string &interface) {
    ifreq request{};
    if (!interfaceRequest(interface, SIOCGIFHWADDR, request)) return std::nullopt;
    MacAddress mac;
    std::memcpy(mac.bytes.data(), request.ifr_hwaddr.sa_data, mac.bytes.size());
    return mac;
}

int interfaceIndex(const std::string &interface) {
    return static_cast<int>(if_nametoindex(interface.c_str()));
}

int boundInterface(int fd) {
    sockaddr_ll address{};
    socklen_t size = sizeof address;
    return getsockname(fd, reinterpret_cast<sockaddr *>(&address), &size) == 0 ? address.sll_ifindex : -1;
}

LinkStatistics interfaceStatistics(const std::string &interface) {
    const auto number = [&](const char *name) -> uint64_t {
        try {
            const std::string text = support::readFile("/sys/class/net/" + interface + "/" + name, 64);
            return text.starts_with('-') ? 0 : std::stoull(text);  // a speed of -1 is not known
        } catch (const std::exception &) {
            return 0;
        }
    };
    const auto counted = [&](const char *name) { return static_cast<uint32_t>(number(name)); };
    return {counted("statistics/tx_packets"), counted("statistics/tx_errors"), counted("statistics/rx_packets"),
            counted("statistics/rx_errors"), static_cast<uint16_t>(std::min<uint64_t>(number("speed"), UINT16_MAX))};
}

bool interfaceRunning(const std::string &interface) {
    ifreq request{};
    constexpr short wanted = IFF_UP | IFF_RUNNING;
    return interfaceRequest(interface, SIOCGIFFLAGS, request) && (request.ifr_flags & wanted) == wanted;
}

FileDescriptor openPort(const std::string &interface) {
    int index = 0;
    FileDescriptor fd = openPacketSocket(interface, &index);
    attachFilter(fd.get(), interface);
    setOption(fd.get(), SOL_SOCKET, SO_TIMESTAMPNS, int{1}, interface, "have frames stamped with their time");
    setOption(fd.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, int{1}, interface, "ignore outgoing frames");
    addMembership(fd.get(), index, PACKET_MR_MULTICAST, kMulticastMac, interface, "join the multicast group");
    addMembership(fd.get(), index, PACKET_MR_MULTICAST, kLldpMac, interface, "join the LLDP group");
    // No hardware filter accepts AL MACs, the destinations of unicast.
    addMembership(fd.get(), index, PACKET_MR_PROMISC, {}, interface, "become promiscuous");
    // ETH_P_ALL listeners receive a bridge port's frames before the bridge does; those of one EtherType do not.
    bindTo(fd.get(), index, ETH_P_ALL, interface);
    return fd;
}

ReceivedFrame receiveFrame(int fd, std::span<uint8_t> buffer) {
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(timespec))];
    iovec data{buffer.data(), buffer.size()};
    msghdr message{};
    message.msg_iov = &data;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t size = recvmsg(fd, &message, MSG_DONTWAIT);
    const cmsghdr *stamp = size < 0 ? nullptr : CMSG_FIRSTHDR(&message);
    if (stamp == nullptr || stamp->cmsg_level != SOL_SOCKET || stamp->cmsg_type != SCM_TIMESTAMPNS) return {size, {}};
    timespec received, now;
    std::memcpy(&received, CMSG_DATA(stamp), sizeof received);
    // Reads the kernel's own clock, which wrote the stamp: a preloaded library may show this process another one.
    if (syscall(kGetTime, CLOCK_REALTIME, &now) != 0) clock_gettime(CLOCK_REALTIME, &now);
    return {size, Duration((now.tv_sec - received.tv_sec) * 1000 + (now.tv_nsec - received.tv_nsec) / 1'000'000)};
}

FileDescriptor openSender(const std::string &interface) {
    int index = 0;
    FileDescriptor fd = openPacketSocket(interface, &index);
    bindTo(fd.get(), index, 0, interface);
    return fd;
}

}  // namespace kv1905d
