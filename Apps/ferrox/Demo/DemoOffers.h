// What the nodes of a demonstration offer each other: a stream and a project, listed and fetched.
#pragma once

#include <string>
#include <string_view>

#include "Apps/ferrox/Demo/DemoFolder.h"
#include "Apps/ferrox/Demo/DemoStage.h"
#include "Apps/ferrox/Demo/Story.h"

namespace ferrox::command {

/// Thread: one
class DemoOffers {
 public:
  explicit DemoOffers(DemoStage& stage) : stage_(stage) {}
  DemoOffers(const DemoOffers&) = delete;
  DemoOffers& operator=(const DemoOffers&) = delete;

  /// `from` offers a stream and a project; `to` hears of both by broadcasts.
  StepOutcome advertise(DemoRole& from, const DemoRole& to);
  /// `asking` lists its peers by a query and finds both at `offering`.
  StepOutcome list(DemoRole& asking, const DemoRole& offering);
  /// One segment of the listed stream, over HTTP, byte for byte what was offered.
  StepOutcome fetchSegment(const DemoRole& offering);

 private:
  using Instant = DemoStage::Instant;

  bool makeFiles();
  static const ChildEvent* broadcast(const DemoRole& to, std::string_view name, std::string_view member,
                                     Instant since);
  /// The URL of the offer of that name which `event`, a result of `list`, tells of `offering`; "" without
  /// one.
  static std::string urlIn(const ChildEvent& event, std::string_view capability, std::string_view name,
                           const DemoRole& offering);

  DemoStage& stage_;
  DemoFolder folder_;
  std::string segment_;
  std::string streamURL_;
};

}  // namespace ferrox::command
