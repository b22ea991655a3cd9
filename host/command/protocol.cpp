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

uint32_t readU32(WireReader &in) {
    const uint32_t high = in.u16();
    return high << 16 | in.u16();
}

void writeU32(WireWriter &out, uint32_t value) {
    out.u16(static_cast<uint16_t>(value >> 16));
    out.u16(static_cast<uint16_t>(value));
}

}  // namespace

const CommandRow *findCommandRow(uint32_t code) {
    const auto found = std::find_if(std::begin(kCommandRows), std::end(kCommandRows),
                                    [code](const CommandRow &row) { return row.code == code; });
    return found == std::end(kCommandRows) ? nullptr : found;
}

Bytes encodePost(const Post &post) {
    WireWriter out;
    writeU32(out, post.code);
    writeU32(out, static_cast<uint32_t>(post.buffer.size()));
    out.bytes(post.buffer);
    return out.take();
}

std::optional<Post> parsePost(ByteView message) {
    WireReader in(message);
    const uint32_t code = readU32(in);
    const uint32_t size = readU32(in);
    const ByteView buffer = in.bytes(size);
    if (!in.finished() || size > kMaxCommandSize) return std::nullopt;
    return Post{code, buffer};
}

Bytes encodeReply(const Reply &reply) {
    WireWriter out;
    writeU32(out, static_cast<uint32_t>(reply.verdict));
    writeU32(out, reply.needed);
    return out.take();
}

std::optional<Reply> parseReply(ByteView message) {
    WireReader in(message);
    const uint32_t verdict = readU32(in);
    const uint32_t needed = readU32(in);
    if (!in.finished() || verdict >= std::size(kVerdictRows)) return std::nullopt;
    return Reply{static_cast<Verdict>(verdict), needed};
}

}  // namespace kv1905d
