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

// Reads bodies one after another and keeps an unfinished TLV of one for the next.
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
    // Skips one or two zero bytes at the end of a short body: Ethernet padding, not the start of a TLV.
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

void append(Bytes &out, ByteView bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
}

void append(Bytes &out, const Tlv &tlv) {
    const size_t size = tlv.value.size();
    const uint8_t header[kTlvHeaderSize] = {tlv.type, static_cast<uint8_t>(size >> 8), static_cast<uint8_t>(size)};
    append(out, header);
    append(out, tlv.value);
}

// Fills frame payloads up to kMaxFramePayload; their headers are written at the end.
class FrameCutter {
  public:
    // bytes: of all TLVs.
    explicit FrameCutter(size_t bytes) : expected_(std::min(kHeaderSize + bytes, kMaxFramePayload)) { begin(); }

    void add(const Tlv &tlv) {
        const size_t size = kTlvHeaderSize + tlv.value.size();
        if (size > space() && space() < kMaxBody) begin();
        if (size <= space()) return append(frames_.back(), tlv);
        Bytes encoded;
        append(encoded, tlv);
        ByteView rest = encoded;
        while (rest.size() > kMaxBody) {
            // Leaves no tail shorter than an end of message: receivers drop such frames.
            const size_t tail = rest.size() - kMaxBody;
            const size_t part = tail < kTlvHeaderSize ? kMaxBody - kTlvHeaderSize : kMaxBody;
            append(frames_.back(), rest.first(part));
            rest = rest.subspan(part);
            begin();
        }
        append(frames_.back(), rest);
    }
    std::vector<Bytes> take(const Message &message) {
        for (size_t i = 0; i < frames_.size(); ++i) {
            const bool isLast = i + 1 == frames_.size();
            const auto flags = static_cast<uint8_t>((isLast ? kFlagLast : 0) | (message.relay ? kFlagRelay : 0));
            const uint8_t header[kHeaderSize] = {0,  // message version
                                                 0,  // reserved
                                                 static_cast<uint8_t>(message.type >> 8),
                                                 static_cast<uint8_t>(message.type),
                                                 static_cast<uint8_t>(message.id >> 8),
                                                 static_cast<uint8_t>(message.id),
                                                 static_cast<uint8_t>(i),
                                                 flags};
            std::copy_n(header, kHeaderSize, frames_[i].begin());
        }
        return std::move(frames_);
    }

  private:
    size_t space() const { return kMaxFramePayload - frames_.back().size(); }
    void begin() {
        frames_.emplace_back().reserve(expected_);
        frames_.back().resize(kHeaderSize);
    }

    size_t expected_;
    std::vector<Bytes> frames_;
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
    size_t size = kTlvHeaderSize;
    for (const Tlv &tlv : message.tlvs) {
        if (tlv.value.size() > kMaxTlvValue) return {};
        size += kTlvHeaderSize + tlv.value.size();
    }
    FrameCutter cutter(size);
    for (const Tlv &tlv : message.tlvs)
        cutter.add(tlv);
    cutter.add({kTlvEndOfMessage, {}});
    std::vector<Bytes> frames = cutter.take(message);
    if (frames.size() > kMaxFragments) return {};
    return frames;
}

}  // namespace kv1905d
