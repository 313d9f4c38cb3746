#include "Apps/ferrox/Doctor/MulticastProbe.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "Platform/DNSSD/DNSMessage.h"
#include "Platform/Host/Text.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

// Without the scope, which tells nothing between addresses of one interface.
std::string withoutScope(const std::string& address) { return address.substr(0, address.find('%')); }

}  // namespace

MulticastProbe::MulticastProbe(dnssd::NetworkInterface interface, bool overIPv6,
                               std::set<std::string> ownAddresses)
    : interface_(std::move(interface)),
      overIPv6_(overIPv6),
      ownAddresses_(std::move(ownAddresses)),
      marker_("ferrox-doctor-" + text::randomUUID()),
      socket_(
          dnssd::MulticastSocket::open({interface_.index, overIPv6_}, dnssd::MulticastSocket::Kind::Shared)) {
  if (!socket_) problem_ = std::strerror(errno);
}

void MulticastProbe::ask() {
  if (!problem_.empty()) return;
  dnssd::DNSMessage query;
  query.questions.push_back({{"_services", "_dns-sd", "_udp", "local"}, dnssd::recordTypePTR});
  query.questions.push_back({{marker_, "local"}, dnssd::recordTypeA});
  if (!socket_->send(dnssd::writeDNSMessage(query).value_or(""))) problem_ = std::strerror(errno);
}

void MulticastProbe::readAvailable() {
  if (!socket_) return;
  SocketAddress sender;
  while (const auto packet = socket_->receive(&sender)) take(*packet, withoutScope(sender.hostText()));
}

void MulticastProbe::take(const std::string& packet, const std::string& sender) {
  const auto message = dnssd::readDNSMessage(packet);
  if (!message) return;
  if (!message->isResponse()) {
    for (const dnssd::DNSQuestion& question : message->questions) {
      heardBack_ = heardBack_ || dnssd::sameDNSName(question.name, {marker_, "local"});
    }
    return;
  }
  if (ownAddresses_.count(sender) > 0) {
    ownMachineAnswers_ = true;
  } else {
    answering_.insert(sender);
  }
}

}  // namespace ferrox::command
