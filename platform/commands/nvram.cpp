// nvram - show and change the device's non-volatile settings.
#include <string_view>

#include "command.h"
#include "settings_store.h"

using namespace kvplatform;

namespace {

constexpr char kUsage[] =
    "usage: nvram show               print all settings as NAME=VALUE, sorted by name\n"
    "       nvram get NAME           print a setting's value; exit 1 when there is none\n"
    "       nvram set NAME=VALUE     store a setting\n"
    "       nvram unset NAME         remove a setting\n"
    "       nvram --help             print this text\n"
    "\n"
    "A NAME holds letters, digits and . _ : - only, a VALUE anything but a newline.\n"
    "The store is the file that KV_NVRAM_FILE names, or /data/nvram.\n";

Settings settings() {
    Settings all = readSettings();
    if (all.damagedLine != 0) {
        fprintf(stderr, "nvram: %s:%u: skipped, not a NAME=VALUE line\n", storePath().c_str(), all.damagedLine);
    }
    return all;
}

const std::string &checkedName(const std::string &name) {
    if (!isSettingName(name)) throw std::invalid_argument("'" + name + "' is not a setting name");
    return name;
}

int show(const std::string &) {
    for (const auto &[name, value] : settings().values)
        printf("%s=%s\n", name.c_str(), value.c_str());
    return kExitOk;
}

int get(const std::string &name) {
    const Settings all = (checkedName(name), settings());
    const auto found = all.values.find(name);
    if (found == all.values.end()) return kExitFailed;
    puts(found->second.c_str());
    return kExitOk;
}

int set(const std::string &assignment) {
    const size_t equals = assignment.find('=');
    if (equals == std::string::npos) throw std::invalid_argument("'" + assignment + "' is not NAME=VALUE");
    if (assignment.find('\n') != std::string::npos) throw std::invalid_argument("a setting cannot hold a newline");
    changeSetting(checkedName(assignment.substr(0, equals)), assignment.substr(equals + 1));
    return kExitOk;
}

int unset(const std::string &name) {
    changeSetting(checkedName(name), std::nullopt);
    return kExitOk;
}

int help(const std::string &) {
    fputs(kUsage, stdout);
    return kExitOk;
}

constexpr struct {
    std::string_view name;
    int words;
    int (*run)(const std::string &word);
} kActions[] = {{"show", 0, show}, {"get", 1, get}, {"set", 1, set}, {"unset", 1, unset}, {"--help", 0, help}};

}  // namespace

int main(int argc, char **argv) {
    return runCommand("nvram", "KV_NVRAM_FILE names the file to use", [&] {
        for (const auto &action : kActions) {
            if (argc == 2 + action.words && argv[1] == action.name) return action.run(argc > 2 ? argv[2] : "");
        }
        throw std::invalid_argument("expected show, get NAME, set NAME=VALUE or unset NAME");
    });
}
