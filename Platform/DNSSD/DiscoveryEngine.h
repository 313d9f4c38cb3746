// Everything that lives on the discovery thread: the back end, the sessions on it, and the interfaces.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "Platform/DNSSD/BackEnd.h"
#include "Platform/DNSSD/DNSSD.h"
#include "Platform/DNSSD/DiscoveryThread.h"
#include "Platform/DNSSD/HostNameSession.h"
#include "Platform/DNSSD/InterfacePolicy.h"
#include "Platform/DNSSD/InterfaceWatch.h"
#include "Platform/DNSSD/Session.h"

namespace ferrox::dnssd {

class BrowseSession;
class Reconfirmation;
class Requery;
class ServiceSession;
struct ServiceIdentity;

/// Made and destroyed by whoever owns the thread; every operation but the constructor belongs on it.
/// Thread: discovery
class DiscoveryEngine final : private BackEndListener {
 public:
  DiscoveryEngine(DiscoveryThread& thread, const DNSSDConfiguration& configuration,
                  std::unique_ptr<BackEnd> backEnd);
  ~DiscoveryEngine() override;

  void start();
  /// Withdraws everything, answers whoever still waits, and ends the stack.
  void stop();

  DiscoveryContext& context() { return context_; }
  void add(const std::shared_ptr<Session>& session);
  /// Closes it.
  void remove(const std::shared_ptr<Session>& session);

  void resolveHostName(const std::string& name, std::chrono::milliseconds timeout,
                       HostNameSession::Completion completion);
  void refresh();
  /// Verifies what the browsers know of an instance, on one interface or (0) on all.
  void reconfirm(const ServiceIdentity& identity, int interfaceIndex);

 private:
  void backEndDidStart() override;
  void backEndWillStop() override;
  void publishingDidStart() override;
  void publishingWillStop() override;

  void interfacesChanged();
  void forEachSession(const std::function<void(Session&)>& visit);
  std::vector<Place> placesOf(const ServiceIdentity& identity) const;
  std::vector<std::pair<std::uint16_t, std::string>> recordsAt(const ServiceIdentity& identity,
                                                               const Place& place) const;
  void reconfirmed(const ServiceIdentity& identity, bool buried);
  std::vector<int> interfacesOfHost(const std::string& name) const;
  void dropIdleHostNames();

  std::unique_ptr<BackEnd> backEnd_;
  DiscoveryContext context_;
  InterfacePolicy policy_;
  InterfaceWatch interfaceWatch_;
  std::vector<std::shared_ptr<Session>> sessions_;
  std::vector<std::shared_ptr<HostNameSession>> hostNames_;
  std::vector<std::unique_ptr<Reconfirmation>> reconfirmations_;
  std::vector<std::unique_ptr<Requery>> requeries_;
  std::unique_ptr<Pending> idleSweep_;
  bool running_ = false;
};

}  // namespace ferrox::dnssd
