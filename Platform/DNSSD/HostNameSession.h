// Follows the addresses of one host name while somebody keeps asking for it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string>
#include <vector>

#include "Platform/DNSSD/SightingWatch.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::dnssd {

/// Answers at once from what it already follows; a new name is answered a moment after its first address,
/// so that the other family has its chance. Thread: discovery
class HostNameSession final : public Session {
 public:
  using Completion = std::function<void(std::vector<SocketAddress>)>;
  /// The interfaces that should come first, at the moment of an answer.
  using Preference = std::function<std::vector<int>()>;

  /// `name` is normalized; see HostNameText.h.
  HostNameSession(DiscoveryContext& context, std::string name, Preference preference);

  void ask(std::chrono::milliseconds timeout, Completion completion);

  void lookupsStarted() override;
  void lookupsStopped() override;
  void interfacesChanged() override { addressesChanged(); }
  void refresh() override;
  /// Whoever still waits is answered with nothing.
  void close() override;

  const std::string& name() const { return name_; }
  std::chrono::steady_clock::time_point lastAsked() const { return lastAsked_; }
  bool hasWaiting() const { return !waiting_.empty(); }

 private:
  struct Waiting {
    Completion completion;
    std::unique_ptr<Pending> deadline;
  };

  void addressesChanged();
  void answerAll();
  void answer(std::list<Waiting>::iterator waiting);
  std::vector<SocketAddress> addresses() const;

  DiscoveryContext& context_;
  std::string name_;
  Preference preference_;
  SightingWatch ipv4_;
  SightingWatch ipv6_;
  std::list<Waiting> waiting_;
  std::unique_ptr<Pending> grace_;
  std::chrono::steady_clock::time_point lastAsked_;
  std::chrono::steady_clock::time_point lastQueried_;
};

/// Address record data heard at `place`; nothing for addresses that no peer may announce there: wrong size,
/// unspecified, multicast, or loopback heard from a network.
std::vector<SocketAddress> addressesFromSightings(const std::vector<Sighting>& sightings,
                                                  const InterfaceSelection& interfaces);

}  // namespace ferrox::dnssd
