// The operator's way in: arguments of the command tool, posts on the daemon's socket, buffers of any code.
#include <cstring>
#include <iterator>

#include "command_socket.h"
#include "common/device_world.h"
#include "common/steps.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using namespace kv1905d;

DeviceWorld *served = nullptr;

CommandActions actions() {
    CommandActions all;
    all.find = [](const MacAddress &mac) {
        return served->host.devices.count(mac.bytes) == 0 ? Presence::Unknown
               : mac.bytes == kvtest::kLocal              ? Presence::Local
                                                          : Presence::Known;
    };
    all.run = [](uint32_t code, void *buffer) {
        const size_t before = served->host.sent.size();
        kvMAP1905_VendSpecCmd_handle(buffer, code);
        return Effect{served->host.sent.size() - before};
    };
    return all;
}

// A post is answered, and what is answered can be read by the tool.
int post(const Bytes &message) {
    ExactBlock exact(message);
    const Reply reply = handlePost({exact.data(), exact.size()}, actions());
    const std::optional<Reply> read = parseReply(encodeReply(reply));
    require(read && read->verdict == reply.verdict && read->needed == reply.needed, "a reply survives its way");
    served->check();
    return static_cast<int>(reply.verdict);
}

// What the tool posts fits a post, has a row and is long enough for it.
int postFromTool(uint32_t code, void *buffer, uint32_t size) {
    const auto *bytes = static_cast<const uint8_t *>(buffer);
    const Bytes message = encodePost({code, {bytes, size}});
    const std::optional<Post> parsed = parsePost(message);
    require(parsed && parsed->code == code && parsed->buffer.size() == size, "the tool's post survives its way");
    const CommandRow *row = findCommandRow(code);
    require(row != nullptr && size >= row->size, "the tool posts whole records of known codes");
    return post(message);
}

using ToolEntry = int (*)(void *context, int argc, char **argv);

constexpr ToolEntry kEntries[] = {
    kvMAP1905_RebootQuery_send,
    kvMAP1905_CtrlInftPwrQuery_send,
    kvMAP1905_FWCtrlQuery_send,
    kvMAP1905_ResetDefaultQuery_send,
    kvMAP1905_FwResult_set,
    kvMAP1905_ledStatus_send,
    kvMAP1905_PartialResetDefaultQuery_send,
    kvMAP1905_CmdQuery_send,
    kvMAP1905_SyslogDbg_set,
    kvMAP1905_sync_country_req_send,
    kvMAP1905_CountryInBcn_send,
};

// The arguments stand in the body, each in a line.
void runTool(const Step &step) {
    constexpr size_t kMaxArguments = 16;
    std::vector<Bytes> texts = {{0}, {0}, {}};
    for (const uint8_t byte : step.body) {
        if (byte == '\n' && texts.size() < kMaxArguments) {
            texts.back().push_back(0);
            texts.emplace_back();
        } else if (byte != 0) {
            texts.back().push_back(byte);
        }
    }
    texts.back().push_back(0);
    std::vector<ExactBlock> blocks(texts.begin(), texts.end());
    std::vector<char *> argv;
    for (ExactBlock &block : blocks) {
        argv.push_back(reinterpret_cast<char *>(block.data()));
    }
    const int argc = static_cast<int>(argv.size()) - (step.body.empty() ? 1 : 0);
    argv.push_back(nullptr);
    kEntries[step.argument % std::size(kEntries)](nullptr, argc, argv.data());
}

void postBody(const Step &step) {
    post(step.body);
}

// A whole post around the body, for a code that has a row.
void postCommand(const Step &step) {
    const uint32_t code = kCommandRows[step.argument % std::size(kCommandRows)].code;
    Bytes body = step.body;
    body.resize(std::min(body.size(), kMaxCommandSize));
    post(encodePost({code, body}));
}

void postOtherCode(const Step &step) {
    Bytes body = step.body;
    body.resize(std::min(body.size(), kMaxCommandSize));
    post(encodePost({95u + step.argument, body}));
}

constexpr void (*kPlays[])(const Step &step) = {runTool, postCommand, postOtherCode, postBody};

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    DeviceWorld world;
    served = &world;
    g_kv1905_bcm_cbs.cmdSend = postFromTool;
    for (const Step &step : readSteps(data, size)) {
        kPlays[step.kind % std::size(kPlays)](step);
        world.check();
    }
    served = nullptr;
    return 0;
}
