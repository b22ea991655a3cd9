#include "cmdu.h"

#include <algorithm>

namespace kv1905d {
namespace {

constexpr size_t kHeaderSize = 8;
constexpr size_t kTlvHeaderSize = 3;
constexpr size_t kMaxBody = kMaxFramePayload - kHeaderSize;
// Ethernet pads frames to 60 bytes before the checksum, so a body this short may end in padding.
constexpr size_t kPaddedBody = 60 - 14 - kHeaderSize;
constexpr size_t kMaxFragments = 256;
constexpr uint8_t kFlagLast = 0x80;
constexpr uint8_t kFlagRelay = 0x40;

// Walks bodies one after another and keeps what a body leaves unfinished for the next one.
class TlvDecoder {
  public:
    bool add(ByteView body) {
        Bytes data = std::move(unfinished_);
        unfinished_.clear();
        data.insert(data.end(), body.begin(), body.end());
        ended_ = false;
        WireReader reader(data);
        while (reader.remaining() > 0) {
            const WireReader start = reader;
            const uint8_t type = reader.u8();
            const uint16_t length = reader.u16();
            const ByteView value = reader.bytes(length);
            if (type == kTlvEndOfMessage && (start.remaining() >= kTlvHeaderSize)) {
                ended_ = true;
                return length == 0;
            }
            if (length > kMaxTlvValue) return false;
            if (!reader.ok()) {
                keep(start, body.size());
                return true;
            }
            tlvs_.push_back({type, Bytes(value.begin(), value.end())});
        }
        return true;
    }
    bool ended() const { return ended_; }
    std::vector<Tlv> take() { return std::move(tlvs_); }

  private:
    // One or two zero bytes at the end of a short body are Ethernet padding, not the start of a TLV.
    void keep(WireReader from, size_t bodySize) {
        const ByteView rest = from.rest();
        const bool zeros = std::all_of(rest.begin(), rest.end(), [](uint8_t byte) { return byte == 0; });
        if (zeros && rest.size() < kTlvHeaderSize && bodySize <= kPaddedBody) return;
        unfinished_.assign(rest.begin(), rest.end());
    }

    std::vector<Tlv> tlvs_;
    Bytes unfinished_;
    bool ended_ = false;
};

Bytes frame(const Message &message, size_t index, bool last, ByteView body) {
    WireWriter out;
    out.u8(0);  // message version
    out.u8(0);  // reserved
    out.u16(message.type);
    out.u16(message.id);
    out.u8(static_cast<uint8_t>(index));
    out.u8(static_cast<uint8_t>((last ? kFlagLast : 0) | (message.relay ? kFlagRelay : 0)));
    out.bytes(body);
    return out.take();
}

// Fills bodies up to kMaxBody.
class BodyCutter {
  public:
    void add(const Tlv &tlv) {
        WireWriter out;
        out.u8(tlv.type);
        out.u16(static_cast<uint16_t>(tlv.value.size()));
        out.bytes(tlv.value);
        const Bytes encoded = out.take();
        if (encoded.size() > kMaxBody - current().size() && !current().empty()) bodies_.emplace_back();
        ByteView rest = encoded;
        while (rest.size() > kMaxBody) {
            // Leave no tail shorter than an end of message: receivers drop such frames.
            const size_t tail = rest.size() - kMaxBody;
            rest = move(rest, tail < kTlvHeaderSize ? kMaxBody - kTlvHeaderSize : kMaxBody);
            bodies_.emplace_back();
        }
        move(rest, rest.size());
    }
    std::vector<Bytes> take() { return std::move(bodies_); }

  private:
    Bytes &current() { return bodies_.back(); }
    ByteView move(ByteView from, size_t count) {
        current().insert(current().end(), from.begin(), from.begin() + static_cast<ptrdiff_t>(count));
        return from.subspan(count);
    }

    std::vector<Bytes> bodies_{1};
};

}  // namespace

const Tlv *Message::find(uint8_t tlvType) const {
    const auto at = std::find_if(tlvs.begin(), tlvs.end(), [&](const Tlv &tlv) { return tlv.type == tlvType; });
    return at == tlvs.end() ? nullptr : &*at;
}

std::optional<Fragment> parseFragment(ByteView payload) {
    if (payload.size() < kHeaderSize + kTlvHeaderSize) return std::nullopt;
    WireReader reader(payload);
    const uint8_t version = reader.u8();
    reader.u8();  // reserved
    Fragment fragment;
    fragment.type = reader.u16();
    fragment.id = reader.u16();
    fragment.index = reader.u8();
    const uint8_t flags = reader.u8();
    fragment.last = (flags & kFlagLast) != 0;
    fragment.relay = (flags & kFlagRelay) != 0;
    fragment.body = reader.rest();
    if (version != 0) return std::nullopt;
    return fragment;
}

std::optional<std::vector<Tlv>> decodeTlvs(std::span<const ByteView> bodies) {
    TlvDecoder decoder;
    for (const ByteView body : bodies) {
        if (!decoder.add(body)) return std::nullopt;
    }
    if (!decoder.ended()) return std::nullopt;
    return decoder.take();
}

std::vector<Bytes> encodeMessage(const Message &message) {
    BodyCutter cutter;
    for (const Tlv &tlv : message.tlvs) {
        if (tlv.value.size() > kMaxTlvValue) return {};
        cutter.add(tlv);
    }
    cutter.add({kTlvEndOfMessage, {}});
    const std::vector<Bytes> bodies = cutter.take();
    if (bodies.size() > kMaxFragments) return {};
    std::vector<Bytes> frames;
    for (size_t i = 0; i < bodies.size(); ++i) {
        frames.push_back(frame(message, i, i + 1 == bodies.size(), bodies[i]));
    }
    return frames;
}

}  // namespace kv1905d
