#include "daemon/onboarding.h"

#include <algorithm>
#include <utility>

#include "daemon/jitter.h"
#include "support/log.h"

namespace kv1905d {
namespace {

constexpr uint8_t kRegistrar = 0x00;
constexpr Duration kStartPause{1000};  // the topology is known by then, and a message's sender must be in it
constexpr Duration kFirstPause{2000};  // between Searches; doubles up to the longest one
constexpr Duration kLongestPause{60000};
constexpr Duration kOfferPause{2000};
constexpr Duration kLongestSilence{10000};  // of a controller that we joined, before that is reported
constexpr unsigned kMaxOffers = 3;          // M1 without M2: other vendors' controllers require keys, which we lack
constexpr Duration kRetryPause{2000};       // after a settings request that could not be sent
constexpr Duration kLongestUnseen{30000};   // between a controller's Response and its place in the topology
constexpr int kSettings = 2;

Tlv byteTlv(TlvType type, uint8_t value) {
    return {type, {value}};
}

std::optional<uint8_t> byteOf(const Message &message, TlvType type) {
    const Tlv *tlv = message.find(type);
    if (tlv == nullptr || tlv->value.size() != 1) return std::nullopt;
    return tlv->value[0];
}

}  // namespace

Onboarding::Onboarding(Node &node, OnboardingActions actions, TimePoint now)
    : node_(node), actions_(std::move(actions)), random_(node.config().seed) {
    const std::vector<LocalInterface> &radios = node.config().radios;
    for (const Band band : {kBand24, kBand5}) {
        const auto isOnBand = [&](const LocalInterface &each) { return bandOfMediaType(each.mediaType) == band; };
        if (std::any_of(radios.begin(), radios.end(), isOnBand)) exchanges_.push_back({band});
    }
    reset(now);
}

void Onboarding::reset(TimePoint now) {
    controller_.reset();
    searchAgain(now);
}

void Onboarding::searchAgain(TimePoint now) {
    for (Exchange &exchange : exchanges_) {
        exchange.step = Step::Search;
        exchange.due = now + jittered(random_, kStartPause);
        exchange.pause = kFirstPause;
    }
}

std::optional<MacAddress> Onboarding::controller() const {
    return actions_.isController() ? node_.config().alMac : controller_;
}

// ---- Receiving

bool Onboarding::receive(const MacAddress &source, const Message &message, TimePoint now) {
    if (message.type == kAutoconfigurationSearch) return handleSearch(source, message, now);
    if (message.type == kAutoconfigurationResponse) return handleResponse(source, message, now);
    if (message.type == kAutoconfigurationRenew) return handleRenew(source, message, now);
    return handleWsc(source, message, now);
}

bool Onboarding::handleSearch(const MacAddress &source, const Message &message, TimePoint now) {
    const std::optional<uint8_t> role = byteOf(message, kTlvSearchedRole);
    const std::optional<uint8_t> band = byteOf(message, kTlvAutoconfigFreqBand);
    if (!role || !band || message.find(kTlvAlMac) == nullptr) return false;
    if (!actions_.isController() || *role != kRegistrar || bandOf(&BandRow::frequencyBand, *band) == kBandOther)
        return true;
    Message response{kAutoconfigurationResponse,
                     message.id,
                     false,
                     {byteTlv(kTlvSupportedRole, kRegistrar), byteTlv(kTlvSupportedFreqBand, *band)}};
    node_.sendMessage(Reach::Unicast, source, response, now);
    return true;
}

bool Onboarding::handleResponse(const MacAddress &source, const Message &message, TimePoint now) {
    const std::optional<uint8_t> role = byteOf(message, kTlvSupportedRole);
    const std::optional<uint8_t> band = byteOf(message, kTlvSupportedFreqBand);
    if (!role || !band) return false;
    const bool other = controller_ && *controller_ != source;  // the first one that responded is kept
    if (actions_.isController() || *role != kRegistrar || other) return true;
    for (Exchange &exchange : exchanges_) {
        if (exchange.step != Step::Search || exchange.searchId != message.id) continue;
        if (kBands[exchange.band].frequencyBand != *band) continue;
        if (!controller_) join(source, now);
        exchange.step = Step::Offer;
        exchange.offers = 0;
        exchange.nonce = newNonce();
        offer(exchange, now);
    }
    return true;
}

bool Onboarding::handleRenew(const MacAddress &source, const Message &message, TimePoint now) {
    const std::optional<uint8_t> role = byteOf(message, kTlvSupportedRole);
    const std::optional<uint8_t> band = byteOf(message, kTlvSupportedFreqBand);
    if (!role || !band || message.find(kTlvAlMac) == nullptr) return false;
    if (!actions_.isController() && *role == kRegistrar && source == controller_) searchAgain(now);
    return true;
}

bool Onboarding::handleWsc(const MacAddress &source, const Message &message, TimePoint now) {
    const Tlv *tlv = message.find(kTlvWsc);
    const std::optional<ReceivedWsc> wsc = tlv ? parseWsc(tlv->value) : std::nullopt;
    if (!wsc) return false;
    std::optional<KvBssInfo> bss;
    if (!wsc->extension.empty() && actions_.readExtension) {
        bss = actions_.readExtension(wsc->extension);
        if (!bss) return false;
    }
    const Band band = bandOf(&BandRow::rfBands, wsc->message.bands);
    if (band == kBandOther || node_.topology().find(source) == nullptr)
        return true;  // a device that is new to us requests it again
    const bool isOffer = actions_.isController() && wsc->message.type == kWscM1;
    Exchange *answered = isOffer ? nullptr : offerOf(source, wsc->message);
    if (!isOffer && answered == nullptr) return true;
    if (bss) {
        apConfigurations_[source][band] = *bss;
    } else {
        apConfigurations_[source].erase(band);
    }
    if (isOffer) {
        answerM1(source, wsc->message, message.id, now);
    } else {
        answered->step = Step::Done;
    }
    return true;
}

void Onboarding::answerM1(const MacAddress &source, const WscMessage &m1, uint16_t id, TimePoint now) {
    WscMessage m2 = m1;
    m2.type = kWscM2;
    m2.registrarNonce = newNonce();
    sendWsc(source, m2, id, now);
}

// Returns the exchange that this M2 answers, or null.
Onboarding::Exchange *Onboarding::offerOf(const MacAddress &source, const WscMessage &m2) {
    if (actions_.isController() || m2.type != kWscM2 || source != controller_) return nullptr;
    const auto found = std::find_if(exchanges_.begin(), exchanges_.end(), [&](const Exchange &exchange) {
        return exchange.step == Step::Offer && exchange.nonce == m2.enrolleeNonce &&
               kBands[exchange.band].rfBands == m2.bands;
    });
    return found == exchanges_.end() ? nullptr : &*found;
}

// ---- Tasks of an agent

void Onboarding::run(TimePoint now) {
    std::erase_if(apConfigurations_,
                  [this](const auto &entry) { return node_.topology().find(entry.first) == nullptr; });
    if (actions_.isController()) return;
    if (controllerIsGone(now)) reset(now);
    for (Exchange &exchange : exchanges_) {
        if (exchange.due <= now) advance(exchange, now);
    }
    requestSettings(now);
}

bool Onboarding::controllerIsGone(TimePoint now) {
    if (!controller_) return false;
    if (node_.topology().find(*controller_) != nullptr) {
        controllerSeen_ = true;
        return false;
    }
    return controllerSeen_ || now - joined_ >= kLongestUnseen;
}

void Onboarding::join(const MacAddress &source, TimePoint now) {
    KV_HOST_LOG(KV_LOG_NOTICE, "controller %s answered", source.text().c_str());
    controller_ = source;
    controllerSeen_ = false;
    silenceReported_ = false;
    joined_ = now;
    nextSetting_ = 0;
    settingDue_ = now;
}

void Onboarding::advance(Exchange &exchange, TimePoint now) {
    if (exchange.step == Step::Search) return search(exchange, now);
    if (exchange.step == Step::Offer && exchange.offers < kMaxOffers) return offer(exchange, now);
    exchange.step = Step::Done;
}

void Onboarding::search(Exchange &exchange, TimePoint now) {
    exchange.due = now + jittered(random_, exchange.pause);
    exchange.pause = std::min(exchange.pause * 2, kLongestPause);
    Message message{kAutoconfigurationSearch,
                    0,
                    false,
                    {macTlv(kTlvAlMac, node_.config().alMac), byteTlv(kTlvSearchedRole, kRegistrar),
                     byteTlv(kTlvAutoconfigFreqBand, kBands[exchange.band].frequencyBand)}};
    node_.sendMessage(Reach::Network, kMulticastMac, message, now);
    exchange.searchId = message.id;
}

void Onboarding::offer(Exchange &exchange, TimePoint now) {
    exchange.due = now + kOfferPause;
    if (!controllerSpeaksProtocol(now)) return;
    ++exchange.offers;
    sendWsc(*controller_, {kWscM1, kBands[exchange.band].rfBands, exchange.nonce, {}}, 0, now);
}

bool Onboarding::controllerSpeaksProtocol(TimePoint now) {
    const Device *device = node_.topology().find(*controller_);
    if (device != nullptr && device->sentVendorMessage) return true;
    if (now - joined_ >= kLongestSilence && !std::exchange(silenceReported_, true)) {
        KV_HOST_LOG(KV_LOG_WARNING, "onboarding with controller %s is not supported: it sent no vendor message",
                    controller_->text().c_str());
    }
    return false;
}

void Onboarding::requestSettings(TimePoint now) {
    const auto offers = [](const Exchange &exchange) { return exchange.step == Step::Offer; };
    if (!controller_ || !actions_.requestSetting || std::any_of(exchanges_.begin(), exchanges_.end(), offers)) return;
    if (!controllerSpeaksProtocol(now)) return;  // a renewal also ends its offers
    for (; nextSetting_ < kSettings && settingDue_ <= now; ++nextSetting_) {
        if (actions_.requestSetting(*controller_, nextSetting_) == 0) continue;
        settingDue_ = now + kRetryPause;
        return;
    }
}

// ---- Sending

void Onboarding::sendWsc(const MacAddress &to, const WscMessage &message, uint16_t id, TimePoint now) {
    const Band band = bandOf(&BandRow::rfBands, message.bands);
    const Bytes extension = actions_.extension ? actions_.extension(band) : Bytes();
    Message wsc{kAutoconfigurationWsc, id, false, {{kTlvWsc, encodeWsc(message, extension)}}};
    node_.sendMessage(Reach::Unicast, to, wsc, now);
}

WscNonce Onboarding::newNonce() {
    WscNonce nonce;
    std::generate(nonce.begin(), nonce.end(), [this] { return static_cast<uint8_t>(random_()); });
    return nonce;
}

}  // namespace kv1905d
