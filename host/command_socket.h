/*
 * Operator commands between the command tool and the daemon: both ends of a local socket, its messages, and what
 * the daemon checks before the plug-in sees a command.
 *
 * One connection carries one exchange of two packets (SOCK_SEQPACKET; numbers are big-endian):
 *   post   code u32, size u32, that many bytes laid out as KV_CMD_* or OwnCommand says
 *   reply  verdict u32, bytes that the code needs u32 (0 unless the verdict is ShortBuffer)
 */
#pragma once

#include <kv1905/kvMAP1905.h>
#include <sys/types.h>
#include <uv.h>

#include <functional>
#include <list>
#include <optional>
#include <string>

#include "daemon/ethernet_port.h"
#include "daemon/log.h"
#include "ieee1905/wire.h"

namespace kv1905d {

inline constexpr const char *kDefaultCommandSocket = "/tmp/kv1905d.sock";
inline constexpr size_t kMaxCommandSize = 4096;  // bytes of one command buffer

// Commands that the daemon runs itself; the plug-in never sees these codes, and its own are below 0x10000.
enum OwnCommand : uint32_t {
    kCommandRssi = 0x10001,           // AL MAC of the device to tell, MAC of a station of this device: 12 bytes
    kCommandQueryStations = 0x10002,  // AL MAC of the device to ask: 6 bytes
    kCommandQueryPower = 0x10003,     // the same
};

enum class Target {
    None,
    Device,        // the buffer starts with an AL MAC
    DeviceOrZero,  // an all-zero AL MAC is allowed, and nothing is sent
    OtherDevice    // a known one that is not this device, or nothing is done
};

struct CommandRow {
    uint32_t code;
    uint32_t size;  // bytes that the plug-in reads at least
    Target target;
};

inline constexpr CommandRow kCommandRows[] = {
    {KV_CMD_REBOOT, KV_MAC_LEN, Target::Device},
    {KV_CMD_INTF_PWR_CTRL, sizeof(KvIntfPwrCtrlReq), Target::Device},
    {KV_CMD_FW_CTRL, sizeof(KvFWCtrlReq), Target::Device},
    {KV_CMD_RESET_DEFAULT, KV_MAC_LEN, Target::Device},
    {KV_CMD_FW_RESULT, 8, Target::None},
    {KV_CMD_LED_CTRL, sizeof(KvLedCtrlReq), Target::DeviceOrZero},
    {KV_CMD_PARTIAL_RESET_DEFAULT, KV_MAC_LEN, Target::Device},
    {KV_CMD_COMMAND, sizeof(KvCommandReq), Target::Device},
    {KV_CMD_LOG_SETTING, 12, Target::None},
    {KV_CMD_SYNC_CTRL_PWD, 1, Target::None},  // posted by other components
    {KV_CMD_SYNC_COUNTRY_BCN_REQ, KV_MAC_LEN, Target::None},
    {KV_CMD_COUNTRY_IN_BCN, sizeof(SyncCtrlerCountryMsgData), Target::None},
    {KV_CMD_UPDATE_DEVICE_INFO, 0, Target::None},
    {kCommandRssi, 2 * KV_MAC_LEN, Target::OtherDevice},
    {kCommandQueryStations, KV_MAC_LEN, Target::OtherDevice},
    {kCommandQueryPower, KV_MAC_LEN, Target::OtherDevice},
};

// Null for a code without a row. Such a post is handed on all the same: the plug-in may know more codes.
const CommandRow *findCommandRow(uint32_t code);

struct Post {
    uint32_t code;
    ByteView buffer;
};

enum class Verdict : uint32_t {
    Accepted,     // the plug-in has taken the command; so it has with the next four, unless Target::OtherDevice
    LocalTarget,  // the target is this device itself
    NoTarget,     // the target is all zero: nothing was sent
    UnknownTarget,
    NothingSent,  // to a known target: the daemon's log says why
    ShortBuffer,  // this verdict and those below: the plug-in never saw the command
    NoPlugin,
    Malformed,
    NotPermitted,
    UnknownStation,  // taken and sent all the same: that station is not associated with this device
};
inline constexpr Verdict kLastVerdict = Verdict::UnknownStation;

struct Reply {
    Verdict verdict;
    uint32_t needed = 0;  // bytes, for ShortBuffer
};

Bytes encodePost(const Post &post);               // the buffer holds at most kMaxCommandSize bytes
std::optional<Post> parsePost(ByteView message);  // a view into the message
Bytes encodeReply(const Reply &reply);
std::optional<Reply> parseReply(ByteView message);

enum class Presence { Unknown, Known, Local };

// What running a command did.
struct Effect {
    uint64_t sent;           // messages
    int result = KV_RET_OK;  // of an own command; anything else after a message was sent: the station is not here
};

struct CommandActions {
    std::function<Presence(const MacAddress &)> find;  // in the topology
    // Hands code and buffer to the plug-in; empty without one.
    std::function<Effect(uint32_t, void *)> run;
};

// Check a post and run it. The plug-in gets a copy, aligned and zero-filled to more than kMaxCommandSize bytes.
Reply handlePost(ByteView message, const CommandActions &actions);

// The daemon's end. Its user and root may post.
class CommandServer {
  public:
    // Listens at once. The file of a daemon that is gone is replaced. Throws std::runtime_error that names the path.
    explicit CommandServer(const std::string &path);
    // Removes the socket's file. The loop must have closed its handles by then.
    ~CommandServer();
    CommandServer(const CommandServer &) = delete;
    CommandServer &operator=(const CommandServer &) = delete;

    // Serve on that loop from now on. Returns libuv's result.
    int start(uv_loop_t &loop, CommandActions actions);

  private:
    static constexpr size_t kMaxClients = 8;  // the oldest has to go when another one comes

    struct Client {
        CommandServer *server;
        FileDescriptor fd;
        uv_poll_t handle{};
    };

    void acceptClient();
    void serve(Client &client);
    void complain(const Client &client, const std::string &what);
    void end(Client &client, const char *complaint = nullptr);

    std::string path_;
    FileDescriptor fd_;
    dev_t fileDevice_ = 0;
    ino_t fileNumber_ = 0;
    uv_poll_t handle_{};
    CommandActions actions_;
    LogGate complaints_;
    std::list<Client> clients_;  // those whose handle is still closing included
};

/*
 * The tool's end: post one command and take the reply. timeout: for each step. Throws std::system_error that names the
 * path; ETIMEDOUT when the daemon does not take or answer it in time.
 */
Reply postCommand(const std::string &path, const Post &post, Time timeout);

}  // namespace kv1905d
