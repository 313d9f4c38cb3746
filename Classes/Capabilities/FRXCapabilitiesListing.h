// Asks every known peer what it offers.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Classes/Capabilities/FRXCapability.h"
#include "Classes/Capabilities/FRXClientAccessor.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/Base/FRXValue.h"

namespace ferrox {

class BackgroundQueue;
class FRXNetService;
class FRXWebsocketMessage;
class RunLoop;

/// What a listing asks of its surroundings. `mainLoop` and `background` are borrowed.
struct FRX_EXPORT FRXCapabilitiesListingParts {
  using ResponseCallback = std::function<void(const std::string& json)>;
  using ErrorCallback = std::function<void(const std::optional<FRXError>& error)>;

  RunLoop* mainLoop = nullptr;
  BackgroundQueue* background = nullptr;
  /// Whom to ask. Called on the thread that begins a listing.
  std::function<std::vector<std::shared_ptr<FRXNetService>>()> currentServices;
  /// Sends a request to the peer of that service id. It may call one of the two, on any thread, or neither.
  /// Called on background threads.
  std::function<void(const FRXWebsocketMessage& message, const std::string& toService,
                     ResponseCallback onResponse, ErrorCallback onError)>
      broadcastMessage;
  /// The reply to the message of that id is no longer awaited; may be left out. Thread: main
  std::function<void(const std::string& messageId)> forgetReply;

  /// The shared browser's peers, over the shared connection manager.
  static FRXCapabilitiesListingParts usual();
};

/// Sends each known peer the capabilities query and makes URLs of the answers. Calls are independent of each
/// other and of the listing: one that is under way ends as it would have when the listing is destroyed.
/// Thread: any
class FRX_EXPORT FRXCapabilitiesListing {
 public:
  using Accessors = std::vector<FRXClientAccessor>;
  /// By the peer's service id ("HOST:port"), for every peer that answered with capabilities.
  using AccessorsByService = std::map<std::string, Accessors, std::less<>>;
  /// By `FRXCapabilityNameStreaming` and `FRXCapabilityNameProjectSharing`; both entries are there as soon as
  /// one peer has answered with capabilities.
  using Result = std::map<std::string, AccessorsByService, std::less<>>;
  using Completion = std::function<void(const Result& result)>;
  using FailureCallback = std::function<void(const FRXError& error)>;

  static constexpr std::chrono::seconds defaultResponseTimeout{10};

  /// Over the shared browser and connection manager.
  FRXCapabilitiesListing();
  explicit FRXCapabilitiesListing(FRXCapabilitiesListingParts parts);

  /// How long the peers have to answer, from the call on; those that have not by then count as failed. 0 and
  /// less waits for ever, also for peers that are not connected and so never hear the question. Holds for
  /// calls made afterwards.
  std::chrono::nanoseconds responseTimeout() const { return std::chrono::nanoseconds(responseTimeout_); }
  void setResponseTimeout(std::chrono::nanoseconds timeout) { responseTimeout_ = timeout.count(); }

  /// Calls `completion` once, on the main thread and not inside this call; when no peers are known, at once
  /// and on the calling thread, with an empty result. A peer that fails is logged and left out. `onFailure`
  /// is never called.
  void listCapabilities(Completion completion, FailureCallback onFailure = nullptr) const;

  /// The streams of a capabilities object, in its order, as URLs at that host. Elements without name, path
  /// and port and those that make no valid URL are left out; the latter are logged at WARN, once in all.
  static Accessors getStreamsFromData(const FRXValue& data, const std::string& withAddress);
  /// The projects likewise. Name and id must be texts that are not empty; an id that cannot stand in a URL as
  /// it is, is percent-encoded, as the peer decodes it. One without a port is listed with
  /// "(null)" in its place.
  static Accessors getProjectsFromData(const FRXValue& data, const std::string& withAddress);
  /// Nothing, with `error` filled and logged at WARN, for what is not JSON.
  [[nodiscard]] static std::optional<FRXValue> parseJSON(std::string_view data, FRXError* error = nullptr);

 private:
  const FRXCapabilitiesListingParts parts_;
  std::atomic<std::chrono::nanoseconds::rep> responseTimeout_{
      std::chrono::nanoseconds(defaultResponseTimeout).count()};
};

}  // namespace ferrox
