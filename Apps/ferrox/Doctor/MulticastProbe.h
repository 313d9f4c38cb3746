// One question by multicast on one interface and address family, and what comes back.
#pragma once

#include <memory>
#include <set>
#include <string>

#include "Platform/DNSSD/MulticastSocket.h"
#include "Platform/DNSSD/NetworkInterface.h"

namespace ferrox::command {

/// Thread: one
class MulticastProbe {
 public:
  /// `ownAddresses` tells the answers of this machine from those of others.
  MulticastProbe(dnssd::NetworkInterface interface, bool overIPv6, std::set<std::string> ownAddresses);

  /// Asks for all service types (RFC 6763 section 9), and for a name that nobody has, by which the own
  /// packet is known when it comes back.
  void ask();
  /// Takes in what has arrived, without blocking.
  void readAvailable();

  /// -1 when it could not be opened.
  int descriptor() const { return socket_ ? socket_->descriptor() : -1; }
  const dnssd::NetworkInterface& interface() const { return interface_; }
  bool overIPv6() const { return overIPv6_; }
  /// Why opening or sending failed; empty when neither did.
  const std::string& problem() const { return problem_; }
  bool heardBack() const { return heardBack_; }
  /// Addresses of other hosts that answered.
  const std::set<std::string>& answering() const { return answering_; }
  bool ownMachineAnswers() const { return ownMachineAnswers_; }

 private:
  void take(const std::string& packet, const std::string& sender);

  const dnssd::NetworkInterface interface_;
  const bool overIPv6_;
  const std::set<std::string> ownAddresses_;
  const std::string marker_;
  std::unique_ptr<dnssd::MulticastSocket> socket_;
  std::string problem_;
  bool heardBack_ = false;
  bool ownMachineAnswers_ = false;
  std::set<std::string> answering_;
};

}  // namespace ferrox::command
