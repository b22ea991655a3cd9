#include "wsc.h"

#include <algorithm>
#include <iterator>
#include <string_view>

#include "cmdu.h"

namespace kv1905d {
namespace {

enum AttributeType : uint16_t {
    kAssociationState = 0x1002,
    kEnrolleeNonce = 0x101A,
    kMacAddress = 0x1020,
    kManufacturer = 0x1021,
    kMessageType = 0x1022,
    kModelName = 0x1023,
    kRegistrarNonce = 0x1039,
    kRfBands = 0x103C,
    kSerialNumber = 0x1042,
    kSsid = 0x1045,
    kUuidEnrollee = 0x1047,
    kUuidRegistrar = 0x1048,
    kVendorExtension = 0x1049,
    kVersion = 0x104A,
};

constexpr uint8_t kVersion1 = 0x10;
constexpr size_t kMaxText = 32;  // bytes of model name, serial number and SSID
constexpr uint8_t kMakerVendorId[] = {0x0A, 0x61, 0xC4};

void addAttribute(WireWriter &out, AttributeType type, ByteView value) {
    out.u16(type);
    out.u16(static_cast<uint16_t>(value.size()));
    out.bytes(value);
}

void addByte(WireWriter &out, AttributeType type, uint8_t value) {
    addAttribute(out, type, ByteView(&value, 1));
}

void addText(WireWriter &out, AttributeType type, std::string_view text) {
    text = text.substr(0, kMaxText);
    addAttribute(out, type, ByteView(reinterpret_cast<const uint8_t *>(text.data()), text.size()));
}

// The same at every start, another one on every device: time-based in form, with the AL MAC as its node.
void addUuid(WireWriter &out, AttributeType type, const MacAddress &alMac) {
    WscNonce uuid{0x6B, 0x76, 0x31, 0x39, 0x30, 0x35, 0x10, 0x00, 0x80, 0x00};
    std::copy(alMac.bytes.begin(), alMac.bytes.end(), uuid.begin() + 10);
    addAttribute(out, type, uuid);
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

// One row per attribute that is read.
struct ReadRow {
    uint16_t type;
    bool (*read)(ByteView value, ReceivedWsc &received);  // false: malformed
    bool inM1, inM2;                                      // needed
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
         if (value.size() < std::size(kMakerVendorId)) return false;
         if (std::equal(std::begin(kMakerVendorId), std::end(kMakerVendorId), value.begin())) to.extension = value;
         return true;
     },
     false, false},
};

}  // namespace

Bytes encodeWsc(const WscMessage &message, const WscSender &sender, ByteView extension) {
    const bool isM1 = message.type == kWscM1;
    WireWriter out(kMaxTlvValue);
    addByte(out, kVersion, kVersion1);
    addByte(out, kMessageType, message.type);
    if (isM1) {
        addUuid(out, kUuidEnrollee, sender.alMac);
        addAttribute(out, kMacAddress, sender.radio.bytes);
    }
    addAttribute(out, kEnrolleeNonce, message.enrolleeNonce);
    if (isM1) {
        addByte(out, kRfBands, message.bands);
        addText(out, kManufacturer, "kv1905");
        addText(out, kModelName, sender.model);
        addText(out, kSerialNumber, sender.alMac.text());
        addAttribute(out, kAssociationState, Bytes{0, 0});  // not associated
    } else {
        addAttribute(out, kRegistrarNonce, message.registrarNonce);
        addUuid(out, kUuidRegistrar, sender.alMac);
        addByte(out, kRfBands, message.bands);
        addText(out, kSsid, sender.ssid);
    }
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
