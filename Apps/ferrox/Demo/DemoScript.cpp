#include "Apps/ferrox/Demo/DemoScript.h"

#include <fmt/format.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <utility>

#include "Apps/ferrox/ExitCode.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

// For half a second a responder takes a record that it just sent for sent (RFC 6762 section 6), and then
// keeps a goodbye for it back.
constexpr std::chrono::milliseconds announcementMemory = 700ms;

const FRXValue* memberOf(const FRXValue& value, std::string_view outer, std::string_view inner) {
  const FRXValue* object = value.member(outer);
  return object == nullptr ? nullptr : object->member(inner);
}

const ChildEvent* heartbeat(const DemoPair& pair, DemoStage::Instant since) {
  return DemoStage::find(*pair.observer, "rejoined", since, [&](const FRXValue& members) {
    const FRXValue* id = members.member("frxId");
    return id != nullptr && *id == FRXValue(pair.subject->serviceName);
  });
}

bool endedCleanly(const std::optional<int>& status) {
  return status && WIFEXITED(*status) && WEXITSTATUS(*status) == ExitDone;
}

}  // namespace

DemoScript::DemoScript(DemoStage& stage, Story& story)
    : stage_(stage),
      story_(story),
      talk_(stage),
      offers_(stage),
      copy_(stage),
      last_(stage.roles().back()),
      begun_(now()),
      killed_(begun_) {}

int DemoScript::play() {
  story_.begin(
      fmt::format("{} nodes on this machine, without a server, a daemon or root", stage_.roles().size()));
  const bool succeeded = meet() && offer() && join() && lose() && comeBack() && takeHome() && part();
  if (stage_.interrupted()) return ExitInterrupted;
  story_.end(succeeded, between(begun_, now()),
             succeeded ? "They met, talked, offered, lost one, found it again, and took a project home."
                       : "The step above did not happen within its time.");
  return succeeded ? ExitDone : ExitFailed;
}

bool DemoScript::meet() {
  return step("published", "Published", [this] { return publish(); }) &&
         step("found", "Found each other", [this] { return findEachOther(); }) &&
         step("resolved", "Resolved", [this] { return resolve(); }) &&
         step("responsive", "Answering", [this] { return answer(); }) &&
         step("connected", "Connected both ways", [this] { return connect(); }) &&
         step("fetched", "Records fetched", [this] { return fetchRecords(); }) &&
         step("notified", "Notified", [this] { return notify(); }) &&
         step("heartbeat", "Heartbeats heard", [this] { return hearHeartbeats(); });
}

bool DemoScript::offer() {
  DemoRole& asking = *founders().front();
  DemoRole& offering = *founders().back();
  return step("offered", "Offers made", [&] { return offers_.advertise(offering, asking); }) &&
         step("listed", "Offers listed", [&] { return offers_.list(asking, offering); }) &&
         step("segmentFetched", "Segment fetched", [&] { return offers_.fetchSegment(offering); });
}

bool DemoScript::join() {
  return step("joined", "One joins late", [this] { return joinLate(); }) &&
         step("caughtUp", "Told the latest only", [this] { return catchUp(); });
}

bool DemoScript::lose() {
  return step("killed", "One killed", [this] { return killLast(); }) &&
         step("connectionLost", "Connections lost", [this] { return loseConnections(); }) &&
         step("unresponsive", "Noticed as silent", [this] { return noticeSilence(); }) &&
         step("removed", "Verified and removed", [this] { return removeDead(); });
}

bool DemoScript::comeBack() {
  return step("restarted", "Started again", [this] { return restart(); }) &&
         step("foundAgain", "Found again", [this] { return findAgain(); }) &&
         step("reconnected", "Connected again", [this] { return connectAgain(); }) &&
         step("caughtUpAgain", "Told the latest again", [this] { return catchUp(); });
}

bool DemoScript::takeHome() {
  return step("copied", "Project copied",
              [this] { return copy_.copy(*founders().back(), *founders().front()); }) &&
         step("compared", "Copy compared", [this] { return copy_.compare(); });
}

bool DemoScript::part() {
  return step("left", "One leaves politely", [this] { return leavePolitely(); }) &&
         step("ended", "All ended", [this] { return endRest(); });
}

