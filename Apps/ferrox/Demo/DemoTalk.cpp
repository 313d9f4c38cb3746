#include "Apps/ferrox/Demo/DemoTalk.h"

#include <fmt/format.h>

#include <algorithm>

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;
using std::chrono::microseconds;

constexpr int measuredPosts = 50;

const FRXValue* memberOf(const FRXValue& value, std::string_view outer, std::string_view inner) {
  const FRXValue* object = value.member(outer);
  return object == nullptr ? nullptr : object->member(inner);
}

bool isNamed(const FRXValue& members, std::string_view name) {
  const FRXValue* value = members.member("name");
  return value != nullptr && *value == FRXValue(name);
}

bool hasValue(const FRXValue& members, std::int64_t expected) {
  const FRXValue* value = memberOf(members, "userInfo", "value");
  return value != nullptr && *value == FRXValue(expected);
}

// The event of that name about a connection to the subject, as the observer knows it.
const ChildEvent* findConnection(const DemoPair& pair, std::string_view event, DemoStage::Instant since) {
  const ChildEvent* found = DemoStage::findAbout(*pair.observer, "peerDiscovered", {}, *pair.subject);
  const FRXValue* serviceId = found == nullptr ? nullptr : memberOf(found->members, "service", "serviceId");
  if (serviceId == nullptr) return nullptr;
  return DemoStage::find(*pair.observer, event, since, [serviceId](const FRXValue& members) {
    const FRXValue* id = memberOf(members, "userInfo", "frxId");
    return id != nullptr && *id == *serviceId;
  });
}

}  // namespace

StepOutcome DemoTalk::connectAll(const std::vector<DemoRole*>& roles, Instant since,
                                 const std::string& detail, const DemoRole* about) {
  std::vector<Expectation> expectations;
  for (const DemoPair& pair : pairsOf(roles)) {
    if (about != nullptr && pair.observer != about && pair.subject != about) continue;
    expectations.push_back({pair.observer->computerName + " to " + pair.subject->computerName,
                            [pair, since] { return findConnection(pair, "connected", since); }});
  }
  return stage_.expectAll(expectations, since, 20s, detail);
}

StepOutcome DemoTalk::loseConnections(const std::vector<DemoRole*>& observers, const DemoRole& lost,
                                      Instant since) {
  std::vector<Expectation> expectations;
  for (const DemoRole* observer : observers) {
    expectations.push_back({observer->computerName, [pair = DemoPair{observer, &lost}, since] {
                              const ChildEvent* failed = findConnection(pair, "connectionFailed", since);
                              return failed != nullptr ? failed : findConnection(pair, "disconnected", since);
                            }});
  }
  return stage_.expectAll(expectations, since, 10s, "told by their ends; counted from its death");
}

StepOutcome DemoTalk::measureDelivery(DemoRole& from, const std::vector<DemoRole*>& to) {
  std::vector<microseconds> delays;
  for (int i = 0; i < measuredPosts; ++i) {
    const std::int64_t value = ++posted_;
    std::vector<Expectation> expectations;
    for (const DemoRole* role : to) {
      expectations.push_back(
          {role->computerName, [role, value] { return findPosted(*role, passing, value); }});
    }
    const Instant cause = now();
    post(from, passing, value, false);
    const StepOutcome outcome = stage_.expectAll(expectations, cause, 5s, {});
    if (!outcome.succeeded) return outcome;
    for (const Expectation& expectation : expectations) {
      delays.push_back(between(cause, expectation.find()->arrival));
    }
  }
  std::sort(delays.begin(), delays.end());
  const microseconds median = delays[delays.size() / 2];
  const bool once = std::all_of(to.begin(), to.end(),
                                [](const DemoRole* role) { return count(*role, passing) == measuredPosts; });
  if (!once) return {false, median, "some arrived twice"};
  if (count(from, passing) != 0) return {false, median, from.computerName + " was told of its own posts"};
  return {true, median,
          fmt::format("median from command to event, {} posts to {}; slowest {:.2f} ms", measuredPosts,
                      to.size() == 1 ? "1 other" : fmt::format("{} others", to.size()),
                      static_cast<double>(delays.back().count()) / 1000.0)};
}

StepOutcome DemoTalk::keepLatest(DemoRole& from, DemoRole& witness) {
  const Instant cause = now();
  for (int i = 0; i < 3; ++i) post(from, kept, ++latest_, true);
  const auto latest = [&] { return findPosted(witness, kept, latest_); };
  if (!stage_.waitUntil([&] { return latest() != nullptr; }, 5s)) {
    return {false, between(cause, now()), witness.computerName + " was not told " + kept};
  }
  const FRXValue* stamp = latest()->members.member("timestamp");
  latestStamp_ = stamp == nullptr ? FRXValue() : *stamp;
  return {true, between(cause, latest()->arrival), {}};
}

StepOutcome DemoTalk::receiveLatest(DemoRole& from, DemoRole& late) {
  const Instant cause = late.node->startTime();
  const auto told = [&] { return findPosted(late, kept, latest_); };
  if (!stage_.waitUntil([&] { return told() != nullptr; }, 20s)) {
    return {false, between(cause, now()), late.computerName + " was not told " + kept};
  }
  // Whatever else was kept for it would arrive before what is posted now.
  const std::int64_t last = ++posted_;
  post(from, passing, last, false);
  if (!stage_.waitUntil([&] { return findPosted(late, passing, last) != nullptr; }, 5s)) {
    return {false, between(cause, now()), late.computerName + " is told nothing new"};
  }
  return checkLatest(late, cause);
}

StepOutcome DemoTalk::checkLatest(const DemoRole& late, Instant cause) const {
  const auto isOther = [this](const FRXValue& members) {
    const FRXValue* stamp = members.member("timestamp");
    return isNamed(members, kept) &&
           (!hasValue(members, latest_) || stamp == nullptr || *stamp != latestStamp_);
  };
  const Instant told = findPosted(late, kept, latest_)->arrival;
  if (DemoStage::find(late, "notification", cause, isOther) != nullptr) {
    return {false, between(cause, told), late.computerName + " was told more than the latest value"};
  }
  return {true, between(cause, told),
          fmt::format("{} was told value {} of {}, as it was posted; counted from its start",
                      late.computerName, latest_, latest_)};
}

void DemoTalk::post(DemoRole& from, const char* name, std::int64_t value, bool repost) {
  from.node->send(
      {{"cmd", "post"}, {"name", name}, {"userInfo", FRXDictionary{{"value", value}}}, {"repost", repost}});
}

const ChildEvent* DemoTalk::findPosted(const DemoRole& observer, const char* name, std::int64_t value) {
  return DemoStage::find(observer, "notification", {}, [&](const FRXValue& members) {
    return isNamed(members, name) && hasValue(members, value);
  });
}

std::size_t DemoTalk::count(const DemoRole& observer, const char* name) {
  const std::vector<ChildEvent>& events = observer.node->events();
  return static_cast<std::size_t>(
      std::count_if(events.begin(), events.end(), [name](const ChildEvent& event) {
        return event.name == "notification" && isNamed(event.members, name);
      }));
}

}  // namespace ferrox::command
