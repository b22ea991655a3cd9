#include "wsc.h"

#include <algorithm>
#include <iterator>

#include "cmdu.h"

namespace kv1905d {
namespace {

enum AttributeType : uint16_t {
    kEnrolleeNonce = 0x101A,
    kMessageType = 0x1022,
    kRegistrarNonce = 0x1039,
    kRfBands = 0x103C,
    kVendorExtension = 0x1049,
};

constexpr uint8_t kVendorId[] = {0x0A, 0x61, 0xC4};

void addAttribute(WireWriter &out, AttributeType type, ByteView value) {
    out.u16(type);
    out.u16(static_cast<uint16_t>(value.size()));
    out.bytes(value);
}

void addByte(WireWriter &out, AttributeType type, uint8_t value) {
    addAttribute(out, type, ByteView(&value, 1));
}

bool readByte(ByteView value, uint8_t &to) {
    if (value.size() != 1) return false;
    to = value[0];
    return true;
}

bool readNonce(ByteView value, WscNonce &to) {
    if (value.size() != to.size()) return false;
    std::copy(value.begin(), value.end(), to.begin());
    return true;
}

// Each row describes an attribute that is read.
struct ReadRow {
    uint16_t type;
    bool (*read)(ByteView value, ReceivedWsc &received);  // false: malformed
    bool inM1, inM2;                                      // required
};

constexpr ReadRow kReadRows[] = {
    {kMessageType, [](ByteView value, ReceivedWsc &to) { return readByte(value, to.message.type); }, true, true},
    {kRfBands, [](ByteView value, ReceivedWsc &to) { return readByte(value, to.message.bands); }, true, true},
    {kEnrolleeNonce, [](ByteView value, ReceivedWsc &to) { return readNonce(value, to.message.enrolleeNonce); }, true,
     true},
    {kRegistrarNonce, [](ByteView value, ReceivedWsc &to) { return readNonce(value, to.message.registrarNonce); },
     false, true},
    {kVendorExtension,
     [](ByteView value, ReceivedWsc &to) {
         if (value.size() < std::size(kVendorId)) return false;
         if (std::equal(std::begin(kVendorId), std::end(kVendorId), value.begin())) to.extension = value;
         return true;
     },
     false, false},
};

}  // namespace

Bytes encodeWsc(const WscMessage &message, ByteView extension) {
    WireWriter out;
    addByte(out, kMessageType, message.type);
    addAttribute(out, kEnrolleeNonce, message.enrolleeNonce);
    if (message.type == kWscM2) addAttribute(out, kRegistrarNonce, message.registrarNonce);
    addByte(out, kRfBands, message.bands);
    out.bytes(extension);
    return out.take();
}

std::optional<ReceivedWsc> parseWsc(ByteView value) {
    ReceivedWsc received;
    std::array<bool, std::size(kReadRows)> seen{};
    WireReader reader(value);
    for (size_t attributes = 0; reader.remaining() > 0; ++attributes) {
        const uint16_t type = reader.u16();
        const ByteView content = reader.bytes(reader.u16());
        if (!reader.ok() || attributes >= kMaxWscAttributes) return std::nullopt;
        for (size_t i = 0; i < seen.size(); ++i) {
            if (kReadRows[i].type != type) continue;
            if (!kReadRows[i].read(content, received)) return std::nullopt;
            seen[i] = true;
        }
    }
    for (size_t i = 0; i < seen.size(); ++i) {
        if (!seen[i] && (received.message.type == kWscM2 ? kReadRows[i].inM2 : kReadRows[i].inM1)) return std::nullopt;
    }
    if (!reader.ok()) return std::nullopt;
    return received;
}

}  // namespace kv1905d