bool DemoScript::step(const std::string& name, const std::string& title,
                      const std::function<StepOutcome()>& action) {
  story_.stepBegins(name, title);
  StepOutcome outcome = action();
  if (stage_.interrupted()) outcome = {false, outcome.elapsed, "interrupted"};
  story_.stepEnds(outcome);
  return outcome.succeeded;
}

StepOutcome DemoScript::publish() {
  const Instant cause = now();
  for (DemoRole* role : founders()) {
    std::string problem;
    if (!stage_.start(*role, problem)) return {false, between(cause, now()), problem};
  }
  std::string detail;
  for (DemoRole* role : founders()) {
    const StepOutcome outcome = published(*role, 20s);
    if (!outcome.succeeded) return outcome;
    detail += fmt::format("{}{}:{}", detail.empty() ? "" : ", ", role->computerName, role->port);
  }
  std::vector<Expectation> expectations;
  for (const DemoRole* role : founders()) {
    expectations.push_back(
        {role->computerName, [role, cause] { return DemoStage::find(*role, "localServiceStarted", cause); }});
  }
  return stage_.expectAll(expectations, cause, 20s, detail);
}

// Waits for the node's own word that it runs, and notes under which name and port.
StepOutcome DemoScript::published(DemoRole& role, std::chrono::milliseconds timeout) {
  const Instant cause = role.node->startTime();
  const auto started = [&] { return DemoStage::find(role, "started", cause); };
  const auto failed = [&] { return DemoStage::find(role, "error", cause); };
  const auto ended = [&] { return role.node->descriptor() < 0; };
  if (!stage_.waitUntil([&] { return started() != nullptr || failed() != nullptr || ended(); }, timeout) ||
      started() == nullptr) {
    return {false, between(cause, now()), role.computerName + " did not start"};
  }
  const ChildEvent& event = *started();
  const FRXValue* name = event.members.member("serviceName");
  const FRXValue* port = event.members.member("port");
  const bool complete = name != nullptr && name->asText() != nullptr && !name->asText()->empty() &&
                        port != nullptr && port->asInteger() != nullptr && *port->asInteger() > 0;
  if (!complete) return {false, between(cause, now()), role.computerName + " did not say its name and port"};
  role.serviceName = *name->asText();
  role.port = *port->asInteger();
  return {true, between(cause, event.arrival), {}};
}

StepOutcome DemoScript::findEachOther() {
  return expectOfAllPairs(
      "peerDiscovered", 20s,
      fmt::format("every node sees the {} others, and not itself", founders().size() - 1));
}

// What was found must be what was published: host name and port of each record.
StepOutcome DemoScript::resolve() {
  Instant latest = begun_;
  for (const auto& [observer, subject] : pairsOf(founders())) {
    const ChildEvent* event = DemoStage::findAbout(*observer, "peerDiscovered", begun_, *subject);
    const FRXValue* port = event == nullptr ? nullptr : memberOf(event->members, "service", "port");
    const FRXValue* host = event == nullptr ? nullptr : memberOf(event->members, "service", "hostName");
    const bool right = port != nullptr && port->asInteger() != nullptr &&
                       *port->asInteger() == subject->port && host != nullptr && host->asText() != nullptr &&
                       !host->asText()->empty();
    if (!right) {
      return {false, between(begun_, now()),
              observer->computerName + " resolved " + subject->computerName + " to something else"};
    }
    latest = std::max(latest, event->arrival);
  }
  return {true, between(begun_, latest), "each to a host name and the port that was published"};
}

StepOutcome DemoScript::answer() {
  return expectOfAllPairs("peerResponsive", 15s, "each reached each other over TCP");
}

