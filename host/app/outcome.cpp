#include "outcome.h"

#include <json-c/json.h>

#include <cerrno>
#include <cstdio>
#include <system_error>

#include "support/json.h"
#include "support/options.h"

namespace kv1905d {
namespace {

struct ErrorRow {
    int error;
    Status status;
};

constexpr ErrorRow kErrors[] = {
    {ENOENT, Status::NoDaemon},    {ECONNREFUSED, Status::NoDaemon}, {EACCES, Status::NotPermitted},
    {EPERM, Status::NotPermitted}, {ETIMEDOUT, Status::NoAnswer},
};

json_object *textOrNull(const std::string &text) {
    return text.empty() ? nullptr : json_object_new_string(text.c_str());
}

void printJson(const CommandResult &result, const std::string &command) {
    const support::JsonPtr json(json_object_new_object());
    json_object_object_add(json.get(), "command", textOrNull(command));
    json_object_object_add(json.get(), "target", textOrNull(result.target));
    json_object_object_add(json.get(), "code", result.code ? json_object_new_int(*result.code) : nullptr);
    json_object_object_add(json.get(), "meaning", textOrNull(result.meaning));
    json_object_object_add(json.get(), "status", json_object_new_int(static_cast<int>(result.status)));
    std::puts(json_object_to_json_string_ext(json.get(), JSON_C_TO_STRING_SPACED | JSON_C_TO_STRING_NOSLASHESCAPE));
}

}  // namespace

Status statusOf(int error) {
    for (const ErrorRow &row : kErrors) {
        if (row.error == error) return row.status;
    }
    return Status::Failure;
}

CommandResult failureOf(const std::exception &error) {
    if (const auto *failure = dynamic_cast<const Failure *>(&error)) return {failure->status, failure->what(), {}, {}};
    if (dynamic_cast<const support::BadOption *>(&error) != nullptr) return {Status::BadArguments, error.what(), {}, {}};
    const auto *system = dynamic_cast<const std::system_error *>(&error);
    const Status status = system == nullptr ? Status::Failure : statusOf(system->code().value());
    const bool isClosed = system != nullptr && system->code().value() == EACCES;
    const char *hint = status == Status::NoDaemon ? "; is kv1905d running?"
                       : isClosed                 ? "; only root and the daemon's user may do this"
                                                  : "";
    return {status, error.what() + std::string(hint), {}, {}};
}

void print(const CommandResult &result, const std::string &command, bool json) {
    std::fputs(result.text.c_str(), stdout);
    if (result.meaning.empty()) return;
    if (json) return printJson(result, command);
    const std::string text =
        result.code ? "result " + std::to_string(*result.code) + " (" + result.meaning + ")" : result.meaning;
    if (result.status == Status::Success || result.status == Status::Refused) {
        std::puts(text.c_str());
    } else {
        const std::string prefix = command.empty() ? "" : command + ": ";
        std::fprintf(stderr, "%s: %s%s\n", program_invocation_short_name, prefix.c_str(), text.c_str());
    }
}

}  // namespace kv1905d
