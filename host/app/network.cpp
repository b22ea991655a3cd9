#include "network.h"

#include <json-c/json.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>

#include "ieee1905/mac_address.h"
#include "ieee1905/wifi_band.h"
#include "outcome.h"

namespace kv1905d {
namespace {

constexpr size_t kMostNamed = 8;       // candidates that a message lists
constexpr size_t kShortestSuffix = 2;  // characters of a MAC

std::string listOf(const std::vector<std::string> &names) {
    std::string text;
    for (size_t i = 0; i < std::min(names.size(), kMostNamed); ++i)
        text += (i == 0 ? "" : ", ") + names[i];
    return text.empty() ? "none" : text + (names.size() > kMostNamed ? ", ..." : "");
}

bool equal(const std::string &text, const std::string &word) {
    return strcasecmp(text.c_str(), word.c_str()) == 0;
}

bool endsWith(const std::string &text, const std::string &word) {
    return word.size() >= kShortestSuffix && word.size() <= text.size() &&
           equal(text.substr(text.size() - word.size()), word);
}

// Returns the only entry. `what` and `in` complete the message when there is none or more than one.
template <typename NameOf>
json_object *onlyOne(const std::vector<json_object *> &found, const std::vector<json_object *> &all,
                     const std::string &what, const std::string &in, const NameOf &nameOf) {
    if (found.size() == 1) return found.front();
    std::vector<std::string> names;
    for (json_object *entry : found.empty() ? all : found)
        names.push_back(nameOf(entry));
    if (found.empty()) throw Failure(Status::NoDevice, "no " + what + " in " + in + ", which has: " + listOf(names));
    throw Failure(Status::BadArguments, what + " is ambiguous; it fits: " + listOf(names));
}

}  // namespace

json_object *member(json_object *object, const char *key) {
    return json_object_is_type(object, json_type_object) ? json_object_object_get(object, key) : nullptr;
}

std::string plain(json_object *value) {
    std::string out;
    for (const char *at = value == nullptr ? "-" : json_object_get_string(value); *at != '\0'; ++at)
        out += *at >= ' ' && *at <= '~' ? *at : '?';
    return out.empty() ? "-" : out;
}

std::string mediaName(json_object *type) {
    const auto number = static_cast<uint16_t>(json_object_get_int(type));
    if (!json_object_is_type(type, json_type_int)) return "-";
    if (number < 0x0100) return "Ethernet";
    std::string band = bandName(bandOfMediaType(number));
    if (!band.empty()) return band;
    return number < 0x0200 ? "Wi-Fi" : "other";  // of any band, as 802.11ax
}

std::string mediaDigits(json_object *type) {
    char digits[8];
    std::snprintf(digits, sizeof digits, "%04x", json_object_get_int(type) & 0xFFFF);
    return digits;
}

support::JsonPtr readModel(const std::string &path) {
    constexpr size_t kLimit = size_t{64} << 20;  // bytes, far beyond the largest network
    return support::readJsonObject(path, kLimit);
}

json_object *Network::data() {
    if (!root_) root_ = readModel(path_);
    return member(root_.get(), "kv1905");
}

json_object *Network::device(const std::string &alMac) {
    json_object *found = nullptr;
    forEach(member(data(), "DeviceList"), [&](json_object *each) {
        if (plain(member(each, "ID")) == alMac) found = each;
    });
    return found;
}

std::string Network::nameOf(const std::string &alMac) {
    const std::string name = plain(member(device(alMac), "ModelName"));
    return name == "-" ? alMac : name;
}

std::string Network::alMacOf(const std::string &word) {
    if (const auto mac = MacAddress::parse(word)) return mac->text();
    std::vector<json_object *> all, named, suffixed;
    forEach(member(data(), "DeviceList"), [&](json_object *each) {
        all.push_back(each);
        const bool isIt = equal(plain(member(each, "ModelName")), word) || plain(member(each, "IpAddress")) == word;
        if (isIt) named.push_back(each);
        if (endsWith(plain(member(each, "ID")), word)) suffixed.push_back(each);
    });
    const auto nameOf = [](json_object *each) {
        return plain(member(each, "ModelName")) + " (" + plain(member(each, "ID")) + ")";
    };
    return plain(
        member(onlyOne(named.empty() ? suffixed : named, all, "device '" + word + "'", "the network", nameOf), "ID"));
}

std::vector<json_object *> Network::interfacesOf(const std::string &alMac) {
    std::vector<json_object *> list;
    forEach(member(device(alMac), "InterfaceList"), [&](json_object *each) { list.push_back(each); });
    return list;
}

std::string Network::interfaceOf(const std::string &alMac, const std::string &word) {
    if (const auto mac = MacAddress::parse(word)) return mac->text();
    const std::vector<json_object *> all = interfacesOf(alMac);
    std::vector<json_object *> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found), [&](json_object *each) {
        return equal(mediaName(member(each, "MediaType")), word) || endsWith(plain(member(each, "MACAddress")), word);
    });
    const auto nameOf = [](json_object *each) {
        return plain(member(each, "MACAddress")) + " (" + mediaName(member(each, "MediaType")) + ")";
    };
    return plain(member(onlyOne(found, all, "interface '" + word + "'", this->nameOf(alMac), nameOf), "MACAddress"));
}

std::string Network::mediaTypeOf(const std::string &alMac, const std::string &interface) {
    const std::vector<json_object *> all = interfacesOf(alMac);
    std::vector<json_object *> found;
    std::copy_if(all.begin(), all.end(), std::back_inserter(found),
                 [&](json_object *each) { return plain(member(each, "MACAddress")) == interface; });
    if (found.size() == 1) return mediaDigits(member(found.front(), "MediaType"));
    throw Failure(Status::BadArguments, "MEDIA-TYPE is missing: " + interface +
                                            (found.empty() ? " is no" : " is more than one") + " interface that " +
                                            nameOf(alMac) + " reports");
}

}  // namespace kv1905d
