// What happens in the demonstration, step by step, each measured and each really checked.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "Apps/ferrox/Demo/DemoCopy.h"
#include "Apps/ferrox/Demo/DemoOffers.h"
#include "Apps/ferrox/Demo/DemoStage.h"
#include "Apps/ferrox/Demo/DemoTalk.h"
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

  bool step(const std::string& name, const std::string& title, const std::function<StepOutcome()>& action);
  bool meet();
  bool offer();
  bool join();
  bool lose();
  bool comeBack();
  bool takeHome();
  bool part();

  StepOutcome publish();
  StepOutcome findEachOther();
  StepOutcome resolve();
  StepOutcome answer();
  StepOutcome connect();
  StepOutcome fetchRecords();
  StepOutcome notify();
  StepOutcome hearHeartbeats();
  StepOutcome joinLate();
  StepOutcome catchUp();
  StepOutcome killLast();
  StepOutcome loseConnections();
  StepOutcome noticeSilence();
  StepOutcome removeDead();
  StepOutcome restart();
  StepOutcome findAgain();
  StepOutcome connectAgain();
  StepOutcome leavePolitely();
  StepOutcome endRest();

  StepOutcome expectOfFounders(std::string_view event, Instant cause, std::chrono::milliseconds timeout,
                               const std::string& detail);
  StepOutcome expectOfAllPairs(std::string_view event, std::chrono::milliseconds timeout,
                               const std::string& detail);
  StepOutcome published(DemoRole& role, std::chrono::milliseconds timeout);
  StepOutcome heartbeatOfLast();
  bool foundersKeptEachOther() const;
  StepOutcome connectLast();
  /// All but the one that joins late, and then is lost and comes back.
  std::vector<DemoRole*> founders() const;

  DemoStage& stage_;
  Story& story_;
  DemoTalk talk_;
  DemoOffers offers_;
  DemoCopy copy_;
  DemoRole& last_;
  Instant begun_;
  Instant killed_;
};

}  // namespace ferrox::command
