// How the demonstration is told: one line a step, or one JSON object a step.
#pragma once

#include <chrono>
#include <optional>
#include <string>

#include "Apps/ferrox/Terminal/Terminal.h"

namespace ferrox::command {

struct StepOutcome {
  bool succeeded = false;
  /// From the step's cause (a start, a kill) to its last effect.
  std::chrono::microseconds elapsed{0};
  /// What was seen, or what was missing.
  std::string detail;
};

class Story {
 public:
  Story(bool json, int descriptor);

  void begin(const std::string& headline);
  /// A step is under way; on a terminal its line shows that until the outcome replaces it.
  void stepBegins(const std::string& name, const std::string& title);
  void stepEnds(const StepOutcome& outcome);
  void end(bool succeeded, std::chrono::microseconds elapsed, const std::string& closing);

  /// One finished line of the story, `columns` wide at most.
  static std::string line(const StepOutcome& outcome, const std::string& title, std::size_t columns,
                          const Style& style);

 private:
  void print(const std::string& text) const;

  bool json_;
  int descriptor_;
  bool live_;
  Style style_;
  std::string name_;
  std::string title_;
};

}  // namespace ferrox::command
