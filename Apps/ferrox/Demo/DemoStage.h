// The nodes of a demonstration, and waiting for what they report.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Apps/ferrox/Demo/ChildNode.h"
#include "Apps/ferrox/Demo/DemoTime.h"
#include "Apps/ferrox/Demo/Story.h"

namespace ferrox::command {

/// One part that is played: an identity that outlives the processes which take it.
struct DemoRole {
  std::string computerName;
  std::string deviceUUID;
  std::unique_ptr<ChildNode> node;

  /// As the running node reported them.
  std::string serviceName;
  std::int64_t port = 0;
};

struct DemoPair {
  const DemoRole* observer;
  const DemoRole* subject;
};

/// Each with each other, in both directions.
std::vector<DemoPair> pairsOf(const std::vector<DemoRole*>& roles);

/// Something that has to be reported, and by whom.
struct Expectation {
  std::string what;
  std::function<const ChildEvent*()> find;
};

/// Thread: one
class DemoStage {
 public:
  using Instant = DemoInstant;

  /// Every node observes the notifications named in `observations`.
  DemoStage(std::size_t roles, std::vector<std::string> interfaces, std::string logLevel,
            std::vector<std::string> observations);
  ~DemoStage();
  DemoStage(const DemoStage&) = delete;
  DemoStage& operator=(const DemoStage&) = delete;

  std::vector<DemoRole>& roles() { return roles_; }

  /// False with `problem` when the process cannot be started.
  [[nodiscard]] bool start(DemoRole& role, std::string& problem);

  /// Takes in events until `done` holds; false when the time is over or a signal came. `done` is asked after
  /// each arrival.
  [[nodiscard]] bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout);
  /// Waits for all of them; the time runs from `cause` to the last. A failure names what is missing.
  StepOutcome expectAll(const std::vector<Expectation>& expectations, Instant cause,
                        std::chrono::milliseconds timeout, const std::string& detail);
  bool interrupted() const { return interrupted_; }

  /// The first event of that name that `observer` reported after `since` and that `matches`.
  static const ChildEvent* find(const DemoRole& observer, std::string_view event, Instant since,
                                const std::function<bool(const FRXValue&)>& matches = {});
  /// The same for an event whose service carries the name of `subject`.
  static const ChildEvent* findAbout(const DemoRole& observer, std::string_view event, Instant since,
                                     const DemoRole& subject);

 private:
  void takeIn(std::chrono::milliseconds atMost);

  std::vector<std::string> interfaces_;
  std::string logLevel_;
  std::vector<std::string> observations_;
  std::vector<DemoRole> roles_;
  int signals_;
  bool interrupted_ = false;
};

}  // namespace ferrox::command
