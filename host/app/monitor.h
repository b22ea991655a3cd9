// Follows what the daemon sends and receives, and changes of the network.
#pragma once

#include <string>

#include "run.h"

namespace kv1905d {

// Prints one line for each vendor message and each device or link that appears or disappears, until the daemon ends,
// which throws std::system_error.
void monitorNetwork(const std::string &dataModel, const RunOptions &options);

}  // namespace kv1905d
