// The network as a JSON file shows it, as a table for people or as JSON.
#pragma once

#include <ctime>
#include <string>

#include "network.h"

namespace kv1905d {

// A request to show part of the network, only of one device if `alMac` is not empty. `now`: seconds since the epoch,
// for ages.
struct ShowRequest {
    std::string what;
    std::string alMac;
    bool json = false;
    time_t now = 0;
};

// Returns the text to print. Throws Failure, or like Network::data().
std::string show(Network &network, const ShowRequest &request);

// Returns the seconds since the file was written.
time_t ageOf(const std::string &path, time_t now);

// Returns a warning if the file has not been written for long, else an empty text, also without a file.
std::string staleness(const std::string &path, time_t now);

}  // namespace kv1905d
