// One line on a terminal that tells how far a long work is.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace ferrox::command {

/// "45%  12 MB of 27 MB  98 MB/s"; without `total` only what is done and how quickly. No rate within
/// the first moment.
std::string progressText(std::uint64_t done, std::optional<std::uint64_t> total,
                         std::chrono::duration<double> elapsed);

/// Rewrites its line a few times a second and takes it away at the end. Silent on what is no terminal.
class ProgressLine {
 public:
  explicit ProgressLine(int descriptor);
  ~ProgressLine() { clear(); }
  ProgressLine(const ProgressLine&) = delete;
  ProgressLine& operator=(const ProgressLine&) = delete;

  void show(std::uint64_t done, std::optional<std::uint64_t> total);
  /// Any text, at once.
  void showText(std::string_view text);
  void clear();

 private:
  void write(std::string_view text) const;

  using Clock = std::chrono::steady_clock;
  const int descriptor_;
  const bool isShown_;
  bool hasLine_ = false;
  const Clock::time_point begun_ = Clock::now();
  Clock::time_point next_ = begun_;
};

}  // namespace ferrox::command
