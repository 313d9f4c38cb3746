// The live video streams that this instance offers.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "Classes/Capabilities/FRXCapability.h"
#include "Classes/Capabilities/FRXStream.h"
#include "Classes/Capabilities/OfferTable.h"

namespace ferrox {

inline constexpr std::string_view FRXStreamingCapabilityNotification = "FRXStreamingCapabilityNotif";

/// Streams by key, which is the percent-decoded served path ("/streams/angle 1").
/// Thread: main; reading: any
class FRXStreamingCapability : public FRXCapability {
 public:
  using Streams = OfferTable<FRXStream>::Offers;

  /// False, changing nothing, when a stream with that served path is there already, or when name, content
  /// type or served path is missing. A port of 0 becomes the server's.
  bool addStream(const std::shared_ptr<FRXStream>& stream, bool broadcastChange = false);
  /// `servedPath` is the key, not percent-encoded. False when there is no such stream.
  bool removeStreamWithServedPath(std::string_view servedPath, bool broadcastChange = false);

  /// A snapshot. Thread: any
  Streams availableStreams() const { return streams_.snapshot(); }
  /// The stream of that key, or an empty pointer. Thread: any
  std::shared_ptr<FRXStream> streamForServedPath(std::string_view key) const { return streams_.find(key); }

  FRXValue jsonSerializableObject() const override { return streams_.jsonArray(); }
  void broadcastCapability() override;
  std::string name() const override { return std::string(FRXCapabilityNameStreaming); }

 private:
  OfferTable<FRXStream> streams_;
};

}  // namespace ferrox
