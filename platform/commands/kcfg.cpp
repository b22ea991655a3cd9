// kcfg - show, change and reset the device's configuration.
#include <json-c/json_object_iterator.h>
#include <strings.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <string_view>

#include "kcfg_store.h"
#include "log_line.h"
#include "store_command.h"

using namespace kvplatform;

namespace {

constexpr char kProgram[] = "kcfg";
constexpr char kUsage[] =
    "usage: kcfg list [--json]                              print the objects and how many instances they have\n"
    "       kcfg get [--json] OBJECT[.INSTANCE[.FIELD]]     print fields; the bare value when a FIELD is named\n"
    "       kcfg set OBJECT.INSTANCE.FIELD VALUE            store and apply a field\n"
    "       kcfg reset [--partial]                          restore the factory defaults\n"
    "       kcfg --help                                     print this text\n"
    "\n"
    "An OBJECT is a number or a name in any case, with or without RDM_OID_. An INSTANCE counts from 1. Behind -- "
    "nothing\n"
    "is an option. A partial reset keeps what FactoryResetUnpurgedList selects.\n"
    "The configuration is the file that KV_KCFG_FILE names, or /data/kcfg.json; the factory defaults are the file "
    "that\n"
    "KV_KCFG_DEFAULTS names, or the shipped one.\n"
    "exit status: 0 done, 1 failed, 2 bad arguments\n"
    "\n"
    "Objects:\n";
constexpr char kNamePrefix[] = "RDM_OID_";
constexpr int kJsonStyle = JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;

void printReport(int, const char *text) {
    fprintf(stderr, "%s: %s\n", kProgram, text);
}

// What OBJECT.INSTANCE.FIELD names. The parts that were not given are 0 and null.
struct Address {
    const ConfigObject *object = nullptr;
    unsigned instance = 0;
    const char *field = nullptr;
};

// Digits alone, at most nine of them.
bool parseNumber(std::string_view text, unsigned &number) {
    if (text.empty() || text.size() > 9) return false;
    number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') return false;
        number = number * 10 + static_cast<unsigned>(c - '0');
    }
    return true;
}

bool sameName(const char *name, std::string_view text) {
    return strlen(name) == text.size() && strncasecmp(name, text.data(), text.size()) == 0;
}

const ConfigObject *findObject(std::string_view text) {
    if (unsigned number = 0; parseNumber(text, number)) return findConfigObject(number);
    for (const ConfigObject &object : kConfigObjects) {
        const char *shortName = object.name + strlen(kNamePrefix);
        if (sameName(object.name, text) || sameName(shortName, text)) return &object;
    }
    return nullptr;
}

// kExitOk, or the status after a message.
int parseAddress(const char *text, Address &address) {
    const char *const end = text + strlen(text);
    const char *const objectEnd = std::find(text, end, '.');
    address.object = findObject({text, static_cast<size_t>(objectEnd - text)});
    if (address.object == nullptr) return badArgument(kProgram, text, "no such object");
    if (objectEnd == end) return kExitOk;

    const char *const instance = objectEnd + 1;
    const char *const instanceEnd = std::find(instance, end, '.');
    if (!parseNumber({instance, static_cast<size_t>(instanceEnd - instance)}, address.instance) ||
        address.instance == 0) {
        return badArgument(kProgram, text, "an instance is a number from 1");
    }
    if (instanceEnd != end) address.field = instanceEnd + 1;
    return kExitOk;
}

const char *jsonText(json_object *value) {
    const char *text = json_object_to_json_string_ext(value, kJsonStyle);
    return text != nullptr ? text : "";
}

// A text's bytes are escaped: a value can neither start a line of its own nor control a terminal.
void printMembers(const ConfigObject &object, size_t number, json_object *instance) {
    json_object_iterator member = json_object_iter_begin(instance);
    const json_object_iterator end = json_object_iter_end(instance);
    for (; json_object_iter_equal(&member, &end) == 0; json_object_iter_next(&member)) {
        json_object *value = json_object_iter_peek_value(&member);
        LogLine line;
        line.add(json_object_iter_peek_name(&member));
        line.add("=");
        line.add(json_object_is_type(value, json_type_string) ? json_object_get_string(value) : jsonText(value));
        const std::string_view text = line.textWithNewline();
        printf("%s.%zu.%.*s", object.name, number, static_cast<int>(text.size()), text.data());
    }
}

int printField(const Address &address, json_object *instance, bool json) {
    json_object *value = nullptr;
    if (!json_object_object_get_ex(instance, address.field, &value)) {
        fprintf(stderr, "%s: %s.%u: no field %s\n", kProgram, address.object->name, address.instance, address.field);
        return kExitFailed;
    }
    puts(!json && json_object_is_type(value, json_type_string) ? json_object_get_string(value) : jsonText(value));
    return finishOutput(kProgram);
}

struct Request {
    std::span<char *const> words;  // behind the action
    bool json;
    bool partial;
};

