// Notices when network interfaces, their addresses or routes change.
#pragma once

#include <functional>
#include <memory>

#include "Platform/DNSSD/DiscoveryThread.h"

namespace ferrox::dnssd {

/// Calls back once things have been quiet for a moment, on the discovery thread. Where the kernel does not
/// tell about changes, looks every few seconds instead. Thread: discovery
class InterfaceWatch {
 public:
  InterfaceWatch(DiscoveryThread& thread, std::function<void()> changed);
  ~InterfaceWatch();
  InterfaceWatch(const InterfaceWatch&) = delete;
  InterfaceWatch& operator=(const InterfaceWatch&) = delete;

  void start();
  void stop();

 private:
  void drain();
  void callSoon();
  void poll();

  DiscoveryThread& thread_;
  std::function<void()> changed_;
  int socket_ = -1;
  std::unique_ptr<Pending> watch_;
  std::unique_ptr<Pending> delay_;
};

}  // namespace ferrox::dnssd
