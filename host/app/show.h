// The network as the daemon's JSON file shows it, as a table for people or as a JSON list.
#pragma once

#include <ctime>
#include <string>

namespace kv1905d {

// What of the file at `path`: "devices", "stations", or "device" with its AL MAC. Returns the text to print.
// Throws Failure.
std::string show(const std::string &path, const std::string &what, const std::string &alMac, bool json);

// A warning for people when the file was not written for long; empty when it was, or is not there.
std::string staleness(const std::string &path, time_t now);

}  // namespace kv1905d
