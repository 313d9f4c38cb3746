#include "Apps/ferrox/Terminal/TerminalQuestion.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdint>
#include <cstdio>
#include <string_view>

namespace ferrox::command {

TerminalQuestion::TerminalQuestion() : withdrawn_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool TerminalQuestion::ask(const std::string& text) const {
  constexpr std::size_t longestAnswer = 256;
  fmt::print(stderr, "{} [y/N] ", text);
  std::fflush(stderr);
  std::string answer;
  for (;;) {
    std::array<pollfd, 2> sources{{{STDIN_FILENO, POLLIN, 0}, {withdrawn_.get(), POLLIN, 0}}};
    if (::poll(sources.data(), sources.size(), -1) < 0) {
      if (errno == EINTR) continue;
      return false;
    }
    if (sources[1].revents != 0) break;
    std::array<char, 64> piece{};
    const ssize_t count = ::read(STDIN_FILENO, piece.data(), piece.size());
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    answer.append(piece.data(), static_cast<std::size_t>(count));
    if (answer.find('\n') != std::string::npos || answer.size() > longestAnswer) {
      answer.resize(answer.find_last_not_of(" \t\r\n") + 1);
      return answer == "y" || answer == "Y" || answer == "yes";
    }
  }
  fmt::print(stderr, "\n");
  return false;
}

void TerminalQuestion::withdraw() const {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(withdrawn_.get(), &one, sizeof(one));
}

}  // namespace ferrox::command
