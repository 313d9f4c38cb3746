// What happens in the demonstration, step by step, each measured and each really checked.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "Apps/ferrox/Demo/DemoStage.h"
#include "Apps/ferrox/Demo/Story.h"

namespace ferrox::command {

/// Thread: one
class DemoScript {
 public:
  DemoScript(DemoStage& stage, Story& story);

  /// Plays all steps, or up to the first that fails; an exit code.
  int play();

 private:
  using Instant = DemoStage::Instant;
  struct Expectation {
    std::string what;
    std::function<const ChildEvent*()> find;
  };

  bool step(const std::string& name, const std::string& title, const std::function<StepOutcome()>& action);
  bool meet();
  bool lose();
  bool part();

  StepOutcome publish();
  StepOutcome findEachOther();
  StepOutcome resolve();
  StepOutcome answer();
  StepOutcome fetchRecords();
  StepOutcome hearHeartbeats();
  StepOutcome killLast();
  StepOutcome noticeSilence();
  StepOutcome removeDead();
  StepOutcome restart();
  StepOutcome findAgain();
  StepOutcome leavePolitely();
  StepOutcome endRest();

  StepOutcome expectAll(const std::vector<Expectation>& expectations, Instant cause,
                        std::chrono::milliseconds timeout, const std::string& detail);
  StepOutcome expectOfSurvivors(std::string_view event, Instant cause, std::chrono::milliseconds timeout,
                                const std::string& detail);
  StepOutcome expectOfAllPairs(std::string_view event, std::chrono::milliseconds timeout,
                               const std::string& detail);
  StepOutcome published(DemoRole& role, std::chrono::milliseconds timeout);
  StepOutcome heartbeatOfLast();
  bool survivorsKeptEachOther() const;
  std::vector<DemoRole*> survivors() const;

  DemoStage& stage_;
  Story& story_;
  DemoRole& last_;
  Instant begun_;
  Instant killed_;
};

}  // namespace ferrox::command
