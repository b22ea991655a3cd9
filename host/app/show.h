// The network as a JSON file shows it, as a table for people or as JSON.
#pragma once

#include <ctime>
#include <string>

#include "network.h"

namespace kv1905d {

// What to show, of one device where `alMac` is not empty. `now`: seconds since the epoch, for ages.
struct Question {
    std::string what;
    std::string alMac;
    bool json = false;
    time_t now = 0;
};

// The text to print. Throws Failure, or like Network::data().
std::string show(Network &network, const Question &question);

// "2 s" or the like since the file was written.
time_t ageOf(const std::string &path, time_t now);

// A warning for people when the file was not written for long; empty when it was, or is not there.
std::string staleness(const std::string &path, time_t now);

}  // namespace kv1905d
