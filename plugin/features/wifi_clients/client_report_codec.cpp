#include "features/wifi_clients/client_report_codec.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <string_view>
#include <type_traits>

#include "features/wifi_clients/station_list.h"
#include "frame/log.h"
#include "frame/mac_text.h"
#include "frame/memory.h"

namespace kv {

namespace {

using Text = std::string_view;  // bounded, not NUL-terminated

constexpr size_t kLengthDigits = 3;
constexpr int kBraces = 2;
constexpr int kMaxInnerText = 511;
constexpr size_t kMaxNumberText = 3;
constexpr size_t kMaxValueText = 127;

#define TEXT_ARGUMENT(text) static_cast<int>((text).size()), (text).data()

// Removes up to count characters from the front of text and returns them.
Text takeFront(Text &text, size_t count) {
    const Text front(text.data(), std::min(count, text.size()));
    text.remove_prefix(front.size());
    return front;
}

// Returns the number at the start of a text, after an optional sign; 0 without digits. A larger one wraps, and the
// fields keep its low bits.
uint32_t number(Text text, uint32_t base) {
    const bool isNegative = !text.empty() && text.front() == '-';
    if (isNegative || (!text.empty() && text.front() == '+')) {
        text.remove_prefix(1);
    }
    uint32_t value = 0;
    for (const char c : text) {
        const int digit = hexadecimalDigit(c);
        if (digit < 0 || static_cast<uint32_t>(digit) >= base) break;
        value = value * base + static_cast<uint32_t>(digit);
    }
    return isNegative ? 0u - value : value;
}

template <auto Field, uint32_t Base = 10>
void readNumber(WIFINeighborEntry &station, Text value) {
    auto &field = station.*Field;
    field = static_cast<std::remove_reference_t<decltype(field)>>(number(value, Base));
}

void readMac(WIFINeighborEntry &station, Text value) {
    parseMacText(value.data(), value.size(), station.mac);
}

// Reads the value of a field; the index is the field's number.
constexpr void (*kReadField[])(WIFINeighborEntry &station, Text value) = {
    readMac,
    readNumber<&WIFINeighborEntry::mediaType, 16>,
    readNumber<&WIFINeighborEntry::Rate>,
    readNumber<&WIFINeighborEntry::RSSI>,
    readNumber<&WIFINeighborEntry::signalLevel>,
    readNumber<&WIFINeighborEntry::Tx>,
    readNumber<&WIFINeighborEntry::Rx>,
    readNumber<&WIFINeighborEntry::tx_rate>,
    readNumber<&WIFINeighborEntry::rx_rate>,
    readNumber<&WIFINeighborEntry::Band>,
    readNumber<&WIFINeighborEntry::SNR>,
};

// Prints this operation name and the line of the check, then refuses the report.
#define REFUSE(format, ...)                                                                                 \
    do {                                                                                                    \
        kos_pk("%s[%d] " format "\n", "copyWIFIclientMsgDataTokvWIFINeighborTable", __LINE__, __VA_ARGS__); \
        return false;                                                                                       \
    } while (false)

// Parses a piece between commas. Returns false if it is malformed. whole: the message's text, for the printed line.
bool readPair(Text piece, Text whole, WIFINeighborEntry &station) {
    const size_t equals = piece.find('=');
    if (equals == Text::npos) {
        REFUSE("option_find is NULL, msgData %.*s, data %.*s", TEXT_ARGUMENT(whole), TEXT_ARGUMENT(piece));
    }
    Text value = piece;
    const Text key = takeFront(value, equals);
    value.remove_prefix(1);
    if (key.size() > kMaxNumberText) {
        REFUSE("invalid copy length %d, msgData %.*s, data %.*s", static_cast<int>(key.size()), TEXT_ARGUMENT(whole),
               TEXT_ARGUMENT(piece));
    }
    if (value.size() > kMaxValueText) {
        REFUSE("invalid copy length %d, msgData %.*s, data %.*s", static_cast<int>(value.size()), TEXT_ARGUMENT(whole),
               TEXT_ARGUMENT(piece));
    }
    const uint32_t field = number(key, 10);  // a negative one wraps far beyond the table
    if (field < std::size(kReadField)) {
        kReadField[field](station, value);
    }
    return true;
}

// Parses one framed record and removes it from rest.
bool readRecord(Text &rest, Text whole, WIFINeighborEntry &station) {
    const auto length = static_cast<int>(number(takeFront(rest, kLengthDigits), 10));
    const int innerLength = length - kBraces;
    if (innerLength < 0 || innerLength > kMaxInnerText || static_cast<size_t>(length) > rest.size()) {
        REFUSE("invalid copy length %d, msgData %.*s", innerLength, TEXT_ARGUMENT(whole));
    }
    const Text record = takeFront(rest, static_cast<size_t>(length));
    Text inner(record.data() + 1, static_cast<size_t>(innerLength));
    LOG_MSG(KV_LOG_DEBUG, "parse WiFi client data %.*s\n", TEXT_ARGUMENT(inner));
    while (!inner.empty()) {
        const Text piece = takeFront(inner, inner.find(','));
        takeFront(inner, 1);
        if (!piece.empty() && !readPair(piece, whole, station)) return false;
    }
    return true;
}

#undef REFUSE
#undef TEXT_ARGUMENT

void dump(const uint8_t *bytes, size_t count) {
    kos_pk("===================== Start =====================");
    for (size_t i = 0; i < count; ++i) {
        if (i % 16 == 0) {
            kos_pk("\n");
        }
        kos_pk("%02hhx ", bytes[i]);
    }
    kos_pk("\n===================== End =====================\n");
}

int refuseToEncode(const KvVendMsg &msg, const KvWifiClientMsg &record) {
    dump(reinterpret_cast<const uint8_t *>(&record), std::min<size_t>(msg.payloadLen, sizeof record));
    return KV_RET_ERR;
}

bool hasValidLength(const KvWifiClientMsg &record, uint16_t payloadLen) {
    return record.dataLen <= kMaxReportText && payloadLen == record.dataLen + kReportHeaderLen;
}

}  // namespace

uint16_t parseWifiClientMsgData(ByteReader &payload, KvVendMsg &msg) {
    auto record = allocateRecord<KvWifiClientMsg>();
    if (record == nullptr) return 0;
    const uint8_t *bytes = payload.data();
    const size_t size = payload.remaining();
    payload.copyTo(record->alMac, sizeof record->alMac);
    if (!payload.ok()) return 0;
    if (!sameMac(record->alMac, msg.alMac)) {
        PRINT_TLV("parse AlMac " KV_MAC " is unequal to " KV_MAC "!!!\n", KV_MAC_BYTES(record->alMac),
                  KV_MAC_BYTES(msg.alMac));
        dump(bytes, size);
        return 0;
    }
    record->dataLen = payload.u16();
    if (!payload.ok() || !hasValidLength(*record, msg.payloadLen)) {
        PRINT_TLV("parse dataLen(%hu) is unequal to (%hu-8)!!!\n", record->dataLen, msg.payloadLen);
        dump(bytes, size);
        return 0;
    }
    payload.copyTo(record->text, record->dataLen);
    const auto consumed = static_cast<uint16_t>(record->dataLen + kReportHeaderLen);
    msg.payload = record.release();
    return consumed;
}

int genWifiClientMsgData(const KvVendMsg &msg, ByteWriter &writer) {
    const auto *record = static_cast<const KvWifiClientMsg *>(msg.payload);
    if (!sameMac(record->alMac, msg.alMac)) {
        PRINT_TLV("generate AlMac " KV_MAC " is unequal to " KV_MAC "!!!\n", KV_MAC_BYTES(record->alMac),
                  KV_MAC_BYTES(msg.alMac));
        return refuseToEncode(msg, *record);
    }
    if (!hasValidLength(*record, msg.payloadLen)) {
        PRINT_TLV("generate dataLen(%hu) is unequal to (%hu-8)!!!\n", record->dataLen, msg.payloadLen);
        return refuseToEncode(msg, *record);
    }
    writer.bytes(record->alMac, sizeof record->alMac);
    writer.u16(record->dataLen);
    writer.bytes(record->text, record->dataLen);
    return KV_RET_OK;
}

int formatStation(char *text, size_t size, const WIFINeighborEntry &s) {
    return kos_snprintf(text, size, "{0=" KV_MAC ",1=%04hx,2=%hu,3=%hd,10=%hd,4=%hu,5=%u,6=%u,7=%hu,8=%hu,9=%hhx}",
                        KV_MAC_BYTES(s.mac), s.mediaType, s.Rate, s.RSSI, s.SNR, s.signalLevel, s.Tx, s.Rx, s.tx_rate,
                        s.rx_rate, s.Band);
}

int copyWIFIclientMsgDataTokvWIFINeighborTable(WIFINeighborList *list, const KvWifiClientMsg *record) {
    if (list == nullptr || record == nullptr) return KV_RET_ERR;
    const Text whole(record->text, strnlen(record->text, std::min<size_t>(record->dataLen, sizeof record->text)));
    WIFINeighborEntry **end = &list->head;
    uint32_t count = 0;
    for (Text rest = whole; !rest.empty(); ++count) {
        WIFINeighborEntry station = {};
        if (!readRecord(rest, whole, station)) return KV_RET_ERR;
        auto entry = allocateRecord<WIFINeighborEntry>();
        if (entry == nullptr) return KV_RET_ERR;
        *entry = station;
        *end = entry.release();
        end = &(*end)->next;
    }
    list->count = count;
    LOG_PLAIN(KV_LOG_DEBUG, "Neighbor number %d\n", static_cast<int>(count));
    return KV_RET_OK;
}

}  // namespace kv
