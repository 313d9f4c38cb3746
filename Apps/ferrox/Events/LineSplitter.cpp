#include "Apps/ferrox/Events/LineSplitter.h"

#include <utility>

namespace ferrox::command {

void LineSplitter::feed(std::string_view bytes) {
  while (!bytes.empty()) {
    const std::size_t newline = bytes.find('\n');
    append(bytes.substr(0, newline));
    if (newline == std::string_view::npos) return;
    endLine();
    bytes.remove_prefix(newline + 1);
  }
}

void LineSplitter::finish() {
  if (!line_.empty() || skipping_) endLine();
}

void LineSplitter::append(std::string_view piece) {
  if (skipping_) return;
  if (line_.size() + piece.size() <= limit_) {
    line_ += piece;
    return;
  }
  skipping_ = true;
  std::string().swap(line_);
  listener_.onTooLong();
}

void LineSplitter::endLine() {
  std::string line = std::exchange(line_, {});
  if (std::exchange(skipping_, false)) return;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  listener_.onLine(std::move(line));
}

}  // namespace ferrox::command
