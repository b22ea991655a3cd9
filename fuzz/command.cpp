// The operator's way in: arguments of the command tool, posts on the daemon's socket, buffers of any code.
#include <cstring>
#include <iterator>
#include <sstream>

#include "command/server.h"
#include "common/device_world.h"
#include "common/story.h"

namespace kvfuzz {

namespace {

using namespace kv1905d;

DeviceWorld *served = nullptr;

// A post is answered, and what is answered can be read by the tool.
int post(const Bytes &message) {
    CommandActions actions;
    actions.find = [](const MacAddress &mac) {
        return served->host.devices.count(mac.bytes) == 0 ? Presence::Unknown
               : mac.bytes == kvtest::kLocal              ? Presence::Local
                                                          : Presence::Known;
    };
    actions.run = [](uint32_t code, void *buffer) {
        const size_t before = served->host.sent.size();
        kvMAP1905_VendSpecCmd_handle(buffer, code);
        return CommandEffect{served->host.sent.size() - before};
    };
    const ExactBlock exact(message);
    const Reply reply = handlePost({exact.data(), exact.size()}, actions);
    const std::optional<Reply> read = parseReply(encodeReply(reply));
    require(read && read->verdict == reply.verdict && read->needed == reply.needed, "a reply survives its way");
    return static_cast<int>(reply.verdict);
}

// What the tool posts fits a post, has a row and is long enough for it.
int postFromTool(uint32_t code, void *buffer, uint32_t size) {
    const Bytes message = encodePost({code, {static_cast<const uint8_t *>(buffer), size}});
    const std::optional<Post> parsed = parsePost(message);
    require(parsed && parsed->code == code && parsed->buffer.size() == size, "the tool's post survives its way");
    const CommandRow *row = findCommandRow(code);
    require(row != nullptr && size >= row->size, "the tool posts whole records of known codes");
    return post(message);
}

constexpr int (*kEntries[])(void *context, int argc, char **argv) = {kvMAP1905_RebootQuery_send,
                                                                     kvMAP1905_CtrlInftPwrQuery_send,
                                                                     kvMAP1905_FWCtrlQuery_send,
                                                                     kvMAP1905_ResetDefaultQuery_send,
                                                                     kvMAP1905_FwResult_set,
                                                                     kvMAP1905_ledStatus_send,
                                                                     kvMAP1905_PartialResetDefaultQuery_send,
                                                                     kvMAP1905_CmdQuery_send,
                                                                     kvMAP1905_SyslogDbg_set,
                                                                     kvMAP1905_sync_country_req_send,
                                                                     kvMAP1905_CountryInBcn_send};

// The arguments stand in the body, each in a line; before them come the program and the command, which nobody reads.
void runTool(DeviceWorld &, const Step &step) {
    constexpr size_t kMaxArguments = 16;
    std::vector<ExactBlock> blocks;
    blocks.emplace_back(Bytes(1));
    blocks.emplace_back(Bytes(1));
    std::istringstream lines(std::string(step.body.begin(), step.body.end()));
    for (std::string line; blocks.size() < kMaxArguments && std::getline(lines, line);) {
        blocks.emplace_back(Bytes(line.c_str(), line.c_str() + std::strlen(line.c_str()) + 1));
    }
    std::vector<char *> argv;
    for (const ExactBlock &block : blocks) {
        argv.push_back(reinterpret_cast<char *>(block.data()));
    }
    argv.push_back(nullptr);
    kEntries[step.argument % std::size(kEntries)](nullptr, static_cast<int>(blocks.size()), argv.data());
}

// The last codes are the daemon's own.
void postCommand(DeviceWorld &, const Step &step) {
    const uint32_t own = step.argument - 254u;
    Bytes body = step.body;
    body.resize(std::min(body.size(), kMaxCommandSize));
    post(encodePost({step.argument < 254 ? 100u + step.argument : kCommandRssi + own, body}));
}

constexpr Play<DeviceWorld> kPlays[] = {runTool, postCommand, [](DeviceWorld &, const Step &step) { post(step.body); }};

}  // namespace

void playInput(Input in) {
    DeviceWorld world;
    served = &world;
    g_kv1905_bcm_cbs.cmdSend = postFromTool;
    playStory(readSteps(in), world, kPlays);
}

}  // namespace kvfuzz
