/*
 * AP-autoconfiguration: an agent finds its controller, both exchange descriptions of their main BSSs, and the agent
 * adopts the controller's settings.
 *
 *   agent                                     controller
 *   Search, one per band (relayed)    ---->
 *                                     <----   Response: the agent has joined
 *   WSC M1 with the vendor extension  ---->   kept per device and band
 *   kept per device and band          <----   WSC M2 with the vendor extension
 *   settings requests of the plug-in  ---->   once per join
 *
 * Reduced against the standard: M1 and M2 carry the nonces, the band and the vendor extension only. There is no
 * Diffie-Hellman exchange, so nothing here is secret or proven, and no radio is configured by it. Other registrars
 * cannot read such an M1, so it waits for a vendor message of the controller.
 */
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <random>
#include <vector>

#include "daemon/node.h"
#include "ieee1905/wifi_band.h"
#include "ieee1905/wsc.h"

namespace kv1905d {

// Functions that Onboarding needs from its owner. Those marked with * may be empty, as they are without the plug-in.
struct OnboardingActions {
    std::function<bool()> isController;
    // * Returns the vendor extension attribute for the main BSS of that band; an empty one is left out.
    std::function<Bytes(Band)> extension;
    // * Reads a received one from its vendor ID on. Returns nullopt if it is malformed.
    std::function<std::optional<KvBssInfo>(ByteView)> readExtension;
    // * Requests the controller's setting (0 password, 1 country). Returns 0 if the request was sent.
    std::function<int(const MacAddress &, int)> requestSetting;
};

class Onboarding {
  public:
    // `node` must outlive it; its first radio of each band takes part.
    Onboarding(Node &node, OnboardingActions actions, TimePoint now);

    // Handles a Search, Response, WSC or Renew message. False when it is malformed; no response is sent then.
    bool receive(const MacAddress &source, const Message &message, TimePoint now);

    // Runs what is due. Call it about once a second.
    void run(TimePoint now);

    // Returns the main BSSs of each device of the topology.
    const ApConfigurations &apConfigurations() const { return apConfigurations_; }

    // Returns the controller's AL MAC, which may be this device's; nullopt while unknown.
    std::optional<MacAddress> controller() const;

  private:
    enum class Step { Search, Offer, Done };  // Offer: M1 was sent, M2 is awaited
    // The agent's side of one band.
    struct Exchange {
        Band band;
        Step step = Step::Search;
        TimePoint due{};
        Duration pause{};       // until the next Search
        uint16_t searchId = 0;  // message identifier that the Response must carry
        unsigned offers = 0;    // M1 sent
        WscNonce nonce{};
    };

    bool handleSearch(const MacAddress &source, const Message &message, TimePoint now);
    bool handleResponse(const MacAddress &source, const Message &message, TimePoint now);
    bool handleWsc(const MacAddress &source, const Message &message, TimePoint now);
    void answerM1(const MacAddress &source, const WscMessage &m1, uint16_t id, TimePoint now);
    Exchange *offerOf(const MacAddress &source, const WscMessage &m2);

    bool handleRenew(const MacAddress &source, const Message &message, TimePoint now);
    bool controllerSpeaksProtocol(TimePoint now);
    void searchAgain(TimePoint now);
    void reset(TimePoint now);
    bool controllerIsGone(TimePoint now);
    void join(const MacAddress &source, TimePoint now);
    void advance(Exchange &exchange, TimePoint now);
    void search(Exchange &exchange, TimePoint now);
    void offer(Exchange &exchange, TimePoint now);
    void requestSettings(TimePoint now);
    void sendWsc(const MacAddress &to, const WscMessage &message, uint16_t id, TimePoint now);
    WscNonce newNonce();

    Node &node_;
    OnboardingActions actions_;
    std::mt19937 random_;  // for nonces, which only pair responses with requests and protect nothing
    std::vector<Exchange> exchanges_;
    ApConfigurations apConfigurations_;
    std::optional<MacAddress> controller_;
    TimePoint joined_{};
    bool controllerSeen_ = false;   // in the topology since we joined
    bool silenceReported_ = false;  // of a controller without the protocol
    int nextSetting_ = 0;           // to be requested; kSettings when all were
    TimePoint settingDue_{};
};

}  // namespace kv1905d
