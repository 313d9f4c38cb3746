// Questions by multicast on one interface and address family, and what comes back.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/DNSSD/MulticastSocket.h"
#include "Platform/DNSSD/NetworkInterface.h"

namespace ferrox::command {

class Announcements;

/// Thread: one
class MulticastProbe {
 public:
  /// `ownAddresses` tells the packets of this machine from those of others. What is heard of nodes goes to
  /// `announcements`, which is borrowed.
  MulticastProbe(dnssd::NetworkInterface interface, bool overIPv6, std::set<std::string> ownAddresses,
                 Announcements& announcements);

  /// Asks `questions`, for all service types (RFC 6763 section 9), and for a name that nobody has, by which
  /// the own packet is known when it comes back.
  void ask(const std::vector<dnssd::DNSQuestion>& questions);
  /// Takes in what has arrived, without blocking; a bounded amount at a time.
  void readAvailable();

  /// -1 when it could not be opened.
  int descriptor() const { return socket_ ? socket_->descriptor() : -1; }
  const dnssd::NetworkInterface& interface() const { return interface_; }
  bool overIPv6() const { return overIPv6_; }

  /// Why opening or sending failed, as the system counts errors; 0 when neither did.
  int problem() const { return problem_; }
  bool heardBack() const { return heardBack_; }
  bool works() const { return problem_ == 0 && heardBack_; }
  /// Addresses of other hosts from which anything came, be it only questions.
  const std::set<std::string>& heard() const { return heard_; }
  /// Those of them that answered.
  const std::set<std::string>& answering() const { return answering_; }
  /// Those of them that told of nodes.
  const std::set<std::string>& tellingOfNodes() const { return tellingOfNodes_; }
  bool ownMachineAnswers() const { return ownMachineAnswers_; }

 private:
  void send(const std::vector<dnssd::DNSQuestion>& questions);
  void take(const std::string& packet, const std::string& sender);
  void takeAnswer(const dnssd::DNSMessage& answer, const std::string& sender);

  const dnssd::NetworkInterface interface_;
  const bool overIPv6_;
  const std::set<std::string> ownAddresses_;
  Announcements& announcements_;
  const std::string marker_;
  std::unique_ptr<dnssd::MulticastSocket> socket_;
  int problem_ = 0;
  bool heardBack_ = false;
  bool ownMachineAnswers_ = false;
  std::set<std::string> heard_;
  std::set<std::string> answering_;
  std::set<std::string> tellingOfNodes_;
};

}  // namespace ferrox::command
