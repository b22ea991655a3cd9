// kcfg - show, change and reset the device's configuration.
#include <json-c/json.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <span>
#include <string_view>
#include <vector>

#include "command.h"
#include "kcfg_store.h"
#include "support/terminal_text.h"

using namespace kvplatform;

namespace {

constexpr char kUsage[] =
    "usage: kcfg list [--json]                              print the objects and how many instances they have\n"
    "       kcfg get [--json] OBJECT[.INSTANCE[.FIELD]]     print fields; the bare value when a FIELD is named\n"
    "       kcfg set OBJECT.INSTANCE.FIELD VALUE            store and apply a field\n"
    "       kcfg reset [--partial]                          restore the factory defaults\n"
    "       kcfg --help                                     print this text\n"
    "\n"
    "An OBJECT is a number or a name in any case, with or without RDM_OID_. An INSTANCE counts from 1. After -- "
    "nothing\n"
    "is an option. A partial reset keeps what FactoryResetUnpurgedList selects.\n"
    "The configuration is the file that KV_KCFG_FILE names, or /data/kcfg.json; the factory defaults are the file "
    "that\n"
    "KV_KCFG_DEFAULTS names, or the shipped one.\n"
    "exit status: 0 done, 1 failed, 2 bad arguments\n"
    "\n"
    "Objects:\n";
constexpr std::string_view kNamePrefix = "RDM_OID_";
constexpr int kJsonStyle = JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;

using Access = ConfigStore::Access;

void printReport(const std::string &text) {
    fprintf(stderr, "kcfg: %s\n", text.c_str());
}

// Parses a text of digits only.
std::optional<unsigned> parseNumber(std::string_view text) {
    unsigned number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
    return number;
}

const ConfigObject &findObject(const std::string &text) {
    const std::optional<unsigned> number = parseNumber(text);
    for (const ConfigObject &object : kConfigObjects) {
        const bool isNamed = strcasecmp(object.name, text.c_str()) == 0 ||
                             strcasecmp(object.name + kNamePrefix.size(), text.c_str()) == 0;
        if (isNamed || number == object.number) return object;
    }
    throw std::invalid_argument(text + ": no such object");
}

// Parts of OBJECT.INSTANCE.FIELD. Missing ones are 0 or null.
struct Address {
    const ConfigObject &object;
    unsigned instance = 0;
    const ConfigField *field = nullptr;
};

Address parseAddress(const std::string &text) {
    const size_t objectEnd = std::min(text.find('.'), text.size());
    Address address{findObject(text.substr(0, objectEnd))};
    if (objectEnd == text.size()) return address;

    const size_t instanceEnd = std::min(text.find('.', objectEnd + 1), text.size());
    const std::string instance = text.substr(objectEnd + 1, instanceEnd - objectEnd - 1);
    address.instance = parseNumber(instance).value_or(0);
    if (address.instance == 0) throw std::invalid_argument(text + ": an instance is a number from 1");
    if (instanceEnd == text.size()) return address;

    const auto fields = address.object.fields;
    const auto field = std::find_if(fields.begin(), fields.end(), [&](const ConfigField &candidate) {
        return text.compare(instanceEnd + 1, std::string::npos, candidate.name) == 0;
    });
    if (field == fields.end()) throw std::invalid_argument(text + ": no such field");
    address.field = &*field;
    return address;
}

std::string textOf(json_object *value) {
    if (json_object_is_type(value, json_type_string)) return json_object_get_string(value);
    return json_object_to_json_string_ext(value, kJsonStyle);
}

// A text's bytes are escaped: a value can neither start a new line nor control a terminal.
void printMembers(const ConfigObject &object, size_t number, json_object *instance) {
    json_object_object_foreach(instance, name, value) {
        printf("%s.%zu.%s=%s\n", object.name, number, support::escaped(name).c_str(),
               support::escaped(textOf(value)).c_str());
    }
}

struct Request {
    std::vector<std::string> words;  // after the action
    bool option = false;             // the action's own
};

int list(const Request &request) {
    const ConfigStore store(Access::Read, printReport);
    const char *separator = "[ ";
    for (const ConfigObject &object : kConfigObjects) {
        const size_t count = store.count(object);
        if (request.option) {
            printf("%s{ \"object\": \"%s\", \"number\": %u, \"instances\": %zu }", separator, object.name,
                   object.number, count);
            separator = ", ";
        } else {
            printf("%s (%u): %zu instance%s\n", object.name, object.number, count, count == 1 ? "" : "s");
        }
    }
    if (request.option) puts(" ]");
    return kExitOk;
}

int get(const Request &request) {
    const auto &[object, instance, field] = parseAddress(request.words[0]);
    ConfigStore store(Access::Read, printReport);
    const bool isOne = instance != 0;
    const JsonPtr found = isOne ? store.instance(object, instance) : checked(json_object_new_array());
    for (size_t number = 1; !isOne && number <= store.count(object); number++)
        json_object_array_add(found.get(), store.instance(object, number).release());
    if (request.option || field != nullptr) {
        json_object *value = field != nullptr ? json_object_object_get(found.get(), field->name) : found.get();
        puts(request.option ? json_object_to_json_string_ext(value, kJsonStyle) : textOf(value).c_str());
    } else if (isOne) {
        printMembers(object, instance, found.get());
    } else {
        for (size_t i = 0; i < json_object_array_length(found.get()); i++)
            printMembers(object, i + 1, json_object_array_get_idx(found.get(), i));
    }
    return kExitOk;
}

JsonPtr fieldValue(const ConfigField &field, const std::string &text) {
    if (field.kind == FieldKind::kText) return checked(json_object_new_string(text.c_str()));
    const std::optional<unsigned> number = parseNumber(text);
    return JsonPtr(number ? json_object_new_int64(*number) : nullptr);
}

int set(const Request &request) {
    const auto &[object, instance, field] = parseAddress(request.words[0]);
    if (field == nullptr) throw std::invalid_argument(request.words[0] + ": expected OBJECT.INSTANCE.FIELD");
    ConfigStore store(Access::Change, printReport);
    const JsonPtr next = store.instance(object, instance);
    addMember(next.get(), field->name, fieldValue(*field, request.words[1]));
    store.setInstance(object, instance, next.get());
    store.save();
    return kExitOk;
}

int reset(const Request &request) {
    ConfigStore::reset(request.option, printReport);
    return kExitOk;
}

int help(const Request &) {
    fputs(kUsage, stdout);
    for (const ConfigObject &object : kConfigObjects) {
        printf("  %s (%u): %s", object.name, object.number, object.meaning);
        if (object.keptBy != 0) printf("; kept by %u", object.keptBy);
        puts("");
        for (const ConfigField &field : object.fields)
            printf("    %s: %s\n", field.name, rangeOf(field).c_str());
    }
    return kExitOk;
}

struct Action {
    std::string_view name;
    size_t words;
    std::string_view option;  // empty: none
    int (*run)(const Request &request);
};
constexpr Action kActions[] = {{"list", 0, "--json", list},
                               {"get", 1, "--json", get},
                               {"set", 2, "", set},
                               {"reset", 0, "--partial", reset},
                               {"--help", 0, "", help}};

int run(std::span<char *const> arguments) {
    const std::string_view name = arguments.empty() ? "" : arguments[0];
    const auto action =
        std::find_if(std::begin(kActions), std::end(kActions), [&](const Action &each) { return each.name == name; });
    if (action == std::end(kActions)) throw std::invalid_argument("expected list, get, set or reset");
    Request request;
    bool isOptionPossible = true;
    for (const std::string_view word : arguments.subspan(1)) {
        if (isOptionPossible && word == "--") {
            isOptionPossible = false;
        } else if (isOptionPossible && word.starts_with("--")) {
            if (word != action->option) throw std::invalid_argument(std::string(word) + ": no such option here");
            request.option = true;
        } else {
            request.words.emplace_back(word);
        }
    }
    if (request.words.size() == action->words) return action->run(request);
    throw std::invalid_argument(std::string(name) + ": expected " + std::to_string(action->words) + " arguments");
}

}  // namespace

int main(int argc, char **argv) {
    const std::span<char *const> arguments(argv, static_cast<size_t>(argc));
    return runCommand("kcfg", "KV_KCFG_FILE names the file to use", [&] { return run(arguments.subspan(1)); });
}
