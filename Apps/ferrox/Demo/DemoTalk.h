// What the nodes of a demonstration have to do with each other once they met: connections, and what is sent.
#pragma once

#include <chrono>
#include <string>
#include <vector>

#include "Apps/ferrox/Demo/DemoStage.h"
#include "Apps/ferrox/Demo/Story.h"

namespace ferrox::command {

/// Thread: one
class DemoTalk {
 public:
  using Instant = DemoStage::Instant;

  /// Posted once, for those who are there.
  static constexpr const char* passing = "TakeReady";
  /// Posted to be kept for those who come later.
  static constexpr const char* kept = "CurrentReel";

  explicit DemoTalk(DemoStage& stage) : stage_(stage) {}

  /// Every one of `roles` opened a connection to every other after `since`; with `about`, only pairs that it
  /// belongs to count.
  StepOutcome connectAll(const std::vector<DemoRole*>& roles, Instant since, const std::string& detail,
                         const DemoRole* about = nullptr);
  /// Every observer's connection to `lost` ended after `since`.
  StepOutcome loseConnections(const std::vector<DemoRole*>& observers, const DemoRole& lost, Instant since);
  /// Posts one notification after another; the time is the median from the command to the event. Each has to
  /// arrive once everywhere, and not at its poster.
  StepOutcome measureDelivery(DemoRole& from, const std::vector<DemoRole*>& to);
  /// Posts some values of which only the latest is kept; `witness` has to see them all.
  StepOutcome keepLatest(DemoRole& from, DemoRole& witness);
  /// `late` was told the latest value, as it was first posted, and no other.
  StepOutcome receiveLatest(DemoRole& from, DemoRole& late);

 private:
  static void post(DemoRole& from, const char* name, std::int64_t value, bool repost);
  /// The first that was seen.
  static const ChildEvent* findPosted(const DemoRole& observer, const char* name, std::int64_t value);
  static std::size_t count(const DemoRole& observer, const char* name);
  StepOutcome checkLatest(const DemoRole& late, Instant cause) const;

  DemoStage& stage_;
  std::int64_t posted_ = 0;
  std::int64_t latest_ = 0;
  /// When the latest value was posted, as its poster stamped it.
  FRXValue latestStamp_;
};

}  // namespace ferrox::command
