// nvram - show and change the device's non-volatile settings.
#include <cstdio>
#include <cstring>

#include "settings_store.h"
#include "store_command.h"

using namespace kvplatform;

namespace {

constexpr char kProgram[] = "nvram";
constexpr char kUsage[] =
    "usage: nvram show               print all settings as NAME=VALUE, sorted by name\n"
    "       nvram get NAME           print a setting's value; exit 1 when there is none\n"
    "       nvram set NAME=VALUE     store a setting\n"
    "       nvram unset NAME         remove a setting\n"
    "       nvram --help             print this text\n"
    "\n"
    "A NAME holds letters, digits and . _ : - only, a VALUE anything but a newline.\n"
    "The store is the file that KV_NVRAM_FILE names, or /data/nvram.\n";

int show(const char *) {
    SettingsStore store;
    if (!readStore(kProgram, store)) return kExitFailed;
    for (const Setting &setting : store.settings())
        printf("%s=%s\n", setting.name, setting.value);
    return finishOutput(kProgram);
}

int get(const char *name) {
    if (!isSettingName(name)) return badArgument(kProgram, name, "not a setting name");
    SettingsStore store;
    if (!readStore(kProgram, store)) return kExitFailed;
    const char *value = store.find(name);
    if (value == nullptr) return kExitFailed;
    puts(value);
    return finishOutput(kProgram);
}

int set(const char *assignment) {
    const char *equals = strchr(assignment, '=');
    if (equals == nullptr) return badArgument(kProgram, assignment, "want NAME=VALUE");
    const MallocArray<char> name(strndup(assignment, static_cast<size_t>(equals - assignment)));
    if (!name) return outOfMemory(kProgram);
    if (!isSettingName(name.get())) return badArgument(kProgram, name.get(), "not a setting name");
    if (!isSettingValue(equals + 1)) return badArgument(kProgram, name.get(), "a value cannot hold a newline");
    return writeStore(kProgram, name.get(), equals + 1);
}

int unset(const char *name) {
    if (!isSettingName(name)) return badArgument(kProgram, name, "not a setting name");
    return writeStore(kProgram, name, nullptr);
}

struct Action {
    const char *name;
    int arguments;
    int (*run)(const char *argument);
};
constexpr Action kActions[] = {{"show", 0, show}, {"get", 1, get}, {"set", 1, set}, {"unset", 1, unset}};

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return badArgument(kProgram, "", "no action given");
    if (strcmp(argv[1], "--help") == 0) {
        fputs(kUsage, stdout);
        return finishOutput(kProgram);
    }
    for (const Action &action : kActions) {
        if (strcmp(action.name, argv[1]) != 0) continue;
        const int given = argc - 2;
        if (given > action.arguments) return badArgument(kProgram, argv[2 + action.arguments], "one argument too many");
        if (given < action.arguments) return badArgument(kProgram, argv[1], "an argument is missing");
        return action.run(argv[2]);
    }
    return badArgument(kProgram, argv[1], "no such action");
}