StepOutcome DemoScript::fetchRecords() {
  DemoRole& asking = *founders().front();
  std::chrono::microseconds slowest{0};
  for (const DemoRole* role : founders()) {
    const DemoRole& subject = *role;
    if (&subject == &asking) continue;
    const Instant cause = now();
    const ChildEvent* found = DemoStage::findAbout(asking, "peerDiscovered", begun_, subject);
    const FRXValue* host = memberOf(found->members, "service", "hostName");
    asking.node->send({{"cmd", "search"},
                       {"ref", subject.serviceName},
                       {"address", fmt::format("{}:{}", *host->asText(), subject.port)}});
    const auto answered = [&] {
      return DemoStage::find(asking, "result", cause, [&](const FRXValue& members) {
        const FRXValue* ref = members.member("ref");
        return ref != nullptr && *ref == FRXValue(subject.serviceName);
      });
    };
    if (!stage_.waitUntil([&] { return answered() != nullptr; }, 10s)) {
      return {false, between(cause, now()), "no answer to GET /service from " + subject.computerName};
    }
    const FRXValue* name = memberOf(answered()->members, "service", "name");
    if (name == nullptr || *name != FRXValue(subject.serviceName)) {
      return {false, between(cause, now()),
              "GET /service of " + subject.computerName + " told another record"};
    }
    slowest = std::max(slowest, between(cause, answered()->arrival));
  }
  return {true, slowest, fmt::format("GET /service from {}, answered by every other", asking.computerName)};
}

StepOutcome DemoScript::hearHeartbeats() {
  const Instant cause = now();
  std::vector<Expectation> expectations;
  for (const auto& [observer, subject] : pairsOf(founders())) {
    expectations.push_back({subject->computerName + " by " + observer->computerName,
                            [pair = DemoPair{observer, subject}, cause] { return heartbeat(pair, cause); }});
  }
  return stage_.expectAll(expectations, cause, 15s, "every record was rewritten, every other heard it");
}

StepOutcome DemoScript::connect() {
  return talk_.connectAll(founders(), begun_, "each has a connection of its own to each other");
}

StepOutcome DemoScript::notify() {
  std::vector<DemoRole*> listening = founders();
  DemoRole& posting = *listening.front();
  listening.erase(listening.begin());
  return talk_.measureDelivery(posting, listening);
}

StepOutcome DemoScript::joinLate() {
  const StepOutcome kept = talk_.keepLatest(*founders().front(), *founders().back());
  if (!kept.succeeded) return kept;
  std::string problem;
  if (!stage_.start(last_, problem)) return {false, std::chrono::microseconds{0}, problem};
  const StepOutcome started = published(last_, 20s);
  return started.succeeded ? connectLast() : started;
}

StepOutcome DemoScript::connectAgain() { return connectLast(); }

StepOutcome DemoScript::connectLast() {
  std::vector<DemoRole*> everybody = founders();
  everybody.push_back(&last_);
  return talk_.connectAll(everybody, last_.node->startTime(),
                          last_.computerName + ", both ways with all others; counted from its start", &last_);
}

StepOutcome DemoScript::catchUp() { return talk_.receiveLatest(*founders().front(), last_); }

StepOutcome DemoScript::killLast() {
  // Connected to at once, it may not have been announced yet; and what was never announced is not withdrawn.
  if (const StepOutcome heard = heartbeatOfLast(); !heard.succeeded) return heard;
  killed_ = now();
  last_.node->kill(SIGKILL);
  if (!stage_.waitUntil([this] { return last_.node->status().has_value(); }, 5s)) {
    return {false, between(killed_, now()), last_.computerName + " did not die"};
  }
  const int status = *last_.node->status();
  const bool bySignal = WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
  return {bySignal, between(killed_, now()), last_.computerName + " is gone, without a goodbye"};
}

StepOutcome DemoScript::loseConnections() { return talk_.loseConnections(founders(), last_, killed_); }

StepOutcome DemoScript::noticeSilence() {
  return expectOfFounders("peerUnresponsive", killed_, 20s, "checks failed twice; counted from its death");
}

StepOutcome DemoScript::removeDead() {
  StepOutcome outcome =
      expectOfFounders("peerRemoved", killed_, 20s, "asked for it, nobody confirmed; counted from its death");
  if (outcome.succeeded && !foundersKeptEachOther()) {
    return {false, outcome.elapsed, "a living node was removed too"};
  }
  return outcome;
}

StepOutcome DemoScript::restart() {
  const std::string formerName = last_.serviceName;
  const Instant cause = now();
  std::string problem;
  if (!stage_.start(last_, problem)) return {false, between(cause, now()), problem};
  StepOutcome outcome = published(last_, 20s);
  if (outcome.succeeded) {
    outcome.detail = fmt::format("{} on port {}{}", last_.computerName, last_.port,
                                 last_.serviceName != formerName ? ", under a new name" : "");
  }
  return outcome;
}

