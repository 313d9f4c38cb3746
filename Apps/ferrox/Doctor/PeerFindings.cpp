#include "Apps/ferrox/Doctor/PeerFindings.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

#include "Apps/ferrox/Doctor/AddressTrial.h"
#include "Apps/ferrox/Doctor/Announcements.h"
#include "Apps/ferrox/Doctor/PeerPlaces.h"
#include "Apps/ferrox/Doctor/ThisMachine.h"
#include "Apps/ferrox/Node/Peer.h"
#include "Classes/Discovery/FRXNetService.h"
#include "Platform/Host/Text.h"

namespace ferrox::command {
namespace {

/// Times of notifications are shown by their sender's clock; less than this nobody notices.
constexpr std::chrono::seconds noticeableDifference{2};

// To a tenth.
double millisecondsOf(const Attempt& attempt) {
  return std::round(static_cast<double>(attempt.elapsed().count()) / 100) / 10;
}

std::string timeOf(const Attempt& attempt) { return fmt::format("{:.1f} ms", millisecondsOf(attempt)); }

std::string problemOf(const Attempt& attempt) {
  return attempt.isOver() ? attempt.problem() : "it was not over in time";
}

FRXDictionary factsOf(const PeerPlace& place, const char* method) {
  return {{"peer", place.peer},           {"address", displayAddress(place.address)}, {"given", place.given},
          {"announced", place.announced}, {"onThisMachine", place.onThisMachine},     {"method", method}};
}

FRXDictionary factsOf(const PeerPlace& place, const char* method, const Attempt& attempt) {
  FRXDictionary facts = factsOf(place, method);
  facts["ok"] = attempt.succeeded();
  facts["milliseconds"] = millisecondsOf(attempt);
  if (!attempt.succeeded()) facts["error"] = problemOf(attempt);
  return facts;
}

std::string adviceAfterTCP(const PeerPlace& place, int errorCode) {
  const int port = place.address.port();
  if (errorCode == ECONNREFUSED) {
    return fmt::format("nothing listens on port {} there: start the node, or name the port it has", port);
  }
  if (errorCode == 0) return "look at the name, or give the IP address";
  return fmt::format("that machine is off or in another network, or a firewall keeps TCP port {} closed",
                     port);
}

Finding findingOfTCP(const PeerPlace& place, const AddressTrial& trial) {
  const Attempt& tcp = trial.tcp();
  FRXDictionary facts = factsOf(place, "tcp", tcp);
  if (tcp.succeeded()) {
    return {Verdict::Good, fmt::format("{} accepts TCP connections ({})", displayName(place), timeOf(tcp)),
            std::move(facts)};
  }
  return {
      Verdict::Bad,
      fmt::format("{} accepts no TCP connection: {} ({})", displayName(place), problemOf(tcp), timeOf(tcp)),
      std::move(facts), adviceAfterTCP(place, trial.tcpErrorCode())};
}

Finding findingOfHTTP(const PeerPlace& place, const AddressTrial& trial) {
  const Attempt& http = trial.http();
  FRXDictionary facts = factsOf(place, "http", http);
  if (!http.succeeded()) {
    return {Verdict::Bad,
            fmt::format("{} accepts TCP, but gives no service record by HTTP: {} ({})", displayName(place),
                        problemOf(http), timeOf(http)),
            std::move(facts),
            fmt::format("see what listens on port {} there: another program, or a node that hangs",
                        place.address.port())};
  }
  facts["service"] = recordOf(*trial.service());
  return {Verdict::Good,
          fmt::format("{} is the node \"{}\", by HTTP ({})", displayName(place),
                      displayName(*trial.service()), timeOf(http)),
          std::move(facts)};
}

Finding findingOfSocket(const PeerPlace& place, const AddressTrial& trial) {
  const Attempt& opening = trial.socket().opening();
  const Attempt& heartbeat = trial.socket().heartbeat();
  FRXDictionary facts = factsOf(place, "websocket", opening);
  if (!opening.succeeded()) {
    return {Verdict::Bad,
            fmt::format("{} opens no WebSocket: {} ({})", displayName(place), problemOf(opening),
                        timeOf(opening)),
            std::move(facts),
            trial.http().succeeded()
                ? "no notification can pass: a proxy or another program may answer in the node's place"
                : ""};
  }
  facts["heartbeatAnswered"] = heartbeat.succeeded();
  if (!heartbeat.succeeded()) {
    return {Verdict::Note,
            fmt::format("{} opens a WebSocket ({}), but answers no heartbeat: {}", displayName(place),
                        timeOf(opening), problemOf(heartbeat)),
            std::move(facts), "nodes of other makes may leave it out; one of ours answers at once"};
  }
  facts["heartbeatMilliseconds"] = millisecondsOf(heartbeat);
  return {Verdict::Good,
          fmt::format("{} opens a WebSocket ({}) and answers a heartbeat ({})", displayName(place),
                      timeOf(opening), timeOf(heartbeat)),
          std::move(facts)};
}

Finding findingOfClock(const PeerPlace& place, const AddressTrial& trial, const ClockDifference& clock) {
  FRXDictionary facts = factsOf(place, "clock");
  facts["aheadMilliseconds"] = clock.ahead().count();
  facts["uncertaintyMilliseconds"] = clock.uncertainty().count();
  facts["by"] = trial.socket().clock() ? "heartbeat" : "Date";
  Finding out{Verdict::Good, fmt::format("{}: its clock {}", displayName(place), clock.words()),
              std::move(facts)};
  if (clock.atLeast() >= noticeableDifference) {
    out.verdict = Verdict::Note;
    out.advice = "peers meet all the same, but times in notifications differ; set both clocks by the network";
  }
  return out;
}

bool wasHeard(const Announcements& announcements, const FRXNetService& service) {
  const std::string name = service.name().value_or("");
  const std::vector<AnnouncedNode> nodes = announcements.nodes();
  return std::any_of(nodes.begin(), nodes.end(), [&](const AnnouncedNode& node) {
    return text::equalsIgnoringCase(node.serviceName, name);
  });
}

void addIdentity(const PeerPlace& place, const FRXNetService& service, std::vector<Finding>& out) {
  // Announced ones were told of already.
  if (place.announced || place.onThisMachine || !hasIdentityOfThisMachine(service.name())) return;
  out.push_back({Verdict::Bad,
                 displayName(place) + " has the identity of this machine: the two ignore each other",
                 factsOf(place, "identity"),
                 "give each machine an identity of its own: another /etc/machine-id, or --device-uuid"});
}

}  // namespace

std::vector<Finding> findingsAbout(const PeerPlace& place, const AddressTrial& trial,
                                   const Announcements* announcements) {
  std::vector<Finding> out{findingOfTCP(place, trial)};
  if (!trial.tcp().succeeded()) return out;
  out.push_back(findingOfHTTP(place, trial));
  out.push_back(findingOfSocket(place, trial));
  if (const auto clock = trial.clock()) out.push_back(findingOfClock(place, trial, *clock));
  if (!trial.service()) return out;
  addIdentity(place, *trial.service(), out);
  if (announcements != nullptr && !place.onThisMachine && !wasHeard(*announcements, *trial.service())) {
    out.push_back(
        {Verdict::Note, displayName(place) + " answers by address, but was not heard by multicast",
         factsOf(place, "multicast"),
         "multicast is kept back on the way (another subnet, a switch, an access point, a firewall), "
         "or that node has --discovery off; go on with --peer"});
  }
  return out;
}

}  // namespace ferrox::command
