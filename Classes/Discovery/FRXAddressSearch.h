// Keeps looking for the peer at one address, where its announcements do not reach this network.
#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "Classes/Discovery/FRXPeerAddress.h"
#include "Platform/Base/Export.h"
#include "Platform/Base/FRXError.h"
#include "Platform/RunLoop/Clock.h"

namespace ferrox {

class FRXBrowser;
class FRXNetService;
class RunLoop;
class Timer;

/// Has the browser search the address until a peer was found there, and again when that peer was removed or
/// has not answered for a while. Failed searches are repeated after 1, 2, 4, 8 and then every 10 seconds.
/// Gives up, logged at WARN, when the address turns out to be this device. Make it with `std::make_shared`;
/// destroying it ends the search.
/// Thread: main
class FRX_EXPORT FRXAddressSearch : public std::enable_shared_from_this<FRXAddressSearch> {
 public:
  static constexpr std::chrono::seconds shortestInterval{1};
  static constexpr std::chrono::seconds longestInterval{10};
  /// How long a known peer may be unresponsive before its address is searched again.
  static constexpr std::chrono::seconds silenceLimit{10};

  /// Both are borrowed for the search's life.
  FRXAddressSearch(FRXBrowser& browser, RunLoop& mainLoop, FRXPeerAddress address);
  ~FRXAddressSearch();
  FRXAddressSearch(const FRXAddressSearch&) = delete;
  FRXAddressSearch& operator=(const FRXAddressSearch&) = delete;

  /// Searches at once. Does nothing while it is started already.
  void start();
  void stop();
  bool isStarted() const { return started_; }

  const FRXPeerAddress& address() const { return address_; }
  /// Record key of the peer found last.
  const std::optional<std::string>& foundServiceId() const { return foundServiceId_; }

 private:
  void evaluate();
  bool isPeerInOrder();
  void search();
  void searchEnded(const std::shared_ptr<FRXNetService>& service);
  void evaluateIn(Clock::Duration delay);

  FRXBrowser& browser_;
  RunLoop& loop_;
  const FRXPeerAddress address_;
  bool started_ = false;
  /// Tells the answer to a search of an earlier start from that of the present one.
  unsigned generation_ = 0;
  std::optional<std::string> foundServiceId_;
  Clock::Instant lastSign_{};
  std::chrono::seconds interval_ = shortestInterval;
  std::unique_ptr<Timer> timer_;
};

}  // namespace ferrox
