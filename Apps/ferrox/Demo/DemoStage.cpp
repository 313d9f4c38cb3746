#include "Apps/ferrox/Demo/DemoStage.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Apps/ferrox/Events/SignalWatcher.h"
#include "Platform/Host/Text.h"

namespace ferrox::command {
namespace {

constexpr std::array<const char*, 8> computerNames{"Edit Suite", "Grading", "Sound Stage", "Archive",
                                                   "Playout",    "Ingest",  "Review Room", "Studio"};

}  // namespace

std::vector<DemoPair> pairsOf(const std::vector<DemoRole*>& roles) {
  std::vector<DemoPair> pairs;
  for (const DemoRole* observer : roles) {
    for (const DemoRole* subject : roles) {
      if (observer != subject) pairs.push_back({observer, subject});
    }
  }
  return pairs;
}

DemoStage::DemoStage(std::size_t roles, std::vector<std::string> interfaces, std::string logLevel,
                     std::vector<std::string> observations)
    : interfaces_(std::move(interfaces)),
      logLevel_(std::move(logLevel)),
      observations_(std::move(observations)),
      signals_(makeEndSignalDescriptor()) {
  for (std::size_t i = 0; i < std::min(roles, computerNames.size()); ++i) {
    DemoRole role;
    role.computerName = computerNames[i];
    role.deviceUUID = text::randomUUID();
    roles_.push_back(std::move(role));
  }
}

DemoStage::~DemoStage() { ::close(signals_); }

// The host name stays the machine's, which they share with whatever else announces it: two names for one
// address would collide without end.
bool DemoStage::start(DemoRole& role, std::string& problem) {
  std::vector<std::string> arguments{
      "--port",        "0",           "--computer-name", role.computerName, "--device-uuid",
      role.deviceUUID, "--discovery", "embedded",        "--log-level",     logLevel_};
  for (const std::string& name : interfaces_) arguments.insert(arguments.end(), {"--interface", name});
  for (const std::string& name : observations_) arguments.insert(arguments.end(), {"--observe", name});
  role.node.reset();
  role.node = ChildNode::spawn(arguments, problem);
  return role.node != nullptr;
}

bool DemoStage::waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
  const Instant deadline = now() + timeout;
  while (!interrupted_) {
    if (done()) return true;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now());
    if (left.count() <= 0) return false;
    takeIn(left);
  }
  return false;
}

StepOutcome DemoStage::expectAll(const std::vector<Expectation>& expectations, Instant cause,
                                 std::chrono::milliseconds timeout, const std::string& detail) {
  const auto happened = [](const Expectation& expectation) { return expectation.find() != nullptr; };
  const bool all =
      waitUntil([&] { return std::all_of(expectations.begin(), expectations.end(), happened); }, timeout);
  Instant latest = cause;
  std::string missing;
  for (const Expectation& expectation : expectations) {
    if (const ChildEvent* event = expectation.find()) {
      latest = std::max(latest, event->arrival);
    } else {
      missing += (missing.empty() ? "missing: " : ", ") + expectation.what;
    }
  }
  return all ? StepOutcome{true, between(cause, latest), detail}
             : StepOutcome{false, between(cause, now()), missing};
}

// A short sleep at most: the end of a process shows in waitpid only, not on a descriptor.
void DemoStage::takeIn(std::chrono::milliseconds atMost) {
  std::vector<pollfd> watched{{signals_, POLLIN, 0}};
  for (const DemoRole& role : roles_) {
    const int descriptor = role.node ? role.node->descriptor() : -1;
    watched.push_back({descriptor, POLLIN, 0});
  }
  const auto sleep = std::min(atMost, std::chrono::milliseconds(50));
  if (poll(watched.data(), watched.size(), static_cast<int>(sleep.count())) <= 0) return;
  if (watched[0].revents != 0) interrupted_ = true;
  for (DemoRole& role : roles_) {
    if (role.node) role.node->readAvailable();
  }
}

const ChildEvent* DemoStage::find(const DemoRole& observer, std::string_view event, Instant since,
                                  const std::function<bool(const FRXValue&)>& matches) {
  if (!observer.node) return nullptr;
  for (const ChildEvent& seen : observer.node->events()) {
    if (seen.name == event && seen.arrival >= since && (!matches || matches(seen.members))) return &seen;
  }
  return nullptr;
}

const ChildEvent* DemoStage::findAbout(const DemoRole& observer, std::string_view event, Instant since,
                                       const DemoRole& subject) {
  return find(observer, event, since, [&subject](const FRXValue& members) {
    const FRXValue* service = members.member("service");
    const FRXValue* name = service == nullptr ? nullptr : service->member("name");
    return name != nullptr && name->asText() != nullptr && *name->asText() == subject.serviceName;
  });
}

}  // namespace ferrox::command