int list(const Request &request) {
    ConfigStore store(printReport);
    if (!store.openToRead()) return kExitFailed;
    const char *separator = "[ ";
    for (const ConfigObject &object : kConfigObjects) {
        const size_t count = store.count(object);
        if (request.json) {
            printf("%s{ \"object\": \"%s\", \"number\": %u, \"instances\": %zu }", separator, object.name,
                   object.number, count);
            separator = ", ";
        } else {
            printf("%s (%u): %zu instance%s\n", object.name, object.number, count, count == 1 ? "" : "s");
        }
    }
    if (request.json) puts(" ]");
    return finishOutput(kProgram);
}

int get(const Request &request) {
    Address address;
    if (const int status = parseAddress(request.words[0], address); status != kExitOk) return status;
    ConfigStore store(printReport);
    if (!store.openToRead()) return kExitFailed;

    const ConfigObject &object = *address.object;
    const JsonPtr found = address.instance != 0 ? store.instance(object, address.instance) : store.instances(object);
    if (!found) return kExitFailed;
    if (address.field != nullptr) return printField(address, found.get(), request.json);
    if (request.json) {
        puts(jsonText(found.get()));
    } else if (address.instance != 0) {
        printMembers(object, address.instance, found.get());
    } else {
        for (size_t i = 0; i < json_object_array_length(found.get()); i++)
            printMembers(object, i + 1, json_object_array_get_idx(found.get(), i));
    }
    return finishOutput(kProgram);
}

JsonPtr fieldValue(const ConfigField &field, const char *text) {
    if (field.kind == FieldKind::kText) return JsonPtr(json_object_new_string(text));
    unsigned number = 0;
    return JsonPtr(parseNumber(text, number) ? json_object_new_int64(number) : nullptr);
}

int set(const Request &request) {
    Address address;
    if (const int status = parseAddress(request.words[0], address); status != kExitOk) return status;
    if (address.field == nullptr) return badArgument(kProgram, request.words[0], "want OBJECT.INSTANCE.FIELD");
    const auto fields = address.object->fields;
    const auto field = std::find_if(fields.begin(), fields.end(), [&address](const ConfigField &candidate) {
        return strcmp(candidate.name, address.field) == 0;
    });
    if (field == fields.end()) return badArgument(kProgram, request.words[0], "no such field");
    JsonPtr value = fieldValue(*field, request.words[1]);
    if (!fieldFits(*field, value.get())) {
        fprintf(stderr, "%s: %s: want %s\n", kProgram, request.words[0], FieldRange(*field).text);
        return kExitUsage;
    }

    ConfigStore store(printReport);
    if (!store.openToChange()) return kExitFailed;
    const JsonPtr instance = store.instance(*address.object, address.instance);
    if (!instance) return kExitFailed;
    if (json_object_object_add(instance.get(), field->name, value.get()) != 0) return outOfMemory(kProgram);
    value.release();  // the instance owns it now
    const bool done =
        store.setInstance(*address.object, address.instance, instance.get()) && store.noteApplied() && store.save();
    return done ? kExitOk : kExitFailed;
}

int reset(const Request &request) {
    return ConfigStore::reset(printReport, request.partial) ? kExitOk : kExitFailed;
}

int help() {
    fputs(kUsage, stdout);
    for (const ConfigObject &object : kConfigObjects) {
        printf("  %s (%u): %s", object.name, object.number, object.meaning);
        if (object.keptBy != 0) printf("; kept by %u", object.keptBy);
        puts("");
        for (const ConfigField &field : object.fields)
            printf("    %s: %s\n", field.name, FieldRange(field).text);
    }
    return finishOutput(kProgram);
}

struct Action {
    const char *name;
    size_t words;
    bool takesJson;
    bool takesPartial;
    int (*run)(const Request &request);
};
constexpr Action kActions[] = {
    {"list", 0, true, false, list},
    {"get", 1, true, false, get},
    {"set", 2, false, false, set},
    {"reset", 0, false, true, reset},
};

// Takes the options out of the arguments behind the action; the words that remain stand at their front.
int run(const Action &action, std::span<char *> arguments) {
    Request request = {};
    size_t words = 0;
    bool options = true;
    for (char *argument : arguments) {
        const bool isOption = options && strncmp(argument, "--", 2) == 0;
        if (isOption && argument[2] == '\0') {
            options = false;
        } else if (isOption && action.takesJson && strcmp(argument, "--json") == 0) {
            request.json = true;
        } else if (isOption && action.takesPartial && strcmp(argument, "--partial") == 0) {
            request.partial = true;
        } else if (isOption) {
            return badArgument(kProgram, argument, "no such option here");
        } else if (words == action.words) {
            return badArgument(kProgram, argument, "one argument too many");
        } else {
            arguments[words++] = argument;
        }
    }
    if (words < action.words) return badArgument(kProgram, action.name, "an argument is missing");
    request.words = {arguments.data(), words};
    return action.run(request);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc < 2) return badArgument(kProgram, "", "no action given");
    if (strcmp(argv[1], "--help") == 0) return help();
    for (const Action &action : kActions) {
        if (strcmp(action.name, argv[1]) == 0) return run(action, {argv + 2, static_cast<size_t>(argc - 2)});
    }
    return badArgument(kProgram, argv[1], "no such action");
}