StepOutcome DemoScript::findAgain() {
  const Instant cause = last_.node->startTime();
  StepOutcome outcome =
      expectOfFounders("peerDiscovered", cause, 20s, "by all others; counted from its start");
  if (!outcome.succeeded) return outcome;
  const StepOutcome answering = expectOfFounders("peerResponsive", cause, 15s, {});
  return answering.succeeded ? outcome : answering;
}

// A heartbeat of the restarted node, heard by all others: the last packet of its announcement is out then.
StepOutcome DemoScript::heartbeatOfLast() {
  const Instant cause = now();
  std::vector<Expectation> expectations;
  for (const DemoRole* observer : founders()) {
    expectations.push_back({"heartbeat heard by " + observer->computerName, [this, observer, cause] {
                              return heartbeat({observer, &last_}, cause);
                            }});
  }
  return stage_.expectAll(expectations, cause, 15s, {});
}

StepOutcome DemoScript::leavePolitely() {
  if (const StepOutcome heard = heartbeatOfLast(); !heard.succeeded) return heard;
  const Instant quiet = now() + announcementMemory;
  if (!stage_.waitUntil([quiet] { return now() >= quiet; }, 2 * announcementMemory)) return {};
  const Instant cause = now();
  last_.node->send({{"cmd", "quit"}});
  StepOutcome outcome =
      expectOfFounders("peerRemoved", cause, 5s, "it said goodbye, and all others heard it");
  if (!outcome.succeeded) return outcome;
  if (!stage_.waitUntil([this] { return last_.node->status().has_value(); }, 10s) ||
      !endedCleanly(last_.node->status())) {
    return {false, between(cause, now()), last_.computerName + " did not end cleanly"};
  }
  if (!foundersKeptEachOther()) return {false, outcome.elapsed, "a living node was removed too"};
  return outcome;
}

StepOutcome DemoScript::endRest() {
  const Instant cause = now();
  for (DemoRole* role : founders()) role->node->kill(SIGTERM);
  for (DemoRole* role : founders()) {
    if (!stage_.waitUntil([role] { return role->node->status().has_value(); }, 10s) ||
        !endedCleanly(role->node->status())) {
      return {false, between(cause, now()), role->computerName + " did not end cleanly"};
    }
  }
  return {true, between(cause, now()), "SIGTERM; announcements withdrawn, exit status 0"};
}

StepOutcome DemoScript::expectOfFounders(std::string_view event, Instant cause,
                                         std::chrono::milliseconds timeout, const std::string& detail) {
  std::vector<Expectation> expectations;
  for (const DemoRole* observer : founders()) {
    expectations.push_back({observer->computerName, [this, observer, event, cause] {
                              return DemoStage::findAbout(*observer, event, cause, last_);
                            }});
  }
  return stage_.expectAll(expectations, cause, timeout, detail);
}

StepOutcome DemoScript::expectOfAllPairs(std::string_view event, std::chrono::milliseconds timeout,
                                         const std::string& detail) {
  std::vector<Expectation> expectations;
  for (const auto& [observer, subject] : pairsOf(founders())) {
    expectations.push_back({subject->computerName + " by " + observer->computerName,
                            [this, pair = DemoPair{observer, subject}, event] {
                              return DemoStage::findAbout(*pair.observer, event, begun_, *pair.subject);
                            }});
  }
  return stage_.expectAll(expectations, begun_, timeout, detail);
}

bool DemoScript::foundersKeptEachOther() const {
  for (const DemoRole* observer : founders()) {
    for (const DemoRole* subject : founders()) {
      if (DemoStage::findAbout(*observer, "peerRemoved", begun_, *subject) != nullptr) return false;
    }
  }
  return true;
}

std::vector<DemoRole*> DemoScript::founders() const {
  std::vector<DemoRole*> out;
  for (DemoRole& role : stage_.roles()) {
    if (&role != &last_) out.push_back(&role);
  }
  return out;
}

}  // namespace ferrox::command
