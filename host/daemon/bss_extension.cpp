#include "daemon/bss_extension.h"

#include <algorithm>
#include <cstddef>

namespace kv1905d {
namespace {

constexpr uint8_t kFronthaul = 1;
constexpr size_t kMdidTlvSize = 7 + 9 * KV_MAX_MDID_INTERFACES;           // bytes that the plug-in requires
constexpr size_t kConfigurationTlvSize = 7 + 8 * KV_MAX_MDID_INTERFACES;  // the same
constexpr size_t kAttributeSize = 24;

}  // namespace

BssExtension::BssExtension(const PluginSymbols &plugin, const std::vector<Radio> &radios) : plugin_(plugin) {
    for (const Radio &radio : radios) {
        if (bands_.size() == KV_MAX_MDID_INTERFACES) break;
        KvMdidInterface &entry = mdids_.interfaces[bands_.size()];
        std::copy(radio.facts.mac.bytes.begin(), radio.facts.mac.bytes.end(), entry.bssid);
        radio.name.copy(entry.ifname, sizeof entry.ifname - 1);
        entry.enabled = 1;
        bands_.push_back(bandOfMediaType(radio.facts.mediaType));
    }
    mdids_.InterfaceNumberOfEntries = static_cast<uint32_t>(bands_.size());
}

void BssExtension::refresh() {
    tlvs_.clear();
    elements_ = {};
    const auto add = [this](size_t size, const auto &insert) {
        Bytes value(size);
        uint32_t length = 0;
        if (insert(value.data(), &length) != 0 || length > size) return;
        value.resize(length);
        readBssElement(value, elements_);  // shown next to those of others
        tlvs_.push_back({kTlvVendorSpecific, std::move(value)});
    };
    if (bands_.empty()) return;
    add(kMdidTlvSize,
        [this](uint8_t *buffer, uint32_t *length) { return plugin_.mdidInsert(buffer, length, &mdids_); });
    const BssList list = configurations();  // with the MDIDs just looked up
    if (list.count == 0) return;
    add(kConfigurationTlvSize,
        [&](uint8_t *buffer, uint32_t *length) { return plugin_.bssConfigInsert(buffer, length, &list); });
}

BssExtension::BssList BssExtension::configurations() const {
    static_assert(offsetof(BssList, entries) == 4);
    BssList list;
    for (size_t i = 0; i < bands_.size(); ++i) {
        if (bands_[i] == kBandOther) continue;  // its band has no index
        KvBssConfig &entry = list.entries[list.count++];
        entry.BandIndex = kBands[bands_[i]].bssIndex;
        entry.Attribute = kFronthaul;
        entry.MDID = mdids_.interfaces[i].mdid;
    }
    return list;
}

Bytes BssExtension::attribute(Band band) const {
    const auto found = std::find(bands_.begin(), bands_.end(), band);
    if (band == kBandOther || found == bands_.end()) return {};
    KvBssInfo bss{};
    bss.BandIndex = kBands[band].bssIndex;
    bss.Attribute = kFronthaul;
    bss.MDID = mdids_.interfaces[found - bands_.begin()].mdid;
    Bytes buffer(kAttributeSize);
    const int written = plugin_.apCfgFill(buffer.data(), 0, &bss);
    buffer.resize(std::min(static_cast<size_t>(std::max(written, 0)), buffer.size()));
    return buffer;
}

std::optional<KvBssInfo> BssExtension::readAttribute(ByteView value) const {
    // The reader without a length gets zeros after the attribute: they are no sub-element, so it stops there. The other
    // one is called last, because only it checks the bounds and reads sub-elements in any order.
    constexpr size_t padding = 4;
    Bytes padded(value.begin(), value.end());
    padded.resize(padded.size() + padding);
    KvBssInfo bss{};
    if (plugin_.apCfgParse(padded.data(), &bss) != 0) return std::nullopt;
    if (plugin_.apCfgParseCheckLen(value.data(), static_cast<uint32_t>(value.size()), &bss) != 0) return std::nullopt;
    return bss;
}

}  // namespace kv1905d
