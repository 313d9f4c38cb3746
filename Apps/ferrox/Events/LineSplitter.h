// Cuts a stream of bytes into lines of bounded length.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

namespace ferrox::command {

/// Memory stays below the limit whatever comes in: a longer line is reported once, when it passes the limit,
/// and skipped to its end. A carriage return before the newline belongs to the line's end.
class LineSplitter {
 public:
  static constexpr std::size_t defaultLimit = std::size_t{1} << 20;

  struct Listener {
    std::function<void(std::string line)> onLine;
    std::function<void()> onTooLong;
  };

  explicit LineSplitter(Listener listener, std::size_t limit = defaultLimit)
      : listener_(std::move(listener)), limit_(limit) {}

  void feed(std::string_view bytes);
  /// The stream ended; a last line without a newline counts as one.
  void finish();

 private:
  void append(std::string_view piece);
  void endLine();

  Listener listener_;
  std::size_t limit_;
  std::string line_;
  bool skipping_ = false;
};

}  // namespace ferrox::command
