#include "monitor.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <map>
#include <set>
#include <utility>

#include "command/client.h"
#include "command/trace.h"
#include "network.h"

namespace kv1905d {
namespace {

constexpr Duration kLookEvery{1000};  // at the data model

// AL MACs of a link's devices; the second one is empty for a device.
using Ends = std::pair<std::string, std::string>;
// Descriptions of devices or links for people.
using Parts = std::map<Ends, std::string>;

struct Picture {
    std::map<std::string, std::string> names;  // of devices, by AL MAC
    Parts devices, links;

    std::string nameOf(const std::string &peer) const {
        const auto found = names.find(peer);
        return found == names.end() ? peer : found->second;
    }
};

Picture pictureOf(const std::string &dataModel) {
    Network network(dataModel);
    Picture picture;
    std::set<Ends> reported;
    forEach(member(network.data(), "DeviceList"), [&](json_object *device) {
        const std::string alMac = plain(member(device, "ID")), name = network.nameOf(alMac);
        picture.names[alMac] = name;
        picture.devices[{alMac, ""}] = "device " + alMac + (name == alMac ? "" : " (" + name + ")");
        forEach(member(device, "NeighborList"),
                [&](json_object *link) { reported.emplace(alMac, plain(member(link, "ID"))); });
    });
    // A device that is cut off stays in the file for a while, and with it the links of its last report. So a link needs
    // both ends; a device without a report is not in the file.
    for (const auto &[one, other] : reported) {
        const bool isWhole = !picture.names.contains(other) || reported.contains({other, one});
        const Ends ends = std::minmax(one, other);
        if (isWhole)
            picture.links[ends] = "link between " + picture.nameOf(ends.first) + " and " + picture.nameOf(ends.second);
    }
    return picture;
}

std::string timeOfDay() {
    const time_t now = std::time(nullptr);
    tm clock{};
    char text[32];
    strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", gmtime_r(&now, &clock));
    return text;
}

class Printer {
  public:
    explicit Printer(bool json) : json_(json) {}

    void message(const Event &event, const std::string &peer) const {
        const VendorMessage message = readVendorMessage(event.value);
        if (!json_) return line(traceLine(event.direction, peer, event.msgId, message));
        const support::JsonPtr object = newObject("message");
        add(object, "Direction", event.direction == Direction::In ? "in" : "out");
        add(object, "Message", message.name);
        add(object, "Peer", event.peer);
        json_object_object_add(object.get(), "MessageId", json_object_new_int(event.msgId));
        add(object, "Text", message.fault ? "malformed: " + *message.fault : message.words);
        print(object);
    }

    void changes(const Parts &from, const Parts &to, const char *change) const {
        for (const auto &[ends, text] : to) {
            if (from.contains(ends)) continue;
            if (!json_) {
                line(text + " " + change);
                continue;
            }
            const support::JsonPtr object = newObject(change);
            add(object, "Text", text);
            add(object, "Device", ends.first);
            if (!ends.second.empty()) add(object, "Neighbor", ends.second);
            print(object);
        }
    }

  private:
    static void line(const std::string &text) {
        std::printf("%s %s\n", timeOfDay().c_str(), text.c_str());
        std::fflush(stdout);
    }
    static void add(const support::JsonPtr &object, const char *key, const std::string &text) {
        json_object_object_add(object.get(), key, json_object_new_string(text.c_str()));
    }
    static support::JsonPtr newObject(const char *event) {
        support::JsonPtr object(json_object_new_object());
        add(object, "Time", timeOfDay());
        add(object, "Event", event);
        return object;
    }
    static void print(const support::JsonPtr &object) {
        std::puts(json_object_to_json_string_ext(object.get(), JSON_C_TO_STRING_NOSLASHESCAPE));
        std::fflush(stdout);
    }

    bool json_;
};

}  // namespace

void monitorNetwork(const std::string &dataModel, const RunOptions &options) {
    MonitorConnection connection(options.socket, options.timeout);
    const Printer printer(options.json);
    Picture known = pictureOf(dataModel);
    auto look = std::chrono::steady_clock::now() + kLookEvery;
    for (;;) {
        if (const std::optional<Event> event = connection.next(kLookEvery))
            printer.message(*event, known.nameOf(event->peer));
        if (std::chrono::steady_clock::now() < look) continue;
        Picture now = pictureOf(dataModel);
        printer.changes(known.devices, now.devices, "appeared");
        printer.changes(known.links, now.links, "appeared");
        printer.changes(now.links, known.links, "disappeared");
        printer.changes(now.devices, known.devices, "disappeared");
        known = std::move(now);
        look = std::chrono::steady_clock::now() + kLookEvery;
    }
}

}  // namespace kv1905d
