#include "daemon/options.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <set>
#include <sstream>

#include "command/protocol.h"
#include "daemon/ethernet_port.h"
#include "kv1905/version.h"
#include "support/files.h"
#include "support/options.h"

namespace kv1905d {
namespace {

using support::BadOption;

constexpr unsigned kLongestInterval = 86400;  // seconds
constexpr size_t kMaxConfigSize = 65536;

// Adds values that check() turns into options, and options that end the program.
struct GivenOptions : Options {
    std::optional<MacAddress> givenMac;
    std::string config;
    bool wantsHelp = false;
    bool wantsVersion = false;
};

template <typename Number>
std::optional<Number> numberOf(std::string_view text, int base = 10) {
    Number value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, base);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
}

std::optional<uint16_t> parseMediaType(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    return hex ? numberOf<uint16_t>(text.substr(2), 16) : numberOf<uint16_t>(text);
}

std::optional<MacAddress> parseUnicastMac(const std::string &text) {
    const std::optional<MacAddress> mac = MacAddress::parse(text);
    return !mac || mac->isGroup() || mac->isZero() ? std::nullopt : mac;
}

MacAddress parseAlMac(const std::string &text) {
    if (const std::optional<MacAddress> mac = parseUnicastMac(text)) return *mac;
    throw BadOption("--al-mac " + text + ": not a unicast MAC address such as 02:00:00:00:00:01");
}

unsigned parseInterval(const char *option, const std::string &text) {
    const std::optional<unsigned> seconds = numberOf<unsigned>(text);
    if (seconds && *seconds >= 1 && *seconds <= kLongestInterval) return *seconds;
    throw BadOption(option + (" must be a number from 1 to " + std::to_string(kLongestInterval)) + ", not '" + text +
                    "'");
}

std::string parsePlugin(const std::string &text) {
    if (text.empty()) throw BadOption("--plugin: the name is empty; --no-plugin runs without");
    return text;
}

SettingsFrom parseSettingsFrom(const std::string &text) {
    if (text == "any") return SettingsFrom::Any;
    if (text == "controller") return SettingsFrom::Controller;
    throw BadOption("--settings-from must be any or controller, not '" + text + "'");
}

// Wi-Fi interfaces carry ten bytes: BSSID, role (access point), band, channel centres (not known here).
Bytes wifiInfo(const MacAddress &bssid) {
    Bytes info(bssid.bytes.begin(), bssid.bytes.end());
    info.resize(10);
    return info;
}

Radio parseRadio(const std::string &text) {
    const auto bad = [&](const char *reason) { return BadOption("--radio " + text + ": " + reason); };
    const size_t first = text.find(',');
    const size_t second = first == std::string::npos ? first : text.find(',', first + 1);
    if (first == 0 || second == std::string::npos) throw bad("expected IFNAME,MAC,MEDIATYPE");
    const std::optional<MacAddress> mac = parseUnicastMac(text.substr(first + 1, second - first - 1));
    if (!mac) throw bad("the second field is no unicast MAC address");
    const std::optional<uint16_t> mediaType = parseMediaType(std::string_view(text).substr(second + 1));
    if (!mediaType || (*mediaType & 0xFF00) != 0x0100) throw bad("the third field is no Wi-Fi media type (0x01xx)");
    return {text.substr(0, first), {*mac, *mediaType, wifiInfo(*mac)}};
}

void parseInterface(const std::string &text, Options &options) {
    const size_t comma = std::min(text.find(','), text.size());
    const std::string name = text.substr(0, comma);
    if (!interfaceMac(name)) throw BadOption("--interface " + text + ": no such interface");
    const std::optional<uint16_t> mediaType =
        comma == text.size() ? uint16_t{0x0001} : parseMediaType(std::string_view(text).substr(comma + 1));
    if (!mediaType) throw BadOption("--interface " + text + ": the second field is no media type");
    options.interfaces.push_back(name);
    options.mediaTypes.push_back(*mediaType);
}

// Returns rows that write to `given`, which must outlive them. A configuration file may not contain the last three.
std::vector<support::OptionRow> optionRows(GivenOptions &given) {
    using support::raise, support::store;
    using Text = const std::string &;
    return {
        {"al-mac", "MAC", "AL MAC of this device [the first interface's MAC, locally administered]",
         [&given](Text value) { given.givenMac = parseAlMac(value); }},
        {"interface", "IFNAME[,MEDIATYPE]", "Interface for IEEE 1905.1, Ethernet or e.g. wlan0,0x0108; may be repeated",
         [&given](Text value) { parseInterface(value, given); }, 'i'},
        {"bridge", "IFNAME", "Linux bridge over the interfaces; unicast is sent through it [none]",
         store(given.bridge)},
        {"radio", "IFNAME,MAC,MEDIATYPE",
         "Wi-Fi interface to announce, e.g. wl0,02:00:00:00:00:01,0x0103; may be repeated",
         [&given](Text value) { given.radios.push_back(parseRadio(value)); }},
        {"plugin", "FILE", "Plug-in; a name without slash is found next to the program [libkvMAP1905.so]",
         [&given](Text value) { given.plugin = parsePlugin(value); }},
        {"no-plugin", nullptr, "Run without a plug-in, as an ordinary member of the network",
         [&given](Text) { given.plugin.clear(); }},
        {"data-model", "FILE", "JSON file that shows the network [/tmp/kv1905_datamodel.json]", store(given.dataModel)},
        {"socket", "FILE", "Socket for operator commands [/run/kv1905d.sock, or in /tmp if /run is not writable]",
         store(given.socket)},
        {"discovery-interval", "SECONDS", "Between topology discoveries [60]",
         [&given](Text value) { given.discoveryInterval = parseInterval("--discovery-interval", value); }},
        {"query-interval", "SECONDS", "Between a controller's configuration queries [60]",
         [&given](Text value) { given.queryInterval = parseInterval("--query-interval", value); }},
        {"settings-from", "any|controller",
         "Devices that may change or reset this one [any]; controller needs a --radio",
         [&given](Text value) { given.settingsFrom = parseSettingsFrom(value); }},
        {"trace", nullptr, "Print every vendor message on standard output, without passwords", raise(given.trace)},
        {"config", "FILE", "Read more options from this file; the command line takes precedence", store(given.config)},
        {"help", nullptr, "Print this help", raise(given.wantsHelp), 'h'},
        {"version", nullptr, "Print the version", raise(given.wantsVersion)},
    };
}

std::string trimmed(std::string_view text) {
    const size_t first = std::min(text.find_first_not_of(" \t\r"), text.size());
    return std::string(text.substr(first, text.find_last_not_of(" \t\r") + 1 - first));
}

// Returns the name of what an option sets: no-plugin is a value of plugin.
std::string_view settingOf(const support::OptionRow &row) {
    const std::string_view name = row.name;
    return name.substr(name.starts_with("no-") ? 3 : 0);
}

// Sets the option of a line NAME = VALUE, or NAME for one without value, unless the command line has it.
void setFromLine(const std::string &line, std::span<support::OptionRow> rows) {
    const size_t equals = line.find('=');
    const std::string name = trimmed(line.substr(0, equals));
    const std::string value = equals == std::string::npos ? "" : trimmed(line.substr(equals + 1));
    const auto row = std::find_if(rows.begin(), rows.end(), [&](const auto &each) { return each.name == name; });
    if (row == rows.end()) throw BadOption("unknown option '" + name + "'");
    if ((row->value == nullptr) != (equals == std::string::npos))
        throw BadOption(name + (row->value == nullptr ? " has no value" : ": a value is missing"));
    const auto decides = [&](const support::OptionRow &each) {
        return each.isGiven && settingOf(each) == settingOf(*row);
    };
    if (std::none_of(rows.begin(), rows.end(), decides)) row->set(value);
}

std::string readConfigFile(const std::string &path) try {
    return support::readFile(path, kMaxConfigSize);
} catch (const std::system_error &error) {
    throw BadOption(std::string("--config ") + error.what());
}

void readConfig(const std::string &path, std::span<support::OptionRow> rows) {
    std::istringstream file(readConfigFile(path));
    unsigned number = 0;
    for (std::string text; std::getline(file, text);) {
        ++number;
        const std::string line = trimmed(text);
        if (line.empty() || line[0] == '#') continue;
        try {
            setFromLine(line, rows);
        } catch (const BadOption &error) {
            throw BadOption(path + ":" + std::to_string(number) + ": " + error.what());
        }
    }
}

template <typename List, typename Name>
void refuseRepeats(const char *option, const List &list, const Name &name) {
    std::set<std::string> seen;
    for (const auto &entry : list) {
        if (!seen.insert(name(entry)).second) throw BadOption(option + name(entry) + ": given twice");
    }
}

Options check(const GivenOptions &given) {
    Options options = given;
    if (given.interfaces.empty()) throw BadOption("--interface is required");
    if (!given.bridge.empty() && !interfaceMac(given.bridge))
        throw BadOption("--bridge " + given.bridge + ": no such interface");
    if (given.dataModel.empty()) throw BadOption("--data-model: the file name is empty");
    if (given.socket.empty()) throw BadOption("--socket: the file name is empty");
    options.alMac = given.givenMac.value_or(*interfaceMac(options.interfaces.front()));
    if (!given.givenMac) options.alMac.bytes[0] |= 0x02;
    refuseRepeats("--interface ", options.interfaces, [](const std::string &name) { return name; });
    refuseRepeats("--radio ", options.radios, [](const Radio &radio) { return radio.name; });
    refuseRepeats("--radio ", options.radios, [](const Radio &radio) { return radio.facts.mac.text(); });
    if (options.interfaces.size() + options.radios.size() > kMaxInterfaces)
        throw BadOption("--interface and --radio: more than " + std::to_string(kMaxInterfaces) + " together");
    return options;
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char *const *argv) {
    GivenOptions given;
    std::vector<support::OptionRow> rows = optionRows(given);
    const std::optional<std::string> word = support::OptionReader("kv1905d", argc, argv, rows).nextWord();
    if (given.wantsHelp) {
        std::printf(
            "Usage: kv1905d --interface IFNAME [OPTION...]\n"
            "Development host for the kv1905 plug-in: one IEEE 1905.1 device per process.\n\nOptions:\n%s\n"
            "Exit status:\n  0  ended by SIGTERM or SIGINT\n  1  an interface, a file or the plug-in failed\n"
            "  2  bad option\n",
            support::optionHelp(rows).c_str());
    }
    if (given.wantsVersion) std::puts("kv1905d " KV1905_VERSION);
    if (given.wantsHelp || given.wantsVersion) return std::nullopt;
    if (word) throw BadOption("unexpected argument '" + *word + "'; see kv1905d --help");
    if (!given.config.empty()) readConfig(given.config, std::span(rows).first(rows.size() - 3));
    return check(given);
}

}  // namespace kv1905d
