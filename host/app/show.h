// The network as the daemon's JSON file shows it, as a table for people or as a JSON list.
#pragma once

#include <ctime>
#include <string>

#include "support/json.h"

namespace kv1905d {

struct Question {
    std::string what;   // "devices", "stations", or "device" with its AL MAC
    std::string alMac;  // empty but for "device"
    bool json = false;
    time_t now = 0;  // seconds since the epoch, for ages
};

// The daemon's JSON file. Throws like support::readJsonObject().
support::JsonPtr readModel(const std::string &path);

// What the file at `path` answers, as text to print. Throws Failure, or like readModel().
std::string show(const std::string &path, const Question &question);

// A warning for people when the file was not written for long; empty when it was, or is not there.
std::string staleness(const std::string &path, time_t now);

}  // namespace kv1905d
