// Asks all used interfaces for nodes by multicast, and gathers what is heard. Announces nothing.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include "Apps/ferrox/Doctor/Announcements.h"
#include "Apps/ferrox/Doctor/MulticastProbe.h"

namespace ferrox::command {

/// Thread: one
class NetworkSurvey {
 public:
  explicit NetworkSurvey(const std::vector<dnssd::NetworkInterface>& used);

  /// The addresses of `hostName` are asked for too, if it is a name under .local.
  void want(const std::string& hostName);
  /// Asks twice, as one packet may get lost, and listens for `wait` in all.
  void run(std::chrono::milliseconds wait);

  /// One for each interface and address family.
  const std::vector<std::unique_ptr<MulticastProbe>>& probes() const { return probes_; }
  const Announcements& announcements() const { return announcements_; }

 private:
  void listenUntil(std::chrono::steady_clock::time_point end) const;

  Announcements announcements_;
  std::vector<std::unique_ptr<MulticastProbe>> probes_;
};

}  // namespace ferrox::command
