// The system's mDNS daemon, reached over D-Bus (avahi-client).
#pragma once

#include <memory>
#include <string>

#include "Platform/DNSSD/AvahiPollAdapter.h"
#include "Platform/DNSSD/BackEnd.h"
#include "Platform/DNSSD/DiscoveryThread.h"
#include "Platform/DNSSD/Reporter.h"

struct AvahiClient;

namespace ferrox::dnssd {

/// The daemon serves the interfaces of its own choice; its reports are filtered by ours further up, and where
/// ours leaves one out, services are published on each of ours by itself. A daemon that goes away is waited
/// for. Calls to it block, at worst for the 25 s that D-Bus allows. Thread: discovery
class DaemonBackEnd final : public BackEnd {
 public:
  explicit DaemonBackEnd(DiscoveryThread& thread);
  ~DaemonBackEnd() override;

  /// Connects now if the daemon runs. Returns whether it does.
  bool connectIfRunning();

  void start(BackEndListener& listener, const InterfaceSelection& interfaces) override;
  void stop() override;
  void interfacesChanged(const InterfaceSelection& interfaces) override { interfaces_ = interfaces; }
  std::unique_ptr<Lookup> browse(const std::string& type, const std::string& domain,
                                 LookupHandler handler) override;
  std::unique_ptr<Lookup> watchRecord(const std::string& name, std::uint16_t recordType,
                                      LookupHandler handler) override;
  bool coversInterfaces(const ServiceGroup& group) const override;
  std::unique_ptr<ServiceGroup> publish(const ServiceRecords& records, GroupHandler handler,
                                        PublishError& error) override;

 private:
  bool connect(bool waitForDaemon);
  void disconnect();
  void reconnectLater();
  void clientStateChanged(int state);
  void setLookups(bool possible);
  void setPublishing(bool possible);
  std::vector<int> publishedInterfaces() const;

  DiscoveryThread& thread_;
  AvahiPollAdapter adapter_;
  BackEndListener* listener_ = nullptr;
  InterfaceSelection interfaces_;
  /// Renewed with the client, so that reports of an earlier one are dropped.
  std::unique_ptr<Reporter<int>> states_;
  AvahiClient* client_ = nullptr;
  std::unique_ptr<Pending> retry_;
  bool lookups_ = false;
  bool publishing_ = false;
  bool lossReported_ = false;
};

}  // namespace ferrox::dnssd
