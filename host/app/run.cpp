#include "run.h"

#include <cerrno>
#include <optional>
#include <system_error>

#include "arguments.h"
#include "command/client.h"
#include "query.h"
#include "result_file.h"
#include "support/plugin_library.h"

namespace kv1905d {
namespace {

struct Collected {
    uint32_t code;
    Bytes buffer;
};

// The plug-in's callback carries no context; what it posts is kept until its entry point has returned.
std::optional<Collected> collected;

int collect(uint32_t code, void *buffer, uint32_t size) {
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    if (bytes == nullptr || size > kMaxCommandSize) return KV_RET_ERR;
    collected = Collected{code, Bytes(bytes, bytes + size)};
    return KV_RET_OK;
}

// Returns what the plug-in posts for these arguments, nullopt when it refuses them.
std::optional<Collected> collectPost(const ToolCommand &command, std::vector<std::string> arguments,
                                     const std::string &path) {
    const support::PluginLibrary plugin(path);
    const auto funcReg = plugin.symbol<decltype(&kvMAP1905_Func_reg)>("kvMAP1905_Func_reg");
    const auto entryPoint = plugin.symbol<ToolEntry>(command.entry);
    Kv1905BcmCbs table{};
    table.cmdSend = collect;
    funcReg(&table, 1);

    if (arguments.empty()) arguments.push_back("-");  // an entry point that reads no argument still requires one
    arguments.insert(arguments.begin(), {"kv1905App", command.number});
    std::vector<char *> argv;
    for (std::string &argument : arguments)
        argv.push_back(argument.data());
    argv.push_back(nullptr);
    collected.reset();
    entryPoint(nullptr, static_cast<int>(arguments.size()), argv.data());
    return std::exchange(collected, std::nullopt);
}

Bytes bufferOfMacs(const std::vector<std::string> &arguments) {
    Bytes buffer;
    for (const std::string &argument : arguments) {
        const MacAddress mac = MacAddress::parse(argument).value();
        buffer.insert(buffer.end(), mac.bytes.begin(), mac.bytes.end());
    }
    return buffer;
}

Completion completionOf(const ToolCommand *command) {
    return command == nullptr ? Completion::Accepted : command->completion;
}

std::string targetOf(const Post &post) {
    const CommandRow *row = findCommandRow(post.code);
    const bool has = row != nullptr && row->target != Target::None && post.buffer.size() >= KV_MAC_LEN;
    return has ? MacAddress::copyOf(post.buffer.data()).text() : "";
}

// Returns the result that the daemon's reply implies, nullopt when an agent acts.
std::optional<CommandResult> settledBy(const Reply &reply, Completion completion, const std::string &target) {
    const bool local = reply.verdict == Verdict::LocalTarget && completion != Completion::Message;
    if (local && completion == Completion::AgentUnlessLocal)
        return CommandResult{Status::Success, "recorded for this device; nothing was sent", {}, target};
    const VerdictRow &row = rowOf(local ? Verdict::Accepted : reply.verdict);
    std::string meaning = row.printed;
    if (row.verdict == Verdict::Accepted) {
        if (completion != Completion::Accepted) return std::nullopt;
    } else if (meaning.ends_with(' ')) {
        meaning += row.verdict == Verdict::ShortBuffer ? std::to_string(reply.needed) : target;
    }
    return CommandResult{row.status, meaning, {}, target};
}

// Sources of a command's result. They are opened before the command is posted.
struct Awaited {
    std::optional<ResultFile> results;
    std::optional<MonitorConnection> messages;
};

// An agent answers each interface of a request, and the last result counts.
bool hasSeveralResults(const Post &post) {
    return post.code == KV_CMD_INTF_PWR_CTRL && post.buffer[offsetof(KvIntfPwrCtrlReq, count)] > 1;
}

CommandResult awaitResult(const ToolCommand &command, const ResultFile &results, const Post &post, Duration timeout) {
    const std::string target = targetOf(post);
    const std::optional<uint8_t> code = hasSeveralResults(post) ? results.awaitLast(timeout) : results.await(timeout);
    if (!code) return {Status::NoAnswer, "sent, but no answer arrived in time", {}, target};
    return {*code == KV_RET_OK ? Status::Success : Status::Refused, meaningOf(command, *code), code, target};
}

CommandResult deliver(const Post &post, const ToolCommand *command, Awaited &awaited, const RunOptions &options) {
    const Reply reply = postCommand(options.socket, post, options.timeout);
    const std::string target = targetOf(post);
    const std::optional<CommandResult> settled = settledBy(reply, completionOf(command), target);
    if (settled) return *settled;
    if (!options.wait) return {Status::Success, "sent without waiting for the answer", {}, target};
    if (awaited.messages) return awaitMessage(*awaited.messages, post.code, target, options.timeout, options.json);
    return awaitResult(*command, *awaited.results, post, options.timeout);
}

// Checks the daemon before the lock is acquired: the lock's file belongs to the first tool, which must be run by one of
// the daemon's users. Accepts a busy daemon, and a path that is too long, which the post reports.
void requireDaemon(const std::string &path) {
    try {
        connectToDaemon(path, std::nullopt);
    } catch (const std::system_error &error) {
        const int code = error.code().value();
        if (code != ETIMEDOUT && code != ENAMETOOLONG) throw;
    }
}

Awaited awaitedFor(const ToolCommand *command, const RunOptions &options) {
    const Completion completion = completionOf(command);
    Awaited awaited;
    if (completion == Completion::Message) {
        if (options.wait) awaited.messages.emplace(options.socket, options.timeout);
    } else if (completion != Completion::Accepted) {
        requireDaemon(options.socket);
        awaited.results.emplace(options.resultFile, options.timeout);
    }
    return awaited;
}

}  // namespace

CommandResult runCommand(const ToolCommand &command, const std::vector<std::string> &arguments,
                         const RunOptions &options) {
    if (command.entry == nullptr) return runPost(command.code, bufferOfMacs(arguments), options);
    Awaited awaited = awaitedFor(&command, options);
    const std::optional<Collected> posted = collectPost(command, arguments, options.plugin);
    if (posted) return deliver({posted->code, posted->buffer}, &command, awaited, options);
    const std::string usage = "the plug-in refuses the arguments; usage: kv1905App " + usageOf(command);
    return {Status::BadArguments, command.limit == nullptr ? usage : command.limit, {}, {}};
}

CommandResult runPost(uint32_t code, ByteView buffer, const RunOptions &options) {
    const ToolCommand *command = findToolCommand(code);
    Awaited awaited = awaitedFor(command, options);
    return deliver({code, buffer}, command, awaited, options);
}

}  // namespace kv1905d
