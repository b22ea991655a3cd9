// The network as the daemon's JSON file describes it, and the names by which an operator refers to its parts.
#pragma once

#include <json-c/json_object.h>

#include <string>
#include <vector>

#include "support/json.h"

namespace kv1905d {

json_object *member(json_object *object, const char *key);  // null when it is missing

// Text that cannot control a terminal: the file repeats what other devices sent. "-" for an empty or missing value.
std::string plain(json_object *value);

// "Ethernet", the band of a Wi-Fi interface or "Wi-Fi", or "other", for an IEEE 1905.1 media type.
std::string mediaName(json_object *type);
std::string mediaDigits(json_object *type);  // four, hexadecimal

// Calls `visit` for each entry of the list; a list that is missing is empty.
template <typename Visit>
void forEach(json_object *list, const Visit &visit) {
    if (!json_object_is_type(list, json_type_array)) return;
    for (size_t i = 0; i < json_object_array_length(list); ++i)
        visit(json_object_array_get_idx(list, i));
}

// The daemon's JSON file. Throws like support::readJsonObject().
support::JsonPtr readModel(const std::string &path);

class Network {
  public:
    explicit Network(std::string path) : path_(std::move(path)) {}

    // The part of the file that is the daemon's own. It is read at first use; throws like readModel().
    json_object *data();

    json_object *device(const std::string &alMac);  // null when it is not known
    std::string nameOf(const std::string &alMac);   // its model name, or else the AL MAC

    // The AL MAC of a device that is named by it, by its end, by model name or by IP address; the interface of a device
    // by its MAC, the end of it or mediaName(); an interface's media type. Throw Failure that names the candidates.
    std::string alMacOf(const std::string &word);
    std::string interfaceOf(const std::string &alMac, const std::string &word);
    std::string mediaTypeOf(const std::string &alMac, const std::string &interface);
    // The objects of its interface list; empty when the device is unknown.
    std::vector<json_object *> interfacesOf(const std::string &alMac);

  private:
    std::string path_;
    support::JsonPtr root_;
};

}  // namespace kv1905d
