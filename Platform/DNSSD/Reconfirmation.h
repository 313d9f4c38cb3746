// Asks whether a service instance is still there, and has the local stacks forget it when nobody answers.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/ServiceSession.h"
#include "Platform/DNSSD/Session.h"

namespace ferrox::dnssd {

/// The stacks keep a pointer record for 75 minutes and offer no way to doubt it (RFC 6762 section 10.4 would
/// have us do so). So we do it on the wire, for each place where the instance is known: query its SRV record
/// a few times; when no owner answers within two seconds, tell the stacks of this machine alone that its
/// records have ended. They drop them a second later, as after any goodbye.
/// Thread: discovery
class Reconfirmation {
 public:
  using Records = std::vector<std::pair<std::uint16_t, std::string>>;
  /// The cached records of the instance at one place, asked for when they are to be buried.
  using RecordSource = std::function<Records(const Place&)>;
  /// Called once at the end, in a turn of its own, unless this object is gone: whether any record was buried.
  using Done = std::function<void(bool buried)>;

  Reconfirmation(DiscoveryContext& context, ServiceIdentity identity, const std::vector<Place>& places,
                 RecordSource records, Done done);
  ~Reconfirmation();

  const ServiceIdentity& identity() const { return identity_; }

 private:
  class Asking;
  void finished(const Place& place, bool confirmed);
  bool bury(const Place& place);

  DiscoveryContext& context_;
  ServiceIdentity identity_;
  RecordSource records_;
  std::shared_ptr<Done> done_;
  std::vector<std::unique_ptr<Asking>> asking_;
  std::size_t open_ = 0;
  bool buriedAny_ = false;
};

/// True when `packet` is a response in which the owner of `instance` states its SRV record.
bool confirmsInstance(std::string_view packet, const DNSName& instance);
/// The response that ends the pointer record of an instance and the given records of its own.
std::optional<std::string> burialPacket(const ServiceIdentity& identity,
                                        const Reconfirmation::Records& records);
/// Nothing when type or domain do not form a DNS name, or the instance's name is no label.
std::optional<DNSName> instanceDNSName(const ServiceIdentity& identity);

}  // namespace ferrox::dnssd
