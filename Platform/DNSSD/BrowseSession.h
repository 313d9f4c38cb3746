// One running search for the instances of a service type.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Platform/DNSSD/SightingWatch.h"

namespace ferrox::dnssd {

/// What changed since the last report. An instance that went and came back within one batch is in neither.
struct BrowseChanges {
  std::vector<std::string> removed;
  std::vector<std::string> added;
};

/// Collects what arrives together into one report. Thread: discovery
class BrowseSession final : public Session {
 public:
  using Sink = std::function<void(BrowseChanges)>;
  /// From the first change to the report. Thirty peers answer one query within about 11 ms.
  static constexpr std::chrono::milliseconds batchTime{20};

  BrowseSession(DiscoveryContext& context, std::string type, std::string domain, Sink sink);

  void lookupsStarted() override { watch_.open(); }
  void lookupsStopped() override { watch_.suspend(); }
  void interfacesChanged() override { reportSoon(); }
  void refresh() override;
  void close() override;

  const std::string& type() const { return type_; }
  const std::string& domain() const { return domain_; }
  std::vector<Place> placesOf(const std::string& name) const;

 private:
  void reportSoon();
  void report();

  DiscoveryContext& context_;
  std::string type_;
  std::string domain_;
  Sink sink_;
  SightingWatch watch_;
  std::set<std::string> reported_;
  std::unique_ptr<Pending> batch_;
};

}  // namespace ferrox::dnssd
