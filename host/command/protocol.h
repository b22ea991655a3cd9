/*
 * Operator commands between the command tool and the daemon: their codes, the two messages and the verdicts.
 *
 * One connection carries one exchange of two packets (SOCK_SEQPACKET; numbers are big-endian):
 *   post   code u32, size u32, that many bytes in the layout of KV_CMD_* or OwnCommand
 *   reply  verdict u32, bytes that the code needs u32 (0 unless the verdict is ShortBuffer)
 * After the reply to kCommandMonitor the connection stays, and the daemon sends a packet for each vendor message:
 *   event  direction u8, message identifier u16, size of the peer's text u8, that text, TLV value
 */
#pragma once

#include <kv1905/kvMAP1905.h>

#include <optional>
#include <string>

#include "ieee1905/wire.h"

namespace kv1905d {

inline constexpr size_t kMaxCommandSize = 4096;  // bytes of one command buffer
inline constexpr size_t kPostHeader = 8;         // bytes
inline constexpr size_t kReplySize = 8;          // bytes

// Commands that the daemon runs without the plug-in. The plug-in's codes are below 0x10000.
enum OwnCommand : uint32_t {
    kCommandRssi = 0x10001,           // AL MAC of the receiver, MAC of a station of this device: 12 bytes
    kCommandQueryStations = 0x10002,  // AL MAC of the queried device: 6 bytes
    kCommandQueryPower = 0x10003,     // the same
    kCommandMonitor = 0x10004,        // nothing
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

// Returns null for a code without a row. Such a post is passed on: the plug-in may know more codes.
const CommandRow *findCommandRow(uint32_t code);

struct Post {
    uint32_t code;
    ByteView buffer;
};

// The tool's exit statuses.
enum class Status { Success, Failure, BadArguments, Refused, NoDevice, NoAnswer, NoDaemon, NotPermitted };

enum class Verdict : uint32_t {
    Accepted,     // and run, like those with the next four verdicts, unless its target is Target::OtherDevice
    LocalTarget,  // the target is this device itself
    NoTarget,     // the target is all zero: nothing was sent
    UnknownTarget,
    NothingSent,  // although the target is known: the daemon's log contains the reason
    ShortBuffer,  // not run, like those with the next three verdicts
    NoPlugin,
    Malformed,
    NotPermitted,
    UnknownStation,  // run and sent, without values: that station is not associated with this device
};

// Meaning of a verdict for daemon and tool.
struct VerdictRow {
    Verdict verdict;
    const char *logged;   // by the daemon; null: nothing
    Status status;        // of the tool
    const char *printed;  // by the tool; the number of bytes or the target follows where it ends in a blank
};

inline constexpr VerdictRow kVerdictRows[] = {
    {Verdict::Accepted, nullptr, Status::Success, "the daemon accepted the command"},
    {Verdict::LocalTarget, nullptr, Status::BadArguments, "the target must be another device"},
    {Verdict::NoTarget, nullptr, Status::BadArguments, "nothing was sent: the target is all zero"},
    {Verdict::UnknownTarget, "its target is not known", Status::NoDevice, "no such device in the network: "},
    {Verdict::NothingSent, nullptr, Status::Failure,
     "nothing was sent: it fits no message, or no interface accepted it; see the daemon's log"},
    {Verdict::ShortBuffer, "its buffer is too short", Status::BadArguments,
     "the buffer is too short; bytes that the code needs: "},
    {Verdict::NoPlugin, "there is no plug-in", Status::Failure, "the daemon runs without the plug-in"},
    {Verdict::Malformed, "it is malformed", Status::Failure,
     "the daemon does not understand this tool; are both the same version?"},
    {Verdict::NotPermitted, "that user may not post", Status::NotPermitted,
     "the daemon accepts commands of its own user and of root only"},
    {Verdict::UnknownStation, nullptr, Status::NoDevice,
     "sent without values: that station is not associated with this device"},
};

constexpr const VerdictRow &rowOf(Verdict verdict) {
    return kVerdictRows[static_cast<size_t>(verdict)];
}

enum class Direction : uint8_t { In, Out };

// A vendor message that the daemon received or sent.
struct Event {
    Direction direction;
    uint16_t msgId;
    std::string peer;  // the other device's AL MAC, or a word for several
    ByteView value;    // of the vendor-specific TLV, its OUI first
};

struct Reply {
    Verdict verdict;
    uint32_t needed = 0;  // bytes, for ShortBuffer
};

Bytes encodePost(const Post &post);               // the buffer holds at most kMaxCommandSize bytes
std::optional<Post> parsePost(ByteView message);  // a view into the message
Bytes encodeReply(const Reply &reply);
std::optional<Reply> parseReply(ByteView message);
Bytes encodeEvent(const Event &event);
std::optional<Event> parseEvent(ByteView message);  // with a view into the message

}  // namespace kv1905d
