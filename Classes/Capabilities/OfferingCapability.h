// What the capabilities have in common: a table of offers, their JSON and their broadcasts.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <utility>

#include "Classes/Capabilities/CapabilityBroadcast.h"
#include "Classes/Capabilities/FRXCapability.h"
#include "Classes/Capabilities/OfferTable.h"
#include "Platform/Base/Export.h"

namespace ferrox {

/// `Offer` as `OfferTable` wants it. May be destroyed on any thread: network threads hold capabilities too.
template <typename Offer>
class FRX_EXPORT OfferingCapability : public FRXCapability {
 public:
  using Offers = typename OfferTable<Offer>::Offers;

  OfferingCapability(const OfferingCapability&) = delete;
  OfferingCapability& operator=(const OfferingCapability&) = delete;
  ~OfferingCapability() override { broadcast_->end(); }

  FRXValue jsonSerializableObject() const override { return offers_->jsonArray(); }
  /// To every peer that is connected at this moment; nothing is kept for those that come later. Thread: any
  void broadcastCapability() final { broadcast_->post(); }
  std::string name() const override { return name_; }

  /// A peer was connected to: one broadcast follows 5.0 s after the last such call. Happens by itself for
  /// every "FRXConnectedNotification" on the local dispatcher.
  void broadcastCapabilitiesUponConnection(const LocalNotification& /*notification*/) {
    broadcast_->postAfterConnection();
  }
  /// The one-shot timer of the delayed broadcast: the pending one or the last that fired; nothing before the
  /// first connection.
  std::shared_ptr<const Timer> broadcastThrottleTimer() const { return broadcast_->throttleTimer(); }

 protected:
  /// `userInfoKey` is the member that holds the offers in the notification's user info.
  OfferingCapability(std::string_view name, std::string_view notificationName, std::string_view userInfoKey,
                     CapabilityParts parts)
      : name_(name),
        broadcast_(CapabilityBroadcast::make({std::string(notificationName), std::string(userInfoKey),
                                              [offers = offers_] { return offers->jsonArray(); }},
                                             std::move(parts))) {}

  bool add(const std::shared_ptr<Offer>& offer, bool broadcastChange) {
    if (!offers_->add(offer)) return false;
    if (broadcastChange) broadcastCapability();
    return true;
  }
  bool remove(std::string_view key, bool broadcastChange) {
    if (!offers_->remove(key)) return false;
    if (broadcastChange) broadcastCapability();
    return true;
  }
  const OfferTable<Offer>& offers() const { return *offers_; }

 private:
  const std::string name_;
  const std::shared_ptr<OfferTable<Offer>> offers_ = std::make_shared<OfferTable<Offer>>();
  const std::shared_ptr<CapabilityBroadcast> broadcast_;
};

}  // namespace ferrox
