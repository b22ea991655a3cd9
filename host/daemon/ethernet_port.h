// Raw sockets. Only this file opens them; all other code receives a descriptor for whole Ethernet frames.
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

// Returns the interface's MAC, or nullopt if there is no such interface.
std::optional<MacAddress> interfaceMac(const std::string &interface);

// Returns the number of the interface of that name, or 0.
int interfaceIndex(const std::string &interface);

// Returns the number of the interface that a socket of this file is bound to; -1 after that interface was deleted or
// moved to another network namespace, even if another interface has its number.
int boundInterface(int fd);

// Returns the interface's counters and speed, 0 where unknown.
LinkStatistics interfaceStatistics(const std::string &interface);

// Returns whether the interface is up and has a carrier.
bool interfaceRunning(const std::string &interface);

/*
 * Opens a socket that sends and receives the IEEE 1905.1 frames of that interface, to any address. It receives frames
 * before a bridge does. Non-blocking. Throws std::system_error that names the interface and the step.
 */
FileDescriptor openPort(const std::string &interface);

struct ReceivedFrame {
    ssize_t size;     // as recv() returns it
    Duration waited;  // in the socket
};

// Receives a frame of such a socket, or fails like recv().
ReceivedFrame receiveFrame(int fd, std::span<uint8_t> buffer);

// Opens a socket that sends through that interface and receives nothing. Throws like openPort().
FileDescriptor openSender(const std::string &interface);

}  // namespace kv1905d
