#include "daemon/options.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <charconv>
#include <map>
#include <set>

#include "command/protocol.h"
#include "daemon/ethernet_port.h"
#include "kv1905/version.h"

namespace kv1905d {
namespace {

constexpr unsigned kLongestInterval = 86400;  // seconds

// Options that are checked after all were read, as text.
struct RawOptions : Options {
    std::string alMacText;
    std::vector<std::string> interfaceTexts;
    std::vector<std::string> radioTexts;
    std::string settingsFromText = "any";
    bool noPlugin = false;
};

const std::map<std::string, SettingsFrom> kSettingsFrom = {{"any", SettingsFrom::Any},
                                                           {"controller", SettingsFrom::Controller}};

void declare(CLI::App &app, RawOptions &raw) {
    const auto interval = CLI::Range(1u, kLongestInterval);
    app.add_option("--al-mac", raw.alMacText,
                   "IEEE 1905.1 address of this device [the first interface's MAC, locally administered]");
    app.add_option("-i,--interface", raw.interfaceTexts,
                   "Interface that carries IEEE 1905.1, or IFNAME,MEDIATYPE where it is not Ethernet, for example "
                   "wlan0,0x0108; required, may be repeated")
        ->allow_extra_args(false);
    app.add_option("--bridge", raw.bridge, "Linux bridge over the interfaces; unicast is sent through it [none]");
    app.add_option("--radio", raw.radioTexts,
                   "Wi-Fi interface to announce: IFNAME,MAC,MEDIATYPE, for example wl0,02:00:00:00:00:01,0x0103; "
                   "may be repeated [none]")
        ->allow_extra_args(false);
    app.add_option("--plugin", raw.plugin, "Plug-in library; a name without slash is found next to the program")
        ->capture_default_str();
    app.add_flag("--no-plugin", raw.noPlugin, "Run without a plug-in, as an ordinary member of the network [false]");
    app.add_option("--data-model", raw.dataModel, "JSON file that shows the network")->capture_default_str();
    app.add_option("--socket", raw.socket,
                   "Local socket for operator commands [/run/kv1905d.sock, or the same name in /tmp where /run is not "
                   "writable]");
    app.add_option("--discovery-interval", raw.discoveryInterval, "Seconds between topology discoveries")
        ->check(interval)
        ->capture_default_str();
    app.add_option("--query-interval", raw.queryInterval, "Seconds between a controller's configuration queries")
        ->check(interval)
        ->capture_default_str();
    app.add_option("--settings-from", raw.settingsFromText,
                   "Devices that may reboot, reset, switch or configure this one: any, or only its controller, which a "
                   "device with a --radio searches for")
        ->check(CLI::IsMember(kSettingsFrom))
        ->capture_default_str();
    app.add_flag(
        "--trace", raw.trace,
        "Print every vendor message in and out on standard output, one a line; passwords are left out [false]");
    app.set_config("--config", "", "Read options from this TOML or INI file; the command line takes precedence [none]");
    app.allow_config_extras(CLI::config_extras_mode::error);
    app.set_version_flag("--version", std::string("kv1905d ") + KV1905_VERSION);
}

MacAddress alMacOf(const RawOptions &raw, const MacAddress &firstInterface) {
    if (raw.alMacText.empty()) {
        MacAddress derived = firstInterface;
        derived.bytes[0] |= 0x02;
        return derived;
    }
    const std::optional<MacAddress> mac = MacAddress::parse(raw.alMacText);
    if (!mac || mac->isGroup() || mac->isZero()) {
        throw BadOption("--al-mac " + raw.alMacText + ": not a unicast MAC address such as 02:00:00:00:00:01");
    }
    return *mac;
}

std::optional<uint16_t> parseMediaType(std::string_view text) {
    const bool hex = text.starts_with("0x") || text.starts_with("0X");
    if (hex) text.remove_prefix(2);
    uint16_t value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
    if (error != std::errc{} || end != text.data() + text.size()) return std::nullopt;
    return value;
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
    const std::optional<MacAddress> mac = MacAddress::parse(text.substr(first + 1, second - first - 1));
    if (!mac || mac->isGroup() || mac->isZero()) throw bad("the second field is no unicast MAC address");
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

template <typename List, typename Name>
void refuseRepeats(const char *option, const List &list, const Name &name) {
    std::set<std::string> seen;
    for (const auto &entry : list) {
        if (!seen.insert(name(entry)).second) throw BadOption(option + name(entry) + ": given twice");
    }
}

Options check(const RawOptions &raw) {
    Options options = raw;
    // Reported last, after unknown options.
    if (raw.interfaceTexts.empty()) throw BadOption("--interface is required");
    for (const std::string &text : raw.interfaceTexts)
        parseInterface(text, options);
    if (!raw.bridge.empty() && !interfaceMac(raw.bridge)) {
        throw BadOption("--bridge " + raw.bridge + ": no such interface");
    }
    if (raw.dataModel.empty()) throw BadOption("--data-model: the file name is empty");
    if (raw.socket.empty()) throw BadOption("--socket: the file name is empty");
    if (!raw.noPlugin && raw.plugin.empty()) throw BadOption("--plugin: the name is empty; --no-plugin runs without");
    options.alMac = alMacOf(raw, *interfaceMac(options.interfaces.front()));
    for (const std::string &radio : raw.radioTexts)
        options.radios.push_back(parseRadio(radio));
    if (raw.noPlugin) options.plugin.clear();
    options.settingsFrom = kSettingsFrom.at(raw.settingsFromText);
    refuseRepeats("--interface ", options.interfaces, [](const std::string &name) { return name; });
    refuseRepeats("--radio ", options.radios, [](const Radio &radio) { return radio.name; });
    refuseRepeats("--radio ", options.radios, [](const Radio &radio) { return radio.facts.mac.text(); });
    if (options.interfaces.size() + options.radios.size() > kMaxInterfaces) {
        throw BadOption("--interface and --radio: more than " + std::to_string(kMaxInterfaces) + " together");
    }
    return options;
}

std::string oneLine(std::string text) {
    std::replace(text.begin(), text.end(), '\n', ' ');
    return text;
}

}  // namespace

std::optional<Options> parseOptions(int argc, const char *const *argv) {
    RawOptions raw;
    CLI::App app("Development host for the kv1905 plug-in: one IEEE 1905.1 device per process.", "kv1905d");
    app.footer(
        "exit status: 0 after SIGTERM or SIGINT, 1 when an interface, a file or the plug-in failed, 2 for a bad "
        "option");
    declare(app, raw);
    try {
        app.parse(argc, argv);
    } catch (const CLI::Success &printed) {
        app.exit(printed);
        return std::nullopt;
    } catch (const CLI::ParseError &error) {
        const std::vector<std::string> file = app.get_config_ptr()->results();
        const bool named = file.empty() || dynamic_cast<const CLI::FileError *>(&error) != nullptr;
        throw BadOption(oneLine(error.what()) + (named ? "" : " (on the command line or in " + file.front() + ")"));
    }
    return check(raw);
}

}  // namespace kv1905d
