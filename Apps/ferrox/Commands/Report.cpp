#include "Apps/ferrox/Commands/Report.h"

#include <fmt/format.h>

#include <chrono>
#include <cstdio>

#include "Apps/ferrox/Events/EventWriter.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {

int reportText(std::string_view text) {
  const bool written = std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
  return written && std::fflush(stdout) == 0 ? ExitDone : ExitFailed;
}

int reportEvent(std::string_view event, const FRXDictionary& members) {
  return reportText(eventLine(event, members, std::chrono::system_clock::now()));
}

int reportFailure(bool json, std::string_view reason) {
  fmt::print(stderr, "ferrox: {}\n", escapedForTerminal(reason));
  if (json) reportEvent("error", {{"message", reason}});
  return ExitFailed;
}

}  // namespace ferrox::command
