// Finds the end of a request's header, line by line, and refuses lines that no honest client sends.
#pragma once

#include <cstddef>
#include <string_view>

#include "Platform/HTTP/Server/HTTPServerLimits.h"

namespace ferrox {

/// Line ends, folded lines and sizes are judged here, before any parsing: two readers of one message that
/// disagree about these disagree about where it ends (RFC 9112 section 11.2).
class HeadScanner {
 public:
  enum class Outcome { NeedMore, Complete, Refused };

  explicit HeadScanner(const HTTPServerLimits& limits) : limits_(limits) {}

  /// `bytes` starts where the head does and holds what was scanned before.
  Outcome scan(std::string_view bytes);
  /// Size of the head including its blank line, once complete.
  std::size_t headSize() const { return position_; }
  /// Blank lines before the request line, which are to be overlooked (RFC 9112 section 2.2).
  std::size_t leadingBytes() const { return leadingBytes_; }
  /// The status to refuse with.
  int refusal() const { return refusal_; }
  void reset() { position_ = leadingBytes_ = lineCount_ = firstLineEnd_ = 0; }

 private:
  Outcome refuse(int status);
  bool takeLine(std::string_view line);
  /// The status for a line of which `size` bytes are there, its end apart; 0 while it may still fit. The last
  /// byte may be half a line end.
  int judgeSize(std::size_t size) const;

  const HTTPServerLimits& limits_;
  std::size_t position_ = 0;
  std::size_t leadingBytes_ = 0;
  std::size_t lineCount_ = 0;
  std::size_t firstLineEnd_ = 0;
  int refusal_ = 0;
};

}  // namespace ferrox
