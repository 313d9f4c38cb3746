// One thing that was tried with a peer, how long it took, and how it ended.
#pragma once

#include <chrono>
#include <optional>
#include <string>

namespace ferrox::command {

/// From `begin()` to the first of `succeed()` and `fail()`.
class Attempt {
 public:
  void begin() { begun_ = std::chrono::steady_clock::now(); }
  void succeed() { end(std::nullopt); }
  void fail(std::string problem) { end(std::move(problem)); }

  bool wasMade() const { return begun_.has_value(); }
  bool isOver() const { return ended_.has_value(); }
  bool succeeded() const { return isOver() && !problem_; }
  /// Empty unless it failed.
  std::string problem() const { return problem_.value_or(""); }
  /// As far as it has got.
  std::chrono::microseconds elapsed() const {
    if (!begun_) return std::chrono::microseconds(0);
    return std::chrono::duration_cast<std::chrono::microseconds>(
        ended_.value_or(std::chrono::steady_clock::now()) - *begun_);
  }

 private:
  void end(std::optional<std::string> problem) {
    if (!begun_ || ended_) return;
    ended_ = std::chrono::steady_clock::now();
    problem_ = std::move(problem);
  }

  std::optional<std::chrono::steady_clock::time_point> begun_;
  std::optional<std::chrono::steady_clock::time_point> ended_;
  std::optional<std::string> problem_;
};

}  // namespace ferrox::command
