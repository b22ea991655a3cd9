#include "monitor.h"

#include <json-c/json.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <map>

#include "command/client.h"
#include "command/trace.h"
#include "network.h"

namespace kv1905d {
namespace {

constexpr Duration kLookEvery{1000};  // at the data model

// Devices by AL MAC, links by both ends: what they are called.
using Parts = std::map<std::string, std::string>;

Parts partsOf(const std::string &dataModel) {
    Network network(dataModel);
    Parts parts;
    forEach(member(network.data(), "DeviceList"), [&](json_object *device) {
        const std::string alMac = plain(member(device, "ID")), name = network.nameOf(alMac);
        parts[alMac] = "device " + alMac + (name == alMac || name == "-" ? "" : " (" + name + ")");
        forEach(member(device, "NeighborList"), [&](json_object *link) {
            const std::string other = plain(member(link, "ID"));
            parts[std::min(alMac, other) + std::max(alMac, other)] = "link between " +
                                                                     network.nameOf(std::min(alMac, other)) + " and " +
                                                                     network.nameOf(std::max(alMac, other));
        });
    });
    return parts;
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

    void message(const Event &event) const {
        const VendorMessage message = readVendorMessage(event.value);
        if (!json_) return line(traceLine(event.direction, event.peer, event.msgId, message));
        const support::JsonPtr object = newObject("message");
        add(object, "Direction", event.direction == Direction::In ? "in" : "out");
        add(object, "Message", message.name);
        add(object, "Peer", event.peer);
        json_object_object_add(object.get(), "MessageId", json_object_new_int(event.msgId));
        add(object, "Text", message.fault ? "malformed: " + *message.fault : message.words);
        print(object);
    }

    void changes(const Parts &from, const Parts &to, const char *change) const {
        for (const auto &[key, text] : to) {
            if (from.contains(key)) continue;
            if (!json_) {
                line(text + " " + change);
                continue;
            }
            const support::JsonPtr object = newObject(change);
            add(object, "Text", text);
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
    Parts known = partsOf(dataModel);
    auto look = std::chrono::steady_clock::now() + kLookEvery;
    for (;;) {
        if (const std::optional<Event> event = connection.next(kLookEvery)) printer.message(*event);
        if (std::chrono::steady_clock::now() < look) continue;
        Parts now = partsOf(dataModel);
        printer.changes(known, now, "appeared");
        printer.changes(now, known, "disappeared");
        known = std::move(now);
        look = std::chrono::steady_clock::now() + kLookEvery;
    }
}

}  // namespace kv1905d
