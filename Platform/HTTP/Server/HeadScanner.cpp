#include "Platform/HTTP/Server/HeadScanner.h"

#include <cstring>

namespace ferrox {

namespace {

constexpr std::size_t maxLeadingBytes = 8;

bool holds(std::string_view line, char byte) {
  return !line.empty() && std::memchr(line.data(), byte, line.size()) != nullptr;
}

}  // namespace

HeadScanner::Outcome HeadScanner::refuse(int status) {
  refusal_ = status;
  return Outcome::Refused;
}

HeadScanner::Outcome HeadScanner::scan(std::string_view bytes) {
  while (position_ < bytes.size()) {
    const void* found = std::memchr(bytes.data() + position_, '\n', bytes.size() - position_);
    const std::size_t end = found == nullptr
                                ? bytes.size()
                                : static_cast<std::size_t>(static_cast<const char*>(found) - bytes.data());
    // Size comes first, so that the answer does not depend on how much of a line has arrived.
    if (const int status = judgeSize(end - position_); status != 0) return refuse(status);
    if (found == nullptr) return Outcome::NeedMore;
    if (end == position_ || bytes[end - 1] != '\r') return refuse(400);
    const std::string_view line = bytes.substr(position_, end - 1 - position_);
    const bool blank = line.empty();
    position_ = end + 1;
    if (blank && lineCount_ == 0) {
      leadingBytes_ = position_;
      if (leadingBytes_ > maxLeadingBytes) return refuse(400);
      continue;
    }
    if (blank) return Outcome::Complete;
    if (!takeLine(line)) return Outcome::Refused;
  }
  return Outcome::NeedMore;
}

bool HeadScanner::takeLine(std::string_view line) {
  const auto fail = [this](int status) {
    refusal_ = status;
    return false;
  };
  if (lineCount_++ == 0) {
    firstLineEnd_ = position_;
    if (line.size() > limits_.requestLine) return fail(414);
    return holds(line, '\r') || holds(line, '\0') ? fail(400) : true;
  }
  if (position_ - firstLineEnd_ > limits_.headerBlock) return fail(431);
  if (holds(line, '\r') || holds(line, '\0')) return fail(400);
  // A folded line (RFC 9112 section 5.2).
  if (line.front() == ' ' || line.front() == '\t') return fail(400);
  return lineCount_ - 1 <= limits_.headerCount ? true : fail(431);
}

int HeadScanner::judgeSize(std::size_t size) const {
  if (lineCount_ == 0) return size > limits_.requestLine + 1 ? 414 : 0;
  return position_ - firstLineEnd_ + size > limits_.headerBlock + 1 ? 431 : 0;
}

}  // namespace ferrox
