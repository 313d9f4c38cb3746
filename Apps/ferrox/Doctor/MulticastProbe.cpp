#include "Apps/ferrox/Doctor/MulticastProbe.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Apps/ferrox/Doctor/Announcements.h"
#include "Apps/ferrox/Doctor/ThisMachine.h"
#include "Platform/Host/Text.h"
#include "Platform/Net/SocketAddress.h"

namespace ferrox::command {
namespace {

/// As many as fit one packet on any network, unless the names are very long.
constexpr std::size_t questionsPerPacket = 8;
/// Whoever floods the group must not keep this machine from looking at the time.
constexpr int packetsAtATime = 64;
constexpr std::size_t mostHosts = 1024;

const dnssd::DNSName& allServiceTypes() {
  static const dnssd::DNSName name{"_services", "_dns-sd", "_udp", "local"};
  return name;
}

// Not everything that says so was asked for: changes are announced as responses, too.
bool answersTheQuestion(const dnssd::DNSMessage& response) {
  return std::any_of(response.records.begin(), response.records.end(), [](const dnssd::DNSRecord& record) {
    return record.type == dnssd::recordTypePTR && dnssd::sameDNSName(record.name, allServiceTypes());
  });
}

void remember(std::set<std::string>& hosts, const std::string& host) {
  if (hosts.size() < mostHosts) hosts.insert(host);
}

}  // namespace

MulticastProbe::MulticastProbe(dnssd::NetworkInterface interface, bool overIPv6,
                               std::set<std::string> ownAddresses, Announcements& announcements)
    : interface_(std::move(interface)),
      overIPv6_(overIPv6),
      ownAddresses_(std::move(ownAddresses)),
      announcements_(announcements),
      marker_("ferrox-doctor-" + text::randomUUID()),
      socket_(
          dnssd::MulticastSocket::open({interface_.index, overIPv6_}, dnssd::MulticastSocket::Kind::Shared)) {
  if (!socket_) problem_ = errno;
}

void MulticastProbe::ask(const std::vector<dnssd::DNSQuestion>& questions) {
  std::vector<dnssd::DNSQuestion> all{{{marker_, "local"}, dnssd::recordTypeA},
                                      {allServiceTypes(), dnssd::recordTypePTR}};
  all.insert(all.end(), questions.begin(), questions.end());
  for (std::size_t begin = 0; begin < all.size(); begin += questionsPerPacket) {
    const std::size_t end = std::min(begin + questionsPerPacket, all.size());
    send({all.begin() + static_cast<std::ptrdiff_t>(begin), all.begin() + static_cast<std::ptrdiff_t>(end)});
  }
}

void MulticastProbe::send(const std::vector<dnssd::DNSQuestion>& questions) {
  if (problem_ != 0) return;
  dnssd::DNSMessage query;
  query.questions = questions;
  const auto packet = dnssd::writeDNSMessage(query);
  if (packet && !socket_->send(*packet)) problem_ = errno;
}

void MulticastProbe::readAvailable() {
  if (!socket_) return;
  SocketAddress sender;
  for (int i = 0; i < packetsAtATime; ++i) {
    const auto packet = socket_->receive(&sender);
    if (!packet) return;
    take(*packet, withoutScope(sender.hostText()));
  }
}

void MulticastProbe::take(const std::string& packet, const std::string& sender) {
  const auto message = dnssd::readDNSMessage(packet);
  if (!message) return;
  if (ownAddresses_.count(sender) == 0) remember(heard_, sender);
  if (message->isResponse()) return takeAnswer(*message, sender);
  for (const dnssd::DNSQuestion& question : message->questions) {
    heardBack_ = heardBack_ || dnssd::sameDNSName(question.name, {marker_, "local"});
  }
}

void MulticastProbe::takeAnswer(const dnssd::DNSMessage& answer, const std::string& sender) {
  const bool tellsOfNode = announcements_.take(answer, interface_.name);
  const bool answers = answersTheQuestion(answer);
  if (ownAddresses_.count(sender) > 0) {
    ownMachineAnswers_ = ownMachineAnswers_ || answers;
    return;
  }
  if (answers) remember(answering_, sender);
  if (tellsOfNode) remember(tellingOfNodes_, sender);
}

}  // namespace ferrox::command
