#include "Apps/ferrox/Demo/Story.h"

#include <fmt/format.h>

#include <algorithm>

#include "Apps/ferrox/Commands/Report.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

constexpr std::size_t titleColumns = 22;
constexpr std::size_t timeColumns = 9;

double millisecondsOf(std::chrono::microseconds time) { return static_cast<double>(time.count()) / 1000.0; }

std::string durationText(std::chrono::microseconds time) {
  const double milliseconds = millisecondsOf(time);
  if (milliseconds < 10.0) return fmt::format("{:.2f} ms", milliseconds);
  return milliseconds < 1000.0 ? fmt::format("{:.0f} ms", milliseconds)
                               : fmt::format("{:.2f} s", milliseconds / 1000.0);
}

}  // namespace

Story::Story(bool json, int descriptor)
    : json_(json),
      descriptor_(descriptor),
      live_(!json && isTerminal(descriptor)),
      style_(Style::forDescriptor(descriptor)) {}

void Story::begin(const std::string& headline) {
  if (!json_) print("\n  " + style_(Tone::Strong, escapedForTerminal(headline)) + "\n\n");
}

void Story::stepBegins(const std::string& name, const std::string& title) {
  name_ = name;
  title_ = title;
  if (live_) print(style_(Tone::Dim, "  …  " + fitted(title_, titleColumns)));
}

void Story::stepEnds(const StepOutcome& outcome) {
  if (json_) {
    reportEvent("step", {{"step", name_},
                         {"ok", outcome.succeeded},
                         {"milliseconds", millisecondsOf(outcome.elapsed)},
                         {"detail", outcome.detail}});
    return;
  }
  const std::size_t columns = live_ ? terminalSize(descriptor_).columns : 200;
  print((live_ ? "\r\x1b[K" : "") + line(outcome, title_, columns, style_) + "\n");
}

std::string Story::line(const StepOutcome& outcome, const std::string& title, std::size_t columns,
                        const Style& style) {
  const std::string tick = outcome.succeeded ? style(Tone::Good, "✓") : style(Tone::Bad, "✗");
  const std::size_t used = 2 + 1 + 2 + titleColumns + timeColumns + 3;
  const std::string detail =
      shortened(escapedForTerminal(outcome.detail), columns > used ? columns - used : 1);
  return fmt::format("  {}  {}{}   {}", tick, fitted(title, titleColumns),
                     style(Tone::Strong, fitted(durationText(outcome.elapsed), timeColumns, Align::Right)),
                     style(outcome.succeeded ? Tone::Dim : Tone::Bad, detail));
}

void Story::end(bool succeeded, std::chrono::microseconds elapsed, const std::string& closing) {
  if (json_) {
    reportEvent("demo", {{"ok", succeeded}, {"milliseconds", millisecondsOf(elapsed)}, {"detail", closing}});
    return;
  }
  print(fmt::format("\n  {}  {}\n\n",
                    style_(succeeded ? Tone::Good : Tone::Bad, succeeded ? "Done." : "Failed."),
                    escapedForTerminal(closing)));
}

void Story::print(const std::string& text) const { reportText(text); }

}  // namespace ferrox::command
