// wl - a Wi-Fi driver's command, as far as the plug-in uses it. The "driver" is the settings store.
#include <cstdio>
#include <cstring>
#include <string_view>

#include "settings_store.h"
#include "store_command.h"

using namespace kvplatform;

namespace {

constexpr char kProgram[] = "wl";
constexpr char kUsage[] =
    "usage: wl -i IF chanspec [CHANSPEC]                  print or store the channel, such as 6, 6l or 36/80\n"
    "       wl -i IF country_abbrev_override [COUNTRY]    print or store the country in beacons, such as US or US/1\n"
    "       wl --help                                     print this text\n"
    "\n"
    "IF is an interface of which the settings store knows anything: a setting IF_ifname, IF_chanspec and the like.\n"
    "The store is the file that KV_NVRAM_FILE names, or /data/nvram.\n";

bool isDigit(char c) {
    return c >= '0' && c <= '9';
}

bool isLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

// Takes the digits at the front of text. Returns their number's value, -1 when there are none or more than three.
int takeNumber(std::string_view &text) {
    int value = 0;
    size_t digits = 0;
    for (; !text.empty() && isDigit(text.front()) && digits < 4; text.remove_prefix(1), digits++) {
        value = value * 10 + (text.front() - '0');
    }
    return digits >= 1 && digits <= 3 ? value : -1;
}

// Channel 1 to 233, then nothing, a sideband letter of a 40 MHz pair, or "/" and a width in MHz.
bool isChanspec(std::string_view text) {
    const int channel = takeNumber(text);
    if (channel < 1 || channel > 233) return false;
    if (text.empty()) return true;
    for (const char *ending : {"l", "u", "/20", "/40", "/80", "/160"}) {
        if (text == ending) return true;
    }
    return false;
}

// Two letters, then nothing or "/" and a revision of one or two digits.
bool isCountry(std::string_view text) {
    if (text.size() < 2 || !isLetter(text[0]) || !isLetter(text[1])) return false;
    text.remove_prefix(2);
    if (text.empty()) return true;
    const bool fits = text.size() == 2 || text.size() == 3;
    return fits && text[0] == '/' && isDigit(text[1]) && isDigit(text.back());
}

struct Property {
    const char *name;
    bool (*isValid)(std::string_view text);
    const char *wanted;
};
constexpr Property kProperties[] = {
    {"chanspec", isChanspec, "not a channel such as 6, 6l or 36/80"},
    {"country_abbrev_override", isCountry, "not a country such as US or US/1"},
};

// Settings that show that what stands before them is an interface. Any other may be a setting of the whole device.
constexpr const char *kInterfaceSettings[] = {"_ifname", "_chanspec", "_country_abbrev_override",
                                              "_nband",  "_mdid",     "_extattr"};

// The interface that a setting tells of, empty when it tells of none.
std::string_view interfaceOf(std::string_view setting) {
    for (const std::string_view ending : kInterfaceSettings) {
        if (setting.size() > ending.size() && setting.ends_with(ending)) {
            return {setting.data(), setting.size() - ending.size()};
        }
    }
    return {};
}

bool isKnown(const SettingsStore &store, std::string_view interface) {
    for (const Setting &setting : store.settings()) {
        const std::string_view name = setting.name;
        if (name.size() > interface.size() && name.starts_with(interface) && name[interface.size()] == '_') return true;
    }
    return false;
}

int noSuchInterface(const SettingsStore &store, const char *interface) {
    fprintf(stderr, "%s: %s: No such interface; known are", kProgram, interface);
    std::string_view last;  // an interface's settings stand together
    for (const Setting &setting : store.settings()) {
        const std::string_view known = interfaceOf(setting.name);
        if (known.empty() || known == last) continue;
        fprintf(stderr, " %.*s", static_cast<int>(known.size()), known.data());
        last = known;
    }
    fputs(last.empty() ? " none\n" : "\n", stderr);
    return kExitFailed;
}

int run(const char *interface, const Property &property, const char *value) {
    if (value != nullptr && !property.isValid(value)) return badArgument(kProgram, value, property.wanted);
    SettingsStore store;
    if (!readStore(kProgram, store)) return kExitFailed;
    if (!isKnown(store, interface)) return noSuchInterface(store, interface);

    const size_t size = strlen(interface) + strlen(property.name) + 2;
    const MallocArray<char> name(static_cast<char *>(malloc(size)));
    if (!name) return outOfMemory(kProgram);
    snprintf(name.get(), size, "%s_%s", interface, property.name);
    if (value != nullptr) return writeStore(kProgram, name.get(), value);

    const char *stored = store.find(name.get());
    if (stored == nullptr) {
        fprintf(stderr, "%s: %s: no %s is set\n", kProgram, interface, property.name);
        return kExitFailed;
    }
    puts(stored);
    return finishOutput(kProgram);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc == 2 && strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return finishOutput(kProgram);
    }
    if (argc < 3 || strcmp(argv[1], "-i") != 0) {
        return badArgument(kProgram, argc < 2 ? "" : argv[1], "want -i and an interface");
    }
    if (!isSettingName(argv[2])) return badArgument(kProgram, argv[2], "not an interface name");
    if (argc < 4) return badArgument(kProgram, argv[2], "nothing asked of the interface");
    if (argc > 5) return badArgument(kProgram, argv[5], "one argument too many");
    for (const Property &property : kProperties) {
        if (strcmp(property.name, argv[3]) == 0) return run(argv[2], property, argv[4]);
    }
    return badArgument(kProgram, argv[3], "no such command");
}
