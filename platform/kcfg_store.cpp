#include "kcfg_store.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <json-c/json_tokener.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <system_error>

namespace kvplatform {

namespace {

constexpr mode_t kConfigMode = 0600;  // accounts hold passwords
constexpr int kDepthLimit = 16;       // levels of JSON
// Written by the device's other components as well. Its readers load it again when its time, in whole seconds, has
// changed.
constexpr const char *kDeviceConfigPath = "/tmp/.kv1905_conf";
constexpr int kStyle = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;

// Relative to the directory of the library or the command: of a build tree, libexec/kv1905, lib/TRIPLET/kv1905.
constexpr const char *kDefaultsNearby[] = {"../share/kv1905/kcfg_defaults.json",
                                           "../../share/kv1905/kcfg_defaults.json",
                                           "../../../share/kv1905/kcfg_defaults.json"};

// A file's content is no configuration.
struct DamagedError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

std::string variable(const char *name) {
    const char *value = getenv(name);
    return value != nullptr ? value : "";
}

std::string configPath() {
    std::string named = variable("KV_KCFG_FILE");
    return named.empty() ? "/data/kcfg.json" : named;
}

std::string defaultsPath() {
    std::string named = variable("KV_KCFG_DEFAULTS");
    if (!named.empty()) return named;
    Dl_info self = {};
    dladdr(kDefaultsNearby, &self);
    const std::string file = self.dli_fname != nullptr ? self.dli_fname : "";
    // A program found through PATH is known by its bare name here.
    const std::filesystem::path own = file.find('/') == std::string::npos ? "/proc/self/exe" : file;
    for (const char *place : kDefaultsNearby) {
        const std::filesystem::path path = std::filesystem::canonical(own).parent_path() / place;
        if (std::filesystem::exists(path)) return path;
    }
    throw std::runtime_error("share/kv1905/kcfg_defaults.json: not found; KV_KCFG_DEFAULTS names the defaults");
}

JsonPtr parse(const std::string &text) {
    struct Release {
        void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
    };
    const std::unique_ptr<json_tokener, Release> tokener(json_tokener_new_ex(kDepthLimit));
    if (!tokener) throw std::bad_alloc();
    // Does not set JSON_TOKENER_VALIDATE_UTF8: a password may be any bytes, and must not make the file a damaged one.
    json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
    JsonPtr root(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
    const json_tokener_error error = json_tokener_get_error(tokener.get());
    const size_t end = json_tokener_get_parse_end(tokener.get());
    if (error == json_tokener_success && end == text.size()) return root;
    if (error == json_tokener_success && !root) throw std::bad_alloc();  // reported like this by the parser
    const char *reason = error == json_tokener_continue  ? "the text ends too early"
                         : error == json_tokener_success ? "unexpected text after the end"
                                                         : json_tokener_error_desc(error);
    const auto line = std::count(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(end), '\n') + 1;
    throw DamagedError("line " + std::to_string(line) + ": " + reason);
}

std::string nameOf(const ConfigObject &object, size_t number) {
    return object.name + ('.' + std::to_string(number));
}

// Checks what every access relies on: the root is an object, each configuration object in it a list of objects.
void checkShape(json_object *root) {
    if (!json_object_is_type(root, json_type_object)) throw DamagedError("line 1: not an object");
    for (const ConfigObject &object : kConfigObjects) {
        json_object *list = nullptr;
        if (!json_object_object_get_ex(root, object.name, &list)) continue;
        const size_t limit = object.single ? 1 : UINT8_MAX;  // an index has one byte for it
        const size_t count = json_object_is_type(list, json_type_array) ? json_object_array_length(list) : limit + 1;
        if (count > limit || (object.single && count != 1)) {
            throw DamagedError(object.name + std::string(": not a list of ") + (object.single ? "" : "at most ") +
                               std::to_string(limit) + " instances");
        }
        for (size_t i = 0; i < count; i++) {
            if (json_object_is_type(json_object_array_get_idx(list, i), json_type_object)) continue;
            throw DamagedError(nameOf(object, i + 1) + ": not an object");
        }
    }
}

void checkFields(const ConfigObject &object, size_t number, json_object *instance) {
    for (const ConfigField &field : object.fields) {
        if (fieldFits(field, json_object_object_get(instance, field.name))) continue;
        throw std::invalid_argument(nameOf(object, number) + '.' + field.name + ": expected " + rangeOf(field));
    }
}

// Throws DamagedError when the file holds something else.
JsonPtr readDocument(const std::string &path) {
    try {
        JsonPtr root = parse(support::readFile(path, kConfigLimit));
        checkShape(root.get());
        return root;
    } catch (const std::system_error &error) {
        if (error.code().value() != EFBIG) throw;
        throw DamagedError("larger than " + std::to_string(kConfigLimit) + " bytes");
    }
}

// Factory defaults must be complete, because every missing value falls back to them.
JsonPtr readDefaults() {
    const std::string path = defaultsPath();
    try {
        JsonPtr root = readDocument(path);
        for (const ConfigObject &object : kConfigObjects) {
            json_object *list = json_object_object_get(root.get(), object.name);
            if (list == nullptr) throw DamagedError(object.name + std::string(" is missing"));
            for (size_t i = 0; i < json_object_array_length(list); i++)
                checkFields(object, i + 1, json_object_array_get_idx(list, i));
        }
        return root;
    } catch (const std::exception &error) {
        throw std::runtime_error(path + ": cannot use the factory defaults: " + error.what() +
                                 "; KV_KCFG_DEFAULTS names the file");
    }
}

// Writes the LED setting into the device's configuration file, where that has one.
void applyLeds(bool isOn) {
    struct stat before {
    }, after{};
    if (stat(kDeviceConfigPath, &before) != 0) return;
    std::string text = support::readFile(kDeviceConfigPath, kConfigLimit);
    const size_t at = ('\n' + text).find("\nLedEnable=");
    if (at == std::string::npos) return;
    const std::string line = isOn ? "LedEnable=1" : "LedEnable=0";
    const size_t length = std::min(text.find('\n', at), text.size()) - at;
    if (text.compare(at, length, line) == 0) return;
    support::replaceFile(kDeviceConfigPath, text.replace(at, length, line), 0644, support::Durable::No);
    if (stat(kDeviceConfigPath, &after) != 0 || after.st_mtime > before.st_mtime) return;
    const timespec times[] = {{0, UTIME_OMIT}, {before.st_mtime + 1, 0}};
    utimensat(AT_FDCWD, kDeviceConfigPath, times, 0);
}

JsonPtr emptyValue(const ConfigField &field) {
    return checked(field.kind == FieldKind::kNumber ? json_object_new_int(0) : json_object_new_string(""));
}

}  // namespace

ConfigStore::ConfigStore(Access access, Report report) : report_(report), path_(configPath()) {
    if (access == Access::Change) lock_.emplace(path_ + ".lock");
    load();
}

void ConfigStore::load() {
    try {
        root_ = readDocument(path_);
    } catch (const DamagedError &error) {
        report_(path_ + ": damaged: " + error.what() + "; using the factory defaults");
        isDamaged_ = true;
    } catch (const std::system_error &error) {
        if (error.code().value() != ENOENT) throw;
    }
    if (!root_) root_ = checked(json_object_new_object());
    for (const ConfigObject &object : kConfigObjects) {
        if (list(object) != nullptr) continue;
        addMember(root_.get(), object.name, copyOf(json_object_object_get(defaults(), object.name)));
    }
}

json_object *ConfigStore::defaults() {
    if (!defaults_) defaults_ = readDefaults();
    return defaults_.get();
}

json_object *ConfigStore::list(const ConfigObject &object) const {
    return json_object_object_get(root_.get(), object.name);
}

size_t ConfigStore::count(const ConfigObject &object) const {
    return json_object_array_length(list(object));
}

json_object *ConfigStore::find(const ConfigObject &object, size_t number) const {
    if (number >= 1 && number <= count(object)) return json_object_array_get_idx(list(object), number - 1);
    throw std::invalid_argument(object.name + std::string(": no instance ") + std::to_string(number) +
                                ", the last is " + std::to_string(count(object)));
}

JsonPtr ConfigStore::instance(const ConfigObject &object, size_t number) {
    JsonPtr copy = copyOf(find(object, number));
    for (const ConfigField &field : object.fields) {
        json_object *value = nullptr;
        const bool isPresent = json_object_object_get_ex(copy.get(), field.name, &value);
        if (fieldFits(field, value)) continue;
        if (isPresent) {
            report_(path_ + ": " + nameOf(object, number) + '.' + field.name + ": expected " + rangeOf(field) +
                    "; using the factory default");
        }
        json_object *shipped = json_object_array_get_idx(json_object_object_get(defaults(), object.name), number - 1);
        addMember(copy.get(), field.name,
                  shipped != nullptr ? copyOf(json_object_object_get(shipped, field.name)) : emptyValue(field));
    }
    return copy;
}

void ConfigStore::setInstance(const ConfigObject &object, size_t number, json_object *value) {
    find(object, number);
    if (!json_object_is_type(value, json_type_object)) {
        throw std::invalid_argument(nameOf(object, number) + ": not an object");
    }
    checkFields(object, number, value);
    JsonPtr copy = copyOf(value);
    if (json_object_array_put_idx(list(object), number - 1, copy.get()) != 0) throw std::bad_alloc();
    copy.release();
}

void ConfigStore::save() {
    const char *printed = json_object_to_json_string_ext(root_.get(), kStyle);
    if (printed == nullptr) throw std::bad_alloc();
    const std::string text = printed + std::string("\n");
    // Members from callers must not make the file unreadable.
    parse(text);
    if (text.size() > kConfigLimit) throw support::systemError(path_, "write", EFBIG);
    if (isDamaged_ && rename(path_.c_str(), (path_ + ".damaged").c_str()) == 0) {
        report_(path_ + ": kept as " + path_ + ".damaged");
    }
    support::replaceFile(path_, text, kConfigMode, support::Durable::Yes);
    const ConfigObject &leds = *findConfigObject(RDM_OID_LED_CTRL);
    json_object *isOn = json_object_object_get(find(leds, 1), leds.fields[0].name);
    try {
        if (fieldFits(leds.fields[0], isOn)) applyLeds(json_object_get_int(isOn) != 0);
    } catch (const std::system_error &error) {
        report_(error.what());
    }
}

void ConfigStore::reset(bool partial, Report report) {
    ConfigStore store(Access::Change, report);
    const ConfigObject &object = *findConfigObject(RDM_OID_FACTORY_RESET);
    const JsonPtr selection = store.instance(object, 1);
    const int keep = json_object_get_int(json_object_object_get(selection.get(), object.fields[0].name));
    store.isDamaged_ = false;  // a damaged file has nothing to keep
    store.restoreDefaults(partial ? static_cast<unsigned>(keep) : 0);
    store.save();
}

void ConfigStore::restoreDefaults(unsigned keep) {
    JsonPtr fresh = checked(json_object_new_object());
    for (const ConfigObject &object : kConfigObjects) {
        json_object *from = (object.keptBy & keep) != 0 ? root_.get() : defaults();
        addMember(fresh.get(), object.name, copyOf(json_object_object_get(from, object.name)));
    }
    root_ = std::move(fresh);
}

}  // namespace kvplatform
