#include "daemon/ethernet_port.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "ieee1905/cmdu.h"

namespace kv1905d {
namespace {

// Offsets in the Ethernet header, as the filter program counts them.
constexpr uint32_t kOffsetDestinationHigh = 0;  // 4 bytes
constexpr uint32_t kOffsetDestinationLow = 4;   // 2 bytes
constexpr uint32_t kOffsetEtherType = 12;       // 2 bytes

// A device reports its stations in one burst: 2000 of them take some 130 full frames, 2.3 kB of kernel memory each.
constexpr int kSocketBuffer = 4 << 20;  // bytes

[[noreturn]] void fail(const std::string &interface, const char *step) {
    throw std::system_error(errno, std::generic_category(), "interface " + interface + ": " + step);
}

template <typename T>
void setOption(int fd, int level, int option, const T &value, const std::string &interface, const char *step) {
    if (setsockopt(fd, level, option, &value, sizeof value) != 0) fail(interface, step);
}

bool interfaceRequest(const std::string &interface, unsigned long request, ifreq &answer) {
    if (interface.size() >= IFNAMSIZ) return false;
    const FileDescriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
    answer = {};
    std::memcpy(answer.ifr_name, interface.c_str(), interface.size() + 1);
    return control.valid() && ioctl(control.get(), request, &answer) == 0;
}

uint32_t high(const MacAddress &mac) {
    const auto &b = mac.bytes;
    return uint32_t{b[0]} << 24 | uint32_t{b[1]} << 16 | uint32_t{b[2]} << 8 | b[3];
}

uint32_t low(const MacAddress &mac) {
    return uint32_t{mac.bytes[4]} << 8 | mac.bytes[5];
}

// Accept frames of our EtherType to one of three destinations.
void attachFilter(int fd, const MacAddress (&destinations)[3], const std::string &interface) {
    constexpr uint8_t accept = 14;
    constexpr uint8_t reject = 15;
    const auto load = [](uint16_t width, uint32_t offset) -> sock_filter {
        return BPF_STMT(static_cast<uint16_t>(BPF_LD | BPF_ABS | width), offset);
    };
    // `yes` and `no` are absolute places in the program; the machine wants them relative to the next instruction.
    const auto jump = [](size_t here, uint32_t value, size_t yes, size_t no) -> sock_filter {
        return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, static_cast<uint8_t>(yes - here - 1),
                        static_cast<uint8_t>(no - here - 1));
    };
    sock_filter program[16];
    size_t at = 0;
    program[at++] = load(BPF_H, kOffsetEtherType);
    program[at] = jump(at, kEtherType, at + 1, reject);
    ++at;
    for (const MacAddress &mac : destinations) {
        const size_t next = at + 4;
        program[at++] = load(BPF_W, kOffsetDestinationHigh);
        program[at] = jump(at, high(mac), at + 1, next < accept ? next : reject);
        ++at;
        program[at++] = load(BPF_H, kOffsetDestinationLow);
        program[at] = jump(at, low(mac), accept, next < accept ? next : reject);
        ++at;
    }
    program[accept] = BPF_STMT(BPF_RET | BPF_K, 0xFFFF);
    program[reject] = BPF_STMT(BPF_RET | BPF_K, 0);
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
    if (bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0) fail(interface, "bind");
}

// Beyond the system's limit where that is allowed, else up to it.
void enlargeBuffers(int fd) {
    constexpr struct { int beyond, within; } rows[] = {{SO_RCVBUFFORCE, SO_RCVBUF}, {SO_SNDBUFFORCE, SO_SNDBUF}};
    for (const auto &row : rows) {
        if (setsockopt(fd, SOL_SOCKET, row.beyond, &kSocketBuffer, sizeof kSocketBuffer) == 0) continue;
        setsockopt(fd, SOL_SOCKET, row.within, &kSocketBuffer, sizeof kSocketBuffer);
    }
}

// Protocol 0: nothing arrives before bindTo names one, so no frame slips past a filter that is not there yet.
FileDescriptor openPacketSocket(const std::string &interface, int *index) {
    *index = static_cast<int>(if_nametoindex(interface.c_str()));
    if (*index == 0) fail(interface, "look up");
    FileDescriptor fd(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!fd.valid()) fail(interface, "open a packet socket");
    enlargeBuffers(fd.get());
    return fd;
}

}  // namespace

FileDescriptor::~FileDescriptor() {
    if (fd_ >= 0) close(fd_);
}

std::optional<MacAddress> interfaceMac(const std::string &interface) {
    ifreq request{};
    if (!interfaceRequest(interface, SIOCGIFHWADDR, request)) return std::nullopt;
    MacAddress mac;
    std::memcpy(mac.bytes.data(), request.ifr_hwaddr.sa_data, mac.bytes.size());
    return mac;
}

bool interfaceRunning(const std::string &interface) {
    ifreq request{};
    constexpr short wanted = IFF_UP | IFF_RUNNING;
    return interfaceRequest(interface, SIOCGIFFLAGS, request) && (request.ifr_flags & wanted) == wanted;
}

FileDescriptor openPort(const std::string &interface, const MacAddress &alMac) {
    const std::optional<MacAddress> own = interfaceMac(interface);
    if (!own) fail(interface, "look up");
    int index = 0;
    FileDescriptor fd = openPacketSocket(interface, &index);
    attachFilter(fd.get(), {alMac, *own, kMulticastMac}, interface);
    setOption(fd.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, int{1}, interface, "ignore outgoing frames");
    addMembership(fd.get(), index, PACKET_MR_MULTICAST, kMulticastMac, interface, "join the multicast group");
    // Unicast goes to AL MACs, which no hardware filter knows.
    addMembership(fd.get(), index, PACKET_MR_PROMISC, {}, interface, "become promiscuous");
    // ETH_P_ALL listeners see a bridge port's frames before the bridge takes them; those of one EtherType do not.
    bindTo(fd.get(), index, ETH_P_ALL, interface);
    return fd;
}

FileDescriptor openSender(const std::string &interface) {
    int index = 0;
    FileDescriptor fd = openPacketSocket(interface, &index);
    bindTo(fd.get(), index, 0, interface);
    return fd;
}

}  // namespace kv1905d
