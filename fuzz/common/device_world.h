// A device around the live plug-in: a host, a configuration service, files, a clock, and commands that are checked
// and answered but never run. Programs that use it run in a private root (lab/room): the files are at the device's own
// paths.
#pragma once

#include <optional>
#include <string>

#include "common/input.h"
#include "support/fake_host.h"
#include "support/fake_system.h"

namespace kvfuzz {

using kvtest::Mac;

inline constexpr Mac kSecondAgent = {0x02, 0x00, 0x5E, 0x00, 0x03, 0x00};
inline constexpr std::time_t kStart = 1'700'000'000;

inline const std::string kConfigFile = "/tmp/.kv1905_conf";
inline const std::string kVersionFile = "/etc/kv1905/kv1905_Version";
inline const std::string kStations24File = "/tmp/assoc_list.24g";
inline const std::string kStations5File = "/tmp/assoc_list.5g";

void writeFile(const std::string &path, const std::string &text);

// One at a time. Starts with two agents, this device as controller, two accounts, two radios and a scrambling key.
struct DeviceWorld {
    DeviceWorld();
    ~DeviceWorld();

    // Everything that a message must leave alone when it is refused: records, stations, settings, open queries.
    std::string state() const;

    // Whether a message was refused by its decoder since the last check().
    static bool refused();

    // What holds between two steps: texts end, counts tell the truth, and what was sent is a message that its own
    // decoder accepts. Forgets what was sent and logged.
    void check();

    // Makes the nth call of a kind fail, until the check() after the next one.
    void failNext(kvtest::Call call, size_t nth);

    // Moves the clock and runs the main loop.
    void advance(std::time_t seconds);

    kvtest::FakeHost host;
    std::time_t now = kStart;
    std::string nvramDump = "multiap_mode=1\nwl0_mdid=4660\nwl0.5_mdid=77\n";  // of "nvram show"
    std::string address = "192.168.77.11\n";                                   // of "ifconfig"
    std::string channel = "36/80\n";                                           // of "wl chanspec"
    std::string password = "secret\n";                                         // of the encrypted file

  private:
    std::optional<kvtest::FailingCall> failing_;
    bool failureIsNew_ = false;
};

}  // namespace kvfuzz
