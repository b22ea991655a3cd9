// The plug-in's part of onboarding and topology responses: it describes this device's BSSs, one per radio, and reads
// the descriptions of others.
#pragma once

#include <optional>
#include <vector>

#include "daemon/plugin.h"
#include "daemon/radio.h"
#include "ieee1905/bss_elements.h"
#include "ieee1905/cmdu.h"
#include "ieee1905/wifi_band.h"

namespace kv1905d {

class BssExtension {
  public:
    // `plugin` must outlive it. Radios beyond KV_MAX_MDID_INTERFACES are left out: the TLV holds no more.
    BssExtension(const PluginSymbols &plugin, const std::vector<Radio> &radios);

    // Lets the plug-in look up the MDIDs and build both TLVs again. May run nvram. Omits a TLV that it refuses.
    void refresh();

    // Set by the last refresh().
    const std::vector<Tlv> &topologyTlvs() const { return tlvs_; }
    const BssElements &elements() const { return elements_; }

    // Returns the vendor extension attribute for the main BSS of that band; empty if no radio uses it.
    Bytes attribute(Band band) const;
    // Reads a received attribute from its vendor ID on. Returns nullopt if it is malformed.
    std::optional<KvBssInfo> readAttribute(ByteView value) const;

  private:
    // The plug-in's list for the BSS configuration TLV.
    struct BssList {
        uint32_t count = 0;
        KvBssConfig entries[KV_MAX_MDID_INTERFACES]{};
    };

    BssList configurations() const;

    const PluginSymbols &plugin_;
    std::vector<Band> bands_;  // of the entries of mdids_
    KvMdidInterfaceList mdids_{};
    std::vector<Tlv> tlvs_;
    BssElements elements_;
};

}  // namespace kv1905d
