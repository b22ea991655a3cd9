#include "kcfg_store.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <json-c/json_tokener.h>
#include <kv1905/kvlog.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string_view>

namespace kvplatform {

namespace {

constexpr char kDefaultPath[] = "/data/kcfg.json";
constexpr mode_t kConfigMode = 0600;  // accounts hold passwords
constexpr int kDepthLimit = 16;       // levels of JSON
constexpr int kDamagedKept = 9;
constexpr int kStyle = JSON_C_TO_STRING_PRETTY | JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE;

// Members of the root that are the service's own.
constexpr char kOwnMember[] = "kcfg";
constexpr char kAppliedMember[] = "Applied";

// Seen from the directory of the library or the command; the second for libexec/kv1905 and multi-arch lib/TRIPLET.
constexpr const char *kDefaultsBeside[] = {"/../share/kv1905/kcfg_defaults.json",
                                           "/../../share/kv1905/kcfg_defaults.json"};

struct TokenerRelease {
    void operator()(json_tokener *tokener) const { json_tokener_free(tokener); }
};

// What is wrong with a file's content.
struct Fault {
    char text[256] = "";
};

enum class Reading { kGood, kMissing, kDamaged, kUnreadable };

size_t instanceLimit(const ConfigObject &object) {
    return object.single ? 1 : UINT8_MAX;  // an index has one byte for it
}

// Names the place of a byte the way editors count.
void describePosition(std::string_view text, size_t offset, const char *reason, Fault &fault) {
    const auto *end = text.data() + std::min(offset, text.size());
    const auto lines = std::count(text.data(), end, '\n');
    const auto *lineStart = end;
    while (lineStart != text.data() && lineStart[-1] != '\n')
        lineStart--;
    snprintf(fault.text, sizeof fault.text, "line %td, column %td: %s", lines + 1, end - lineStart + 1, reason);
}

// On failure the fault says where, or that memory ran out (kUnreadable).
Reading parse(std::string_view text, JsonPtr &root, Fault &fault) {
    const std::unique_ptr<json_tokener, TokenerRelease> tokener(json_tokener_new_ex(kDepthLimit));
    json_tokener_error error = json_tokener_success;
    size_t end = 0;
    if (tokener) {
        // Not JSON_TOKENER_VALIDATE_UTF8: a password may be any bytes, and must not turn the file into a damaged one.
        json_tokener_set_flags(tokener.get(), JSON_TOKENER_STRICT);
        root.reset(json_tokener_parse_ex(tokener.get(), text.data(), static_cast<int>(text.size())));
        error = json_tokener_get_error(tokener.get());
        end = json_tokener_get_parse_end(tokener.get());
    }
    if (error == json_tokener_success && end == text.size()) return Reading::kGood;
    if (error == json_tokener_success && !root) {  // the parser's way to say so
        snprintf(fault.text, sizeof fault.text, "%s", strerror(ENOMEM));
        return Reading::kUnreadable;
    }
    describePosition(text, end,
                     error == json_tokener_continue  ? "the text ends too early"
                     : error == json_tokener_success ? "unexpected text behind the end"
                                                     : json_tokener_error_desc(error),
                     fault);
    return Reading::kDamaged;
}

// What every access relies on: the root is an object, each configuration object in it a list of objects.
bool hasShape(json_object *root, Fault &fault) {
    if (!json_object_is_type(root, json_type_object)) {
        snprintf(fault.text, sizeof fault.text, "line 1, column 1: not an object");
        return false;
    }
    for (const ConfigObject &object : kConfigObjects) {
        json_object *list = nullptr;
        if (!json_object_object_get_ex(root, object.name, &list)) continue;
        const bool isList = json_object_is_type(list, json_type_array);
        const size_t count = isList ? json_object_array_length(list) : 0;
        if (!isList || count > instanceLimit(object) || (object.single && count != 1)) {
            snprintf(fault.text, sizeof fault.text, "%s: not a list of %s%zu instances", object.name,
                     object.single ? "" : "at most ", instanceLimit(object));
            return false;
        }
        for (size_t i = 0; i < count; i++) {
            if (json_object_is_type(json_object_array_get_idx(list, i), json_type_object)) continue;
            snprintf(fault.text, sizeof fault.text, "%s.%zu: not an object", object.name, i + 1);
            return false;
        }
    }
    return true;
}

Reading readDocument(const char *path, JsonPtr &root, Fault &fault) {
    File file;
    struct stat seen = {};
    MallocArray<char> text;
    size_t size = 0;
    int failure = openRegular(path, kConfigLimit, file, seen);
    if (failure == ENOENT) return Reading::kMissing;
    if (failure == EFBIG) {
        snprintf(fault.text, sizeof fault.text, "larger than %zu bytes", kConfigLimit);
        return Reading::kDamaged;
    }
    if (failure == 0) failure = readWhole(file, static_cast<size_t>(seen.st_size), text, size);
    if (failure != 0) {
        snprintf(fault.text, sizeof fault.text, "%s", strerror(failure));
        return Reading::kUnreadable;
    }
    const Reading reading = parse({text.get(), size}, root, fault);
    return reading != Reading::kGood || hasShape(root.get(), fault) ? reading : Reading::kDamaged;
}

// Factory defaults must be whole, because they stand in for everything else.
bool isComplete(json_object *root, Fault &fault) {
    for (const ConfigObject &object : kConfigObjects) {
        json_object *list = json_object_object_get(root, object.name);
        if (list == nullptr) {
            snprintf(fault.text, sizeof fault.text, "%s is missing", object.name);
            return false;
        }
        for (size_t i = 0; i < json_object_array_length(list); i++) {
            for (const ConfigField &field : object.fields) {
                json_object *value = json_object_object_get(json_object_array_get_idx(list, i), field.name);
                if (fieldFits(field, value)) continue;
                snprintf(fault.text, sizeof fault.text, "%s.%zu.%s: want %s", object.name, i + 1, field.name,
                         FieldRange(field).text);
                return false;
            }
        }
    }
    return true;
}

// Directory of the library or the command that this code is part of.
bool ownDirectory(char (&directory)[PATH_MAX]) {
    Dl_info self = {};
    if (dladdr(kDefaultsBeside, &self) == 0 || self.dli_fname == nullptr) return false;
    // A program found through PATH is known by its bare name here.
    const bool bare = strchr(self.dli_fname, '/') == nullptr;
    MallocArray<char> path(realpath(bare ? "/proc/self/exe" : self.dli_fname, nullptr));
    if (!path) return false;
    *strrchr(path.get(), '/') = '\0';
    snprintf(directory, sizeof directory, "%s", path.get());
    return true;
}

// KV_KCFG_DEFAULTS, or the shipped file. Null when there is no such place.
const char *defaultsPath(char (&room)[PATH_MAX]) {
    const char *named = getenv("KV_KCFG_DEFAULTS");
    if (named != nullptr && *named != '\0') return named;
    char directory[PATH_MAX];
    if (!ownDirectory(directory)) return nullptr;
    for (const char *place : kDefaultsBeside) {
        const BesidePath path(directory, place);
        if (!path.fits() || access(path.text(), F_OK) != 0) continue;
        memcpy(room, path.text(), sizeof room);
        return room;
    }
    return nullptr;
}

int replaceContent(const char *path, std::string_view text) {
    Replacement next(path);
    if (const int failure = next.begin(kConfigMode); failure != 0) return failure;
    fwrite(text.data(), 1, text.size(), next.out());
    fputc('\n', next.out());
    return next.commit(kConfigLimit);
}

int renameToNew(const char *from, const BesidePath &to) {
    if (!to.fits()) return ENAMETOOLONG;
    return renameat2(AT_FDCWD, from, AT_FDCWD, to.text(), RENAME_NOREPLACE) == 0 ? 0 : errno;
}

JsonPtr copyOf(json_object *source) {
    json_object *copy = nullptr;
    return JsonPtr(json_object_deep_copy(source, &copy, nullptr) == 0 ? copy : nullptr);
}

// Takes the member over when it succeeds.
bool addMember(json_object *object, const char *name, JsonPtr member) {
    if (!member || json_object_object_add(object, name, member.get()) != 0) return false;
    member.release();
    return true;
}

}  // namespace

const char *configPath() {
    const char *path = getenv("KV_KCFG_FILE");
    return path != nullptr && *path != '\0' ? path : kDefaultPath;
}

bool ConfigStore::outOfMemory() const {
    reportf(report_, KV_LOG_ERROR, "%s: out of memory", configPath());
    return false;
}

bool ConfigStore::openToRead() {
    return load();
}

bool ConfigStore::openToChange() {
    return lock() && load();
}

bool ConfigStore::lock() {
    if (lock_.held()) return true;
    const int failure = lock_.acquire(configPath());
    if (failure == 0) return true;
    reportf(report_, KV_LOG_ERROR, "%s.lock: cannot lock the configuration: %s; KV_KCFG_FILE names the file to use",
            configPath(), strerror(failure));
    return false;
}

bool ConfigStore::load() {
    Fault fault;
    const Reading reading = readDocument(configPath(), root_, fault);
    if (reading == Reading::kGood) return completeFromDefaults();
    if (reading == Reading::kUnreadable) {
        reportf(report_, KV_LOG_ERROR, "%s: cannot read the configuration: %s", configPath(), fault.text);
        return false;
    }
    if (reading == Reading::kDamaged && !lock_.held()) return lock() && load();  // another may be mending it
    root_.reset(json_object_new_object());
    if (!root_) return outOfMemory();
    if (!completeFromDefaults()) return false;
    return reading == Reading::kMissing || (setAsideDamaged(fault.text) && save());
}

bool ConfigStore::setAsideDamaged(const char *fault) {
    reportf(report_, KV_LOG_ERROR, "%s: damaged: %s; using the factory defaults", configPath(), fault);
    for (int i = 1; i <= kDamagedKept; i++) {
        char ending[16];
        snprintf(ending, sizeof ending, ".damaged-%d", i);
        const BesidePath kept(configPath(), ending);
        const int failure = renameToNew(configPath(), kept);
        if (failure == EEXIST) continue;
        reportf(report_, KV_LOG_ERROR, "%s: %s %s%s%s", configPath(), failure == 0 ? "kept as" : "cannot be kept as",
                kept.text(), failure == 0 ? "" : ": ", failure == 0 ? "" : strerror(failure));
        return failure == 0;
    }
    reportf(report_, KV_LOG_ERROR, "%s: not kept, there are %d damaged files already", configPath(), kDamagedKept);
    return true;
}

json_object *ConfigStore::defaults() {
    if (defaults_) return defaults_.get();
    char room[PATH_MAX];
    const char *path = defaultsPath(room);
    if (path == nullptr) {
        reportf(report_, KV_LOG_ERROR,
                "share/kv1905/kcfg_defaults.json: not found; KV_KCFG_DEFAULTS names the factory defaults");
        return nullptr;
    }
    Fault fault;
    JsonPtr root;
    const Reading reading = readDocument(path, root, fault);
    if (reading == Reading::kGood && isComplete(root.get(), fault)) {
        defaults_ = std::move(root);
        return defaults_.get();
    }
    reportf(report_, KV_LOG_ERROR, "%s: cannot use the factory defaults: %s; KV_KCFG_DEFAULTS names the file", path,
            reading == Reading::kMissing ? strerror(ENOENT) : fault.text);
    return nullptr;
}

bool ConfigStore::completeFromDefaults() {
    for (const ConfigObject &object : kConfigObjects) {
        if (list(object) != nullptr) continue;
        if (defaults() == nullptr) return false;
        if (!addMember(root_.get(), object.name, copyOf(json_object_object_get(defaults(), object.name)))) {
            return outOfMemory();
        }
    }
    return true;
}

json_object *ConfigStore::list(const ConfigObject &object) const {
    return json_object_object_get(root_.get(), object.name);
}

size_t ConfigStore::count(const ConfigObject &object) const {
    return json_object_array_length(list(object));
}

JsonPtr ConfigStore::instance(const ConfigObject &object, size_t number) {
    if (number < 1 || number > count(object)) {
        reportf(report_, KV_LOG_ERROR, "%s: no instance %zu, the last is %zu", object.name, number, count(object));
        return nullptr;
    }
    JsonPtr copy = copyOf(json_object_array_get_idx(list(object), number - 1));
    if (!copy) outOfMemory();
    return copy && mend(object, number, copy.get()) ? std::move(copy) : nullptr;
}

JsonPtr ConfigStore::instances(const ConfigObject &object) {
    JsonPtr all(json_object_new_array());
    for (size_t number = 1; all && number <= count(object); number++) {
        JsonPtr one = instance(object, number);
        if (!one) return nullptr;
        if (json_object_array_add(all.get(), one.get()) != 0) {
            all.reset();
        } else {
            one.release();
        }
    }
    if (!all) outOfMemory();
    return all;
}

bool ConfigStore::mend(const ConfigObject &object, size_t number, json_object *instance) {
    for (const ConfigField &field : object.fields) {
        json_object *value = nullptr;
        const bool present = json_object_object_get_ex(instance, field.name, &value);
        if (fieldFits(field, value)) continue;
        if (present) {
            reportf(report_, KV_LOG_WARNING, "%s: %s.%zu.%s: want %s; using the factory default", configPath(),
                    object.name, number, field.name, FieldRange(field).text);
        }
        if (defaults() == nullptr) return false;
        if (!addMember(instance, field.name, defaultField(object, number, field))) return outOfMemory();
    }
    return true;
}

JsonPtr ConfigStore::defaultField(const ConfigObject &object, size_t number, const ConfigField &field) {
    json_object *const shipped = json_object_array_get_idx(json_object_object_get(defaults(), object.name), number - 1);
    if (shipped != nullptr) return copyOf(json_object_object_get(shipped, field.name));
    return JsonPtr(field.kind == FieldKind::kNumber ? json_object_new_int(0) : json_object_new_string(""));
}

bool ConfigStore::setInstance(const ConfigObject &object, size_t number, json_object *value) {
    if (number < 1 || number > count(object)) {
        reportf(report_, KV_LOG_ERROR, "%s: no instance %zu, the last is %zu", object.name, number, count(object));
        return false;
    }
    if (!json_object_is_type(value, json_type_object)) {
        reportf(report_, KV_LOG_ERROR, "%s.%zu: not an object", object.name, number);
        return false;
    }
    for (const ConfigField &field : object.fields) {
        if (fieldFits(field, json_object_object_get(value, field.name))) continue;
        reportf(report_, KV_LOG_ERROR, "%s.%zu.%s: want %s", object.name, number, field.name, FieldRange(field).text);
        return false;
    }
    JsonPtr copy = copyOf(value);
    if (!copy || json_object_array_put_idx(list(object), number - 1, copy.get()) != 0) return outOfMemory();
    copy.release();
    return true;
}

bool ConfigStore::noteApplied() {
    json_object *own = json_object_object_get(root_.get(), kOwnMember);
    if (!json_object_is_type(own, json_type_object)) {
        if (!addMember(root_.get(), kOwnMember, JsonPtr(json_object_new_object()))) return outOfMemory();
        own = json_object_object_get(root_.get(), kOwnMember);
    }
    const int64_t applied = json_object_get_int64(json_object_object_get(own, kAppliedMember));
    const int64_t next = applied < 0 || applied == INT64_MAX ? 1 : applied + 1;
    return addMember(own, kAppliedMember, JsonPtr(json_object_new_int64(next))) || outOfMemory();
}

bool ConfigStore::save() {
    size_t size = 0;
    const char *text = json_object_to_json_string_length(root_.get(), kStyle, &size);
    if (text == nullptr) return outOfMemory();

    // Callers bring members of their own. What could not be read again must not take the file's place.
    Fault fault;
    JsonPtr again;
    const bool readable = parse({text, size}, again, fault) == Reading::kGood;
    const int failure = readable ? replaceContent(configPath(), {text, size}) : EINVAL;
    if (failure == 0) return true;
    reportf(report_, KV_LOG_ERROR, "%s: cannot store the configuration: %s; nothing has changed", configPath(),
            readable ? strerror(failure) : fault.text);
    return false;
}

bool ConfigStore::reset(Report report, bool partial) {
    ConfigStore store(report);
    if (!partial) return store.lock() && store.restoreDefaults(0) && store.save();  // whatever the file looks like
    if (!store.openToChange()) return false;
    const ConfigObject &object = *findConfigObject(RDM_OID_FACTORY_RESET);
    const JsonPtr selection = store.instance(object, 1);
    if (!selection) return false;
    const int keep = json_object_get_int(json_object_object_get(selection.get(), object.fields[0].name));
    return store.restoreDefaults(static_cast<unsigned>(keep)) && store.save();
}

bool ConfigStore::restoreDefaults(unsigned keep) {
    if (defaults() == nullptr) return false;
    JsonPtr fresh(json_object_new_object());
    for (const ConfigObject &object : kConfigObjects) {
        json_object *from = (object.keptBy & keep) != 0 ? root_.get() : defaults();
        if (!fresh || !addMember(fresh.get(), object.name, copyOf(json_object_object_get(from, object.name)))) {
            return outOfMemory();
        }
    }
    root_ = std::move(fresh);
    return true;
}

}  // namespace kvplatform
