#include "Apps/ferrox/Terminal/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <cstdlib>

namespace ferrox::command {
namespace {

std::string_view environment(const char* name) {
  const char* value = std::getenv(name);
  return value == nullptr ? std::string_view() : std::string_view(value);
}

std::string_view codeOf(Tone tone) {
  switch (tone) {
    case Tone::Strong:
      return "\x1b[1m";
    case Tone::Dim:
      return "\x1b[2m";
    case Tone::Good:
      return "\x1b[32m";
    case Tone::Bad:
      return "\x1b[31m";
    case Tone::Notice:
      return "\x1b[33m";
    case Tone::Plain:
      break;
  }
  return {};
}

}  // namespace

bool isTerminal(int descriptor) { return isatty(descriptor) == 1; }

bool canRedraw(int descriptor) {
  const std::string_view kind = environment("TERM");
  return isTerminal(descriptor) && !kind.empty() && kind != "dumb";
}

TerminalSize terminalSize(int descriptor) {
  winsize size{};
  if (ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0 || size.ws_row == 0) return {};
  return {size.ws_col, size.ws_row};
}

Style Style::forDescriptor(int descriptor) {
  return Style(isTerminal(descriptor) && environment("NO_COLOR").empty() && environment("TERM") != "dumb");
}

std::string Style::operator()(Tone tone, std::string_view text) const {
  const std::string_view code = codeOf(tone);
  if (!coloured_ || code.empty()) return std::string(text);
  return std::string(code).append(text).append("\x1b[0m");
}

}  // namespace ferrox::command
