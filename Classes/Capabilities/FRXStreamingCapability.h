// The live video streams that this instance offers.
#pragma once

#include <memory>
#include <string_view>

#include "Classes/Capabilities/FRXStream.h"
#include "Classes/Capabilities/OfferingCapability.h"
#include "Platform/Base/Export.h"

namespace ferrox {

/// Outgoing; its user info holds "streams", the capability's JSON, and "frxId", this device's id.
inline constexpr std::string_view FRXStreamingCapabilityNotification = "FRXStreamingCapabilityNotif";

/// Streams by key, which is the percent-decoded served path ("/streams/angle 1").
/// Thread: main; reading: any
class FRX_EXPORT FRXStreamingCapability : public OfferingCapability<FRXStream> {
 public:
  using Streams = Offers;

  explicit FRXStreamingCapability(CapabilityParts parts = {});

  /// False, changing nothing, when a stream with that served path is there already, and, logged at WARN, when
  /// name, content type or served path is missing or not UTF-8. A port of 0 becomes the server's.
  bool addStream(const std::shared_ptr<FRXStream>& stream, bool broadcastChange = false);
  /// `servedPath` is the key, not percent-encoded. False when there is no such stream.
  bool removeStreamWithServedPath(std::string_view servedPath, bool broadcastChange = false);

  /// A snapshot. Thread: any
  Streams availableStreams() const { return offers().snapshot(); }
  /// The stream of that key, or an empty pointer. Thread: any
  std::shared_ptr<FRXStream> streamForServedPath(std::string_view key) const { return offers().find(key); }
};

}  // namespace ferrox
