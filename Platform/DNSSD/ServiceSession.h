// Follows the SRV and TXT records of one service instance.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DNSSD/SightingWatch.h"

namespace ferrox::dnssd {

struct ServiceIdentity {
  std::string name;
  std::string type;
  std::string domain;
  bool operator==(const ServiceIdentity&) const = default;
};

/// Thread: discovery
class ServiceSession final : public Session {
 public:
  struct Sinks {
    /// Host name with a trailing dot.
    std::function<void(const std::string& hostName, std::uint16_t port)> located;
    std::function<void(const std::string& rdata)> txtChanged;
  };

  ServiceSession(DiscoveryContext& context, ServiceIdentity identity, Sinks sinks);

  /// Follows the SRV record and reports its present content again, if any.
  void locate();
  void stopLocating();
  /// Follows the TXT record and reports its present content again, if any.
  void watchTXT();
  void stopWatchingTXT();

  void lookupsStarted() override;
  void lookupsStopped() override;
  void interfacesChanged() override;
  void close() override;

  const ServiceIdentity& identity() const { return identity_; }
  /// Type and data of the records heard at `place`.
  std::vector<std::pair<std::uint16_t, std::string>> recordsAt(const Place& place) const;
  /// The interfaces on which the instance said that it lives on `hostName` (lower case).
  std::vector<int> interfacesOfHost(const std::string& hostName) const;

 private:
  void reportLocation();
  void reportTXT();

  DiscoveryContext& context_;
  ServiceIdentity identity_;
  Sinks sinks_;
  SightingWatch location_;
  SightingWatch txt_;
  bool locating_ = false;
  bool watchingTXT_ = false;
  std::optional<std::string> reportedLocation_;
  std::optional<std::string> reportedTXT_;
};

/// The target of SRV data as text with a trailing dot; nothing unless it is a host name that may stand in a
/// URL: letters, digits, "-", "_" and UTF-8, at least one label, and a port.
std::optional<std::pair<std::string, std::uint16_t>> locationFromSRV(const std::string& rdata);

}  // namespace ferrox::dnssd
