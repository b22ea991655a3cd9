#include "command/protocol.h"

#include <algorithm>
#include <iterator>

namespace kv1905d {
namespace {

constexpr bool rowsAreInOrder() {
    for (size_t i = 0; i < std::size(kVerdictRows); ++i) {
        if (kVerdictRows[i].verdict != static_cast<Verdict>(i)) return false;
    }
    return true;
}
static_assert(rowsAreInOrder());

}  // namespace

const CommandRow *findCommandRow(uint32_t code) {
    const auto found = std::find_if(std::begin(kCommandRows), std::end(kCommandRows),
                                    [code](const CommandRow &row) { return row.code == code; });
    return found == std::end(kCommandRows) ? nullptr : found;
}

Bytes encodePost(const Post &post) {
    WireWriter out;
    out.u32(post.code);
    out.u32(static_cast<uint32_t>(post.buffer.size()));
    out.bytes(post.buffer);
    return out.take();
}

std::optional<Post> parsePost(ByteView message) {
    WireReader in(message);
    const uint32_t code = in.u32();
    const uint32_t size = in.u32();
    const ByteView buffer = in.bytes(size);
    if (!in.finished() || size > kMaxCommandSize) return std::nullopt;
    return Post{code, buffer};
}

Bytes encodeReply(const Reply &reply) {
    WireWriter out;
    out.u32(static_cast<uint32_t>(reply.verdict));
    out.u32(reply.needed);
    return out.take();
}

std::optional<Reply> parseReply(ByteView message) {
    WireReader in(message);
    const uint32_t verdict = in.u32();
    const uint32_t needed = in.u32();
    if (!in.finished() || verdict >= std::size(kVerdictRows)) return std::nullopt;
    return Reply{static_cast<Verdict>(verdict), needed};
}

Bytes encodeEvent(const Event &event) {
    const std::string peer = event.peer.substr(0, UINT8_MAX);
    WireWriter out;
    out.u8(static_cast<uint8_t>(event.direction));
    out.u16(event.msgId);
    out.u8(static_cast<uint8_t>(peer.size()));
    out.bytes({reinterpret_cast<const uint8_t *>(peer.data()), peer.size()});
    out.bytes(event.value);
    return out.take();
}

std::optional<Event> parseEvent(ByteView message) {
    WireReader in(message);
    const Direction direction = in.u8() == 0 ? Direction::In : Direction::Out;
    const uint16_t msgId = in.u16();
    const ByteView peer = in.bytes(in.u8());
    const ByteView value = in.bytes(in.remaining());
    if (!in.finished()) return std::nullopt;
    return Event{direction, msgId, {peer.begin(), peer.end()}, value};
}

}  // namespace kv1905d
