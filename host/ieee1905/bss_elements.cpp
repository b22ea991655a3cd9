#include "bss_elements.h"

#include <algorithm>
#include <iterator>

namespace kv1905d {
namespace {

constexpr uint8_t kMakerOui[] = {0x02, 0x4E, 0xA7};

void readMdids(WireReader &reader, size_t count, BssElements &elements) {
    for (size_t i = 0; i < count; ++i) {
        MdidEntry &entry = elements.mdids.emplace_back();
        entry.bssid = reader.mac();
        entry.mdid = reader.u16();
        entry.enabled = reader.u8() != 0;
    }
}

void readConfigurations(WireReader &reader, size_t count, BssElements &elements) {
    for (size_t i = 0; i < count; ++i) {
        BssConfiguration &entry = elements.configurations.emplace_back();
        entry.bandIndex = reader.u8();
        entry.attribute = reader.u8();
        entry.mdid = reader.u16();
        entry.tci = reader.u16();
        entry.wlMode = reader.u8();
        entry.extAttribute = reader.u8();
    }
}

struct ElementRow {
    uint8_t type;
    size_t entrySize;  // bytes
    void (*read)(WireReader &reader, size_t count, BssElements &elements);
    void (*replace)(BssElements &elements, BssElements &&read);
};

constexpr ElementRow kElementRows[] = {
    {0xC0, 9, readMdids, [](BssElements &to, BssElements &&from) { to.mdids = std::move(from.mdids); }},
    {0xD0, 8, readConfigurations,
     [](BssElements &to, BssElements &&from) { to.configurations = std::move(from.configurations); }},
};

// The row of the element that starts here; null for any other value. The reader then stands behind the element type.
const ElementRow *findRow(WireReader &reader) {
    const ByteView oui = reader.bytes(std::size(kMakerOui));
    const uint8_t type = reader.u8();
    if (!reader.ok() || !std::equal(oui.begin(), oui.end(), std::begin(kMakerOui))) return nullptr;
    const auto row = std::find_if(std::begin(kElementRows), std::end(kElementRows),
                                  [type](const ElementRow &each) { return each.type == type; });
    return row == std::end(kElementRows) ? nullptr : row;
}

}  // namespace

bool isBssElement(ByteView value) {
    WireReader reader(value);
    return findRow(reader) != nullptr;
}

bool readBssElement(ByteView value, BssElements &elements) {
    WireReader reader(value);
    const ElementRow *row = findRow(reader);
    if (row == nullptr) return true;
    const size_t length = reader.u16();
    if (length != reader.remaining()) return false;
    const size_t count = reader.u8();
    if (!reader.ok() || reader.remaining() != count * row->entrySize) return false;
    BssElements read;
    row->read(reader, count, read);
    row->replace(elements, std::move(read));
    return true;
}

}  // namespace kv1905d
