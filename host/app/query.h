// Commands that end with a vendor message, whose contents they print as a table or as JSON.
#pragma once

#include <string>

#include "command/client.h"
#include "outcome.h"

namespace kv1905d {

// Waits for the message that ends the command with that code for that device. Throws std::system_error.
CommandResult awaitMessage(MonitorConnection &monitor, uint32_t code, const std::string &alMac, Duration timeout,
                           bool json);

}  // namespace kv1905d
