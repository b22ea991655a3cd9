// Raw sockets. Only this file opens them; everything else is handed a descriptor that carries whole Ethernet frames.
#pragma once

#include <sys/types.h>

#include <optional>
#include <span>
#include <string>

#include "ieee1905/clock.h"
#include "ieee1905/link_metrics.h"
#include "ieee1905/wire.h"
#include "support/files.h"

namespace kv1905d {

using support::FileDescriptor;

// The interface's own MAC; nothing when there is no such interface.
std::optional<MacAddress> interfaceMac(const std::string &interface);

// The number of the interface of that name; 0 without one.
int interfaceIndex(const std::string &interface);

// The number of the interface that a socket of this file is bound to; none once that interface was deleted or moved to
// another network namespace, even if an interface of the same number follows.
int boundInterface(int fd);

// What the interface counted and how fast it is; zero where that is not known.
LinkStatistics interfaceStatistics(const std::string &interface);

// True when the interface is up and has a carrier.
bool interfaceRunning(const std::string &interface);

/*
 * A socket that sends and receives the IEEE 1905.1 frames of that interface, to whatever address. It receives frames
 * before a bridge does. Non-blocking. Throws std::system_error that names the interface and the step.
 */
FileDescriptor openPort(const std::string &interface);

struct ReceivedFrame {
    ssize_t size;     // as recv() returns it
    Duration waited;  // in the socket
};

// Receives a frame of such a socket, or fails like recv().
ReceivedFrame receiveFrame(int fd, std::span<uint8_t> buffer);

// A socket that sends through that interface and receives nothing. Throws like openPort.
FileDescriptor openSender(const std::string &interface);

}  // namespace kv1905d
