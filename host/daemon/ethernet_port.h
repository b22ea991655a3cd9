// Raw sockets. Only this file opens them; everything else is handed a descriptor that carries whole Ethernet frames.
#pragma once

#include <optional>
#include <string>

#include "ieee1905/wire.h"
#include "support/files.h"

namespace kv1905d {

using support::FileDescriptor;

// The interface's own MAC; nothing when there is no such interface.
std::optional<MacAddress> interfaceMac(const std::string &interface);

// True when the interface is up and has a carrier.
bool interfaceRunning(const std::string &interface);

/*
 * A socket that sends and receives the IEEE 1905.1 frames of that interface, to whatever address. It receives frames
 * before a bridge does. Non-blocking. Throws std::system_error that names the interface and the step.
 */
FileDescriptor openPort(const std::string &interface);

// A socket that sends through that interface and receives nothing. Throws like openPort.
FileDescriptor openSender(const std::string &interface);

}  // namespace kv1905d
