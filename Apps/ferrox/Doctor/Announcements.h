// The nodes that multicast DNS tells of: names, places and TXT records, put together from single records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/DNSSD/DNSMessage.h"

namespace ferrox::command {

/// What is not known yet is absent or empty.
struct AnnouncedNode {
  dnssd::DNSName instance;
  /// The published service name, well-formed UTF-8.
  std::string serviceName;
  /// Without a final dot.
  std::string hostName;
  std::optional<std::uint16_t> port;
  /// The TXT record's data.
  std::optional<std::string> txt;
  /// Where it was heard.
  std::set<std::string> interfaces;
};

/// Keeps a bounded number of nodes and addresses, whoever sends them. Thread: one
class Announcements {
 public:
  static constexpr std::size_t maxNodes = 256;
  static constexpr std::size_t maxHosts = 256;
  static constexpr std::size_t maxAddressesPerHost = 8;

  /// The addresses of `hostName`, a name under .local, are asked for too.
  void want(const std::string& hostName);

  /// Takes in a response that was heard on the interface of that name; whether it tells of any node.
  bool take(const dnssd::DNSMessage& response, const std::string& interfaceName);

  /// For nodes, and for what is missing of those known by now.
  std::vector<dnssd::DNSQuestion> questions() const;

  std::vector<AnnouncedNode> nodes() const;
  /// IP literals, link-local IPv6 ones with their scope, in order of arrival.
  std::vector<std::string> addressesOf(const std::string& hostName) const;

 private:
  AnnouncedNode* nodeOf(const dnssd::DNSName& instance);
  bool takePointer(const dnssd::DNSRecord& record, const std::string& interfaceName);
  bool takeAboutNode(const dnssd::DNSRecord& record, const std::string& interfaceName);
  void takeAddress(const dnssd::DNSRecord& record, const std::string& interfaceName);

  // By names in lower case.
  std::map<dnssd::DNSName, AnnouncedNode> nodes_;
  std::map<dnssd::DNSName, std::vector<std::string>> addresses_;
  std::set<dnssd::DNSName> wanted_;
};

}  // namespace ferrox::command
