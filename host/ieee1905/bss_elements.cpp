#include "bss_elements.h"

#include <kv1905/vendor_messages.h>

#include <algorithm>
#include <iterator>

namespace kv1905d {
namespace {

void readMdids(WireReader &reader, size_t count, BssElements &elements) {
    elements.mdids.resize(count);
    for (MdidEntry &entry : elements.mdids)
        entry = {reader.mac(), reader.u16(), reader.u8() != 0};
}

void readConfigurations(WireReader &reader, size_t count, BssElements &elements) {
    elements.configurations.resize(count);
    for (BssConfiguration &entry : elements.configurations)
        entry = {reader.u8(), reader.u8(), reader.u16(), reader.u16(), reader.u8(), reader.u8()};
}

struct ElementRow {
    uint8_t type;
    size_t entrySize;  // bytes
    void (*read)(WireReader &reader, size_t count, BssElements &elements);
};

constexpr ElementRow kElementRows[] = {{0xC0, 9, readMdids}, {0xD0, 8, readConfigurations}};

// Returns the row of the element that starts here, with the reader after the element type; null for any other value.
const ElementRow *findRow(WireReader &reader) {
    const uint32_t oui = reader.u24();
    const uint8_t type = reader.u8();
    if (!reader.ok() || oui != KV_VENDOR_OUI) return nullptr;
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
    row->read(reader, count, elements);
    return true;
}

}  // namespace kv1905d
