#include "run.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <optional>
#include <system_error>

#include "arguments.h"
#include "daemon/plugin.h"
#include "result_file.h"

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

// What the plug-in makes of the arguments; nothing when it refuses them.
std::optional<Collected> askPlugin(const ToolCommand &command, std::vector<std::string> arguments,
                                   const std::string &path) {
    const PluginLibrary plugin(path);
    const auto funcReg = plugin.symbol<decltype(&kvMAP1905_Func_reg)>("kvMAP1905_Func_reg");
    const auto entryPoint = plugin.symbol<ToolEntry>(command.entryPoint);
    Kv1905BcmCbs table{};
    table.cmdSend = collect;
    funcReg(&table, 1);

    if (command.unread != nullptr && arguments.empty()) arguments.push_back(command.unread);
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

std::string targetOf(const Post &post) {
    const CommandRow *row = findCommandRow(post.code);
    const bool has = row != nullptr && row->target != Target::None && post.buffer.size() >= KV_MAC_LEN;
    return has ? MacAddress::copyOf(post.buffer.data()).text() : "";
}

// The outcome that the daemon's reply settles; nothing when an agent acts.
std::optional<Outcome> settledBy(const Reply &reply, Answer answer, const std::string &target) {
    const auto outcome = [](Status status, const std::string &meaning) { return Outcome{status, meaning, {}, {}}; };
    switch (reply.verdict) {
        case Verdict::Accepted:
            break;
        case Verdict::LocalTarget:
            if (answer == Answer::Sent) return outcome(Status::BadArguments, "the target must be another device");
            if (answer != Answer::AgentUnlessLocal) break;
            return outcome(Status::Success, "recorded for this device itself; nothing was sent");
        case Verdict::NoTarget:
            return outcome(Status::BadArguments, "nothing was sent: the target is all zero");
        case Verdict::UnknownTarget:
            return outcome(Status::NoDevice, "no such device in the network: " + target);
        case Verdict::NothingSent:
            return outcome(Status::Failure,
                           "nothing was sent: it fits no message, or no interface took it; the daemon's log says more");
        case Verdict::UnknownStation:
            return outcome(Status::NoDevice, "sent without figures: that station is not associated with this device");
        case Verdict::ShortBuffer:
            return outcome(Status::BadArguments,
                           "the buffer is too short: the code needs " + std::to_string(reply.needed) + " bytes");
        case Verdict::NoPlugin:
            return outcome(Status::Failure, "the daemon runs without the plug-in");
        case Verdict::NotPermitted:
            return outcome(Status::NotPermitted, "the daemon takes commands from its own user and root alone");
        case Verdict::Malformed:
            return outcome(Status::Failure, "the daemon does not understand this tool; are both of one version?");
    }
    if (answer == Answer::Sent) return outcome(Status::Success, "sent");
    if (answer == Answer::None) return outcome(Status::Success, "the daemon has taken the command");
    return std::nullopt;
}

Outcome awaitAnswer(const ToolCommand &command, const ResultFile &results, Time timeout) {
    const std::optional<uint8_t> code = results.await(timeout);
    if (!code) return {Status::NoAnswer, "sent, but no answer came in time", {}, {}};
    return {*code == KV_RET_OK ? Status::Success : Status::Refused, meaningOf(command, *code), code, {}};
}

Outcome deliver(const Post &post, const ToolCommand *command, const ResultFile *results, const RunOptions &options) {
    const Reply reply = postCommand(options.socket, post, options.timeout);
    std::optional<Outcome> outcome =
        settledBy(reply, command == nullptr ? Answer::None : command->answer, targetOf(post));
    if (!outcome && !options.wait) outcome = {Status::Success, "sent; the answer is not waited for", {}, {}};
    if (!outcome) outcome = awaitAnswer(*command, *results, options.timeout);
    outcome->target = targetOf(post);
    return *outcome;
}

// Before the lock is taken: its file belongs to the first tool that takes it, which must be one of the daemon's users.
// A path that is too long is left to the post.
void requireDaemon(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) return;
    path.copy(address.sun_path, path.size());
    const FileDescriptor fd(socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    const bool connected = connect(fd.get(), reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    if (!connected && errno != EAGAIN) throw std::system_error(errno, std::generic_category(), path + ": connect");
}

// Taken for a command that an agent answers.
std::optional<ResultFile> resultsFor(const ToolCommand *command, const RunOptions &options) {
    const Answer answer = command == nullptr ? Answer::None : command->answer;
    if (answer == Answer::None || answer == Answer::Sent) return std::nullopt;
    requireDaemon(options.socket);
    return ResultFile(options.resultFile, options.timeout);
}

}  // namespace

Outcome runCommand(const ToolCommand &command, const std::vector<std::string> &arguments, const RunOptions &options) {
    const std::vector<std::string> checked = checkArguments(command, arguments);
    if (command.entryPoint == nullptr) return runPost(command.code, bufferOfMacs(checked), options);
    const std::optional<ResultFile> results = resultsFor(&command, options);
    const std::optional<Collected> posted = askPlugin(command, checked, options.plugin);
    if (posted) return deliver({posted->code, posted->buffer}, &command, results ? &*results : nullptr, options);
    // The plug-in has left its refusal where an agent's would be, or has only logged it.
    const std::optional<uint8_t> code = results ? results->read() : std::nullopt;
    const std::string usage = "the plug-in refuses the arguments; they are: " + usageOf(command);
    return {Status::BadArguments, command.limit == nullptr ? usage : command.limit, code, {}};
}

Outcome runPost(uint32_t code, ByteView buffer, const RunOptions &options) {
    const ToolCommand *command = findToolCommand(code);
    const std::optional<ResultFile> results = resultsFor(command, options);
    return deliver({code, buffer}, command, results ? &*results : nullptr, options);
}

}  // namespace kv1905d
