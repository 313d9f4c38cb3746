// One call of a listing: the questions to all peers, and what came back until now.
#pragma once

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Classes/Capabilities/FRXCapabilitiesListing.h"
#include "Platform/RunLoop/Clock.h"

namespace ferrox {

class Timer;

/// Keeps itself alive until its completion has run.
/// Thread: main, once it has begun
class CapabilitiesInquiry : public std::enable_shared_from_this<CapabilitiesInquiry> {
 public:
  /// Asks the services, of which there is at least one. Thread: any
  static void begin(FRXCapabilitiesListingParts parts,
                    const std::vector<std::shared_ptr<FRXNetService>>& services,
                    Clock::Duration responseTimeout, FRXCapabilitiesListing::Completion completion);
  ~CapabilitiesInquiry();
  /// Calls the completion, if any; what it throws is logged. Thread: any
  static void complete(const FRXCapabilitiesListing::Completion& completion,
                       const FRXCapabilitiesListing::Result& result);

 private:
  /// Somebody who is asked. `hasLeft` once there is an answer, or there will be none.
  struct Peer {
    std::shared_ptr<FRXNetService> service;
    std::string messageId;
    bool hasLeft = false;
  };

  CapabilitiesInquiry(FRXCapabilitiesListingParts parts, FRXCapabilitiesListing::Completion completion);
  void limitTime(Clock::Duration responseTimeout);
  void ask(std::size_t index);
  void answered(std::size_t index, const std::string& json);
  void failed(std::size_t index, const std::optional<FRXError>& error);
  void timedOut();
  void leave(Peer& peer);
  void end();
  void take(const FRXNetService& service, const FRXValue& capabilities);

  const FRXCapabilitiesListingParts parts_;
  FRXCapabilitiesListing::Completion completion_;
  /// Service and message id never change.
  std::vector<Peer> peers_;
  std::size_t awaited_ = 0;
  FRXCapabilitiesListing::Result result_;
  std::unique_ptr<Timer> timer_;
  /// Thread: any
  std::atomic<bool> hasEnded_{false};
};

}  // namespace ferrox
