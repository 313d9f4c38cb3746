// Asks the network again for the instances of a type after some were lost.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "Platform/DNSSD/Session.h"

namespace ferrox::dnssd {

/// A stack asks ever more seldom, up to once an hour, and a host that was cut off announces nothing when the
/// network heals. So we ask after 1 and 3 seconds, then every 8 seconds for ten minutes after the latest
/// loss, and then every minute, until each lost instance is back or an hour has passed. Thread: discovery
class Requery {
 public:
  using IsVisible = std::function<bool(const std::string& instanceName)>;

  Requery(DiscoveryContext& context, std::string type, std::string domain, IsVisible isVisible);

  void lost(const std::string& instanceName);

  const std::string& type() const { return type_; }
  const std::string& domain() const { return domain_; }

 private:
  void schedule();
  void ask();
  void forgetReturned();

  DiscoveryContext& context_;
  std::string type_;
  std::string domain_;
  IsVisible isVisible_;
  std::map<std::string, std::chrono::steady_clock::time_point> lost_;
  std::chrono::steady_clock::time_point lastLoss_{};
  std::size_t step_ = 0;
  std::unique_ptr<Pending> timer_;
};

}  // namespace ferrox::dnssd
