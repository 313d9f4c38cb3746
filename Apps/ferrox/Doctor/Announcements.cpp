#include "Apps/ferrox/Doctor/Announcements.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>

#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Platform/Base/Utf8.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

using dnssd::DNSName;
using dnssd::DNSQuestion;
using dnssd::DNSRecord;

constexpr std::uint16_t classMask = 0x7FFF;  // without the cache-flush bit (RFC 6762 section 10.2)

const DNSName& serviceName() {
  static const DNSName name{"_ferrox", "_tcp", "local"};
  return name;
}

DNSName lowered(DNSName name) {
  for (std::string& label : name) {
    std::transform(label.begin(), label.end(), label.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
  }
  return name;
}

bool isInstance(const DNSName& name) {
  return name.size() == serviceName().size() + 1 &&
         dnssd::sameDNSName(DNSName(name.begin() + 1, name.end()), serviceName());
}

// Names from the network go into JSON, too.
std::string wellFormed(const std::string& text) { return isUtf8(text) ? text : escapedForTerminal(text); }

std::string dotted(const DNSName& name) {
  std::string text;
  for (const std::string& label : name) text += (text.empty() ? "" : ".") + label;
  return wellFormed(text);
}

std::string addressText(const DNSRecord& record, const std::string& interfaceName) {
  const bool overIPv6 = record.type == dnssd::recordTypeAAAA;
  if (record.rdata.size() != (overIPv6 ? sizeof(in6_addr) : sizeof(in_addr))) return {};
  std::array<char, INET6_ADDRSTRLEN> text{};
  inet_ntop(overIPv6 ? AF_INET6 : AF_INET, record.rdata.data(), text.data(), text.size());
  const auto address = SocketAddress::fromText(text.data(), 0);
  if (!address) return {};
  const bool scoped = overIPv6 && address->isLinkLocal();
  return scoped ? std::string(text.data()) + "%" + interfaceName : text.data();
}

}  // namespace

void Announcements::want(const std::string& hostName) {
  if (auto name = dnssd::dnsNameFromText(hostName)) wanted_.insert(lowered(std::move(*name)));
}

bool Announcements::take(const dnssd::DNSMessage& response, const std::string& interfaceName) {
  bool tellsOfNode = false;
  for (const DNSRecord& record : response.records) {
    if ((record.recordClass & classMask) != dnssd::recordClassIN) continue;
    if (record.type == dnssd::recordTypePTR) {
      tellsOfNode = takePointer(record, interfaceName) || tellsOfNode;
    } else if (record.type == dnssd::recordTypeSRV || record.type == dnssd::recordTypeTXT) {
      tellsOfNode = takeAboutNode(record, interfaceName) || tellsOfNode;
    } else if (record.type == dnssd::recordTypeA || record.type == dnssd::recordTypeAAAA) {
      takeAddress(record, interfaceName);
    }
  }
  return tellsOfNode;
}

AnnouncedNode* Announcements::nodeOf(const DNSName& instance) {
  if (!isInstance(instance)) return nullptr;
  const DNSName key = lowered(instance);
  if (nodes_.size() >= maxNodes && nodes_.count(key) == 0) return nullptr;
  AnnouncedNode& node = nodes_[key];
  if (node.instance.empty()) {
    node.instance = instance;
    node.serviceName = wellFormed(instance.front());
  }
  return &node;
}

bool Announcements::takePointer(const DNSRecord& record, const std::string& interfaceName) {
  if (!dnssd::sameDNSName(record.name, serviceName())) return false;
  const auto instance = dnssd::readPTRData(record.rdata);
  if (!instance) return false;
  if (record.timeToLive == 0) {
    nodes_.erase(lowered(*instance));
    return false;
  }
  AnnouncedNode* const node = nodeOf(*instance);
  if (node != nullptr) node->interfaces.insert(interfaceName);
  return node != nullptr;
}

bool Announcements::takeAboutNode(const DNSRecord& record, const std::string& interfaceName) {
  if (record.timeToLive == 0) return false;
  AnnouncedNode* const node = nodeOf(record.name);
  if (node == nullptr) return false;
  node->interfaces.insert(interfaceName);
  if (record.type == dnssd::recordTypeTXT) {
    node->txt = record.rdata;
  } else if (const auto location = dnssd::readSRVData(record.rdata)) {
    node->port = location->port;
    node->hostName = dotted(location->target);
  }
  return true;
}

void Announcements::takeAddress(const DNSRecord& record, const std::string& interfaceName) {
  const std::string text = addressText(record, interfaceName);
  const DNSName key = lowered(record.name);
  if (text.empty() || record.timeToLive == 0) return;
  if (addresses_.size() >= maxHosts && addresses_.count(key) == 0) return;
  std::vector<std::string>& known = addresses_[key];
  const bool isNew = std::find(known.begin(), known.end(), text) == known.end();
  if (isNew && known.size() < maxAddressesPerHost) known.push_back(text);
}

std::vector<DNSQuestion> Announcements::questions() const {
  std::vector<DNSQuestion> out{{serviceName(), dnssd::recordTypePTR}};
  std::set<DNSName> hosts = wanted_;
  for (const auto& [key, node] : nodes_) {
    if (!node.port) out.push_back({node.instance, dnssd::recordTypeSRV});
    if (!node.txt) out.push_back({node.instance, dnssd::recordTypeTXT});
    const auto host = dnssd::dnsNameFromText(node.hostName);
    if (host) hosts.insert(lowered(*host));
  }
  for (const DNSName& host : hosts) {
    if (addresses_.count(host) > 0) continue;
    out.push_back({host, dnssd::recordTypeA});
    out.push_back({host, dnssd::recordTypeAAAA});
  }
  return out;
}

std::vector<AnnouncedNode> Announcements::nodes() const {
  std::vector<AnnouncedNode> out;
  out.reserve(nodes_.size());
  for (const auto& [key, node] : nodes_) out.push_back(node);
  return out;
}

std::vector<std::string> Announcements::addressesOf(const std::string& hostName) const {
  const auto name = dnssd::dnsNameFromText(hostName);
  const auto found = name ? addresses_.find(lowered(*name)) : addresses_.end();
  return found == addresses_.end() ? std::vector<std::string>() : found->second;
}

}  // namespace ferrox::command
