// Wi-Fi Simple Configuration attributes in the host, the maker's extension inside them in the plug-in, and the two
// elements of a topology response that tell of BSSs.
#include "ieee1905/wsc.h"

#include <algorithm>
#include <cstring>

#include "common/device_world.h"
#include "ieee1905/bss_elements.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace kvfuzz {

namespace {

using namespace kv1905d;

constexpr uint32_t kAttributeHeader = 4;
constexpr uint32_t kAttributeLen = 24;
constexpr size_t kInOrderRoom = 18;  // what the parser without a length may look at

bool sameSettings(const KvBssInfo &a, const KvBssInfo &b) {
    return a.BandIndex == b.BandIndex && a.Attribute == b.Attribute && a.MDID == b.MDID && a.TCI == b.TCI;
}

// What is read is written and read again.
void checkExtension(const Bytes &elements) {
    ExactBlock exact(elements);
    KvBssInfo bss = {};
    const bool valid = kvMAP1905_ApCfg_parse_check_len(exact.data(), static_cast<uint32_t>(exact.size()), &bss) == 0;
    Bytes padded = elements;
    padded.resize(std::max(padded.size(), kInOrderRoom));
    ExactBlock roomy(padded);
    KvBssInfo inOrder = {};
    kvMAP1905_ApCfg_parse(roomy.data(), &inOrder);
    if (!valid) {
        return;
    }
    ExactBlock attribute{Bytes(kAttributeLen)};
    require(kvMAP1905_ApCfg_fill(attribute.data(), 0, &bss) == kAttributeLen, "an attribute has 24 bytes");
    KvBssInfo again = {};
    require(kvMAP1905_ApCfg_parse_check_len(attribute.data() + kAttributeHeader, kAttributeLen - kAttributeHeader,
                                            &again) == 0 &&
                sameSettings(bss, again) && bss.ExtAttribute == again.ExtAttribute,
            "an attribute survives writing and reading");
    inOrder = {};
    require(kvMAP1905_ApCfg_parse(attribute.data() + kAttributeHeader, &inOrder) == 0 && sameSettings(bss, inOrder),
            "both parsers read a written attribute alike");
}

void checkMessage(const Bytes &value) {
    ExactBlock exact(value);
    const ByteView view(exact.data(), exact.size());
    const std::optional<ReceivedWsc> received = parseWsc(view);
    if (!received) {
        return;
    }
    const ByteView extension = received->extension;
    require(extension.empty() ||
                (extension.data() >= view.data() && extension.data() + extension.size() <= view.data() + view.size()),
            "the extension lies in the message");
    checkExtension({extension.begin(), extension.end()});
    const WscSender sender = {{{2, 0, 0, 0, 0, 1}}, {{2, 0, 0, 0, 0, 2}}, std::string(40, 'm'), "ssid"};
    const Bytes written = encodeWsc(received->message, sender, {});
    const std::optional<ReceivedWsc> again = parseWsc(written);
    require(again && again->message.type == received->message.type && again->message.bands == received->message.bands &&
                again->message.enrolleeNonce == received->message.enrolleeNonce,
            "a message survives writing and reading");
}

// The plug-in's elements are the host's.
void checkElements(Input &in) {
    KvMdidInterfaceList mdids = {};
    mdids.InterfaceNumberOfEntries = in.u8() % (KV_MAX_MDID_INTERFACES + 2);
    in.fill(mdids.interfaces);
    ExactBlock buffer(Bytes(7 + 9 * KV_MAX_MDID_INTERFACES));
    uint32_t length = 0;
    BssElements elements;
    if (kvMAP1905_TlvMDID_insert(buffer.data(), &length, &mdids) == 0) {
        require(length <= buffer.size() && readBssElement({buffer.data(), length}, elements) &&
                    elements.mdids.size() == mdids.InterfaceNumberOfEntries,
                "the host reads the plug-in's MDIDs");
    }
    const uint32_t count = in.u8() + 0u;
    Bytes list(sizeof count + count * sizeof(KvBssConfig));
    std::memcpy(list.data(), &count, sizeof count);
    const Bytes entries = in.bytes(list.size() - sizeof count);
    std::copy(entries.begin(), entries.end(), list.begin() + sizeof count);
    ExactBlock configurations(list);
    ExactBlock room(Bytes(7 + 8 * count));
    if (kvMAP1905_TlvBss_Config_insert(room.data(), &length, configurations.data()) == 0) {
        require(length == room.size() && readBssElement({room.data(), length}, elements) &&
                    elements.configurations.size() == count,
                "the host reads the plug-in's configurations");
    }
}

void readElement(const Bytes &value) {
    ExactBlock exact(value);
    BssElements elements;
    const ByteView view(exact.data(), exact.size());
    const bool valid = readBssElement(view, elements);
    require(valid || isBssElement(view), "only an element can be malformed");
    require(elements.mdids.size() <= 255 && elements.configurations.size() <= 255, "elements are bounded");
}

}  // namespace

}  // namespace kvfuzz

int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    using namespace kvfuzz;
    Input in(data, size);
    const uint8_t choice = in.u8();
    DeviceWorld world;
    switch (choice % 4) {
        case 0:
            checkMessage(in.rest());
            break;
        case 1:
            checkExtension(in.rest());
            break;
        case 2:
            checkElements(in);
            break;
        default:
            readElement(in.rest());
            break;
    }
    world.check();
    return 0;
}
