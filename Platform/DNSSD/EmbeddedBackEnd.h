// An mDNS stack inside this process (avahi-core): the choice where no system daemon runs.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Platform/DNSSD/AvahiPollAdapter.h"
#include "Platform/DNSSD/BackEnd.h"
#include "Platform/DNSSD/DiscoveryThread.h"

struct AvahiServer;

namespace ferrox::dnssd {

/// Opens the permitted interfaces and follows them as they come and go. The set of names is fixed when the
/// stack is made, so a permitted interface that was never seen before has it made anew.
/// Thread: discovery
class EmbeddedBackEnd final : public BackEnd {
 public:
  EmbeddedBackEnd(DiscoveryThread& thread, std::optional<std::string> hostName);
  ~EmbeddedBackEnd() override;

  void start(BackEndListener& listener, const InterfaceSelection& interfaces) override;
  void stop() override;
  void interfacesChanged(const InterfaceSelection& interfaces) override;
  std::unique_ptr<Lookup> browse(const std::string& type, const std::string& domain,
                                 LookupHandler handler) override;
  std::unique_ptr<Lookup> watchRecord(const std::string& name, std::uint16_t recordType,
                                      LookupHandler handler) override;
  bool coversInterfaces(const ServiceGroup&) const override { return true; }
  std::unique_ptr<ServiceGroup> publish(const ServiceRecords& records, GroupHandler handler,
                                        PublishError& error) override;

 private:
  class Reports;
  void open();
  void close();
  void retryLater();
  void serverStateChanged(int state);
  void setPublishing(bool possible);
  void cureHostNameCollision();

  DiscoveryThread& thread_;
  AvahiPollAdapter adapter_;
  std::optional<std::string> hostName_;
  BackEndListener* listener_ = nullptr;
  std::vector<std::string> names_;
  AvahiServer* server_ = nullptr;
  bool publishing_ = false;
  /// Which server a report on its way belongs to; renewed with the server.
  std::shared_ptr<Reports> reports_;
  std::unique_ptr<Pending> retry_;
  int failures_ = 0;
};

}  // namespace ferrox::dnssd
