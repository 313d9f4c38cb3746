#include "Apps/ferrox/Terminal/LiveTable.h"

#include <fmt/format.h>

#include <algorithm>

#include "Apps/ferrox/Terminal/PeerLines.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

constexpr std::size_t leastEventLines = 3;

std::string headline(const LiveView& view, std::size_t width, const Style& style) {
  const std::string name = shortened(escapedForTerminal(view.node.computerName), width);
  const std::string rest = fmt::format("  port {} · {} discovery · {}", view.node.port, view.node.discovery,
                                       view.visible ? "visible to others" : "announcing");
  return style(Tone::Strong, name) +
         style(Tone::Dim, shortened(rest, width - std::min(width, displayWidth(name))));
}

std::string peerCount(std::size_t count) {
  return count == 0 ? "nobody else is here yet" : count == 1 ? "1 peer" : fmt::format("{} peers", count);
}

std::string eventText(const LiveView::Event& event, std::size_t width, const Style& style) {
  const std::string time = clockText(event.time);
  if (width <= time.size() + 2) return shortened(time, width);
  return style(Tone::Dim, time) + "  " +
         style(event.tone, shortened(escapedForTerminal(event.text), width - time.size() - 2));
}

}  // namespace

std::vector<std::string> renderLiveView(const LiveView& view, TerminalSize size, const Style& style) {
  std::vector<std::string> lines{headline(view, size.columns, style), ""};
  if (!view.peers.empty()) {
    std::vector<std::string> table = peerLines(view.peers, size.columns, style);
    // Headline, blank, heading, count, blank, and some events must stay visible.
    const std::size_t taken = 5 + leastEventLines;
    const std::size_t room = size.rows > taken ? size.rows - taken : 1;
    if (table.size() - 1 > room) table.resize(room + 1);
    lines.insert(lines.end(), table.begin(), table.end());
  }
  lines.push_back(style(Tone::Dim, shortened(peerCount(view.peers.size()) + " · Ctrl-C ends", size.columns)));
  lines.emplace_back();
  const std::size_t room = size.rows > lines.size() ? size.rows - lines.size() : 0;
  const std::size_t count = std::min(room, view.events.size());
  for (auto event = view.events.end() - static_cast<std::ptrdiff_t>(count); event != view.events.end();
       ++event) {
    lines.push_back(eventText(*event, size.columns, style));
  }
  if (lines.size() > size.rows) lines.resize(size.rows);
  return lines;
}

}  // namespace ferrox::command
