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
  const std::string found = view.node.discovery == "off" ? "peers by address only"
                            : view.visible ? view.node.discovery + " discovery · visible to others"
                                           : view.node.discovery + " discovery · announcing";
  const std::string rest = fmt::format("  port {} · {}", view.node.port, found);
  return style(Tone::Strong, name) +
         style(Tone::Dim, shortened(rest, width - std::min(width, displayWidth(name))));
}

std::string peerCount(std::size_t count, std::size_t shown) {
  if (count == 0) return "nobody else is here yet";
  if (shown < count) return fmt::format("{} of {} peers, those without a connection first", shown, count);
  return count == 1 ? "1 peer" : fmt::format("{} peers", count);
}

// All of them where they fit. Else those that need a look come first.
std::vector<Peer> peersToShow(const std::vector<Peer>& all, std::size_t rows) {
  // Headline, blank, heading, count, blank, and some events must stay visible.
  const std::size_t taken = 5 + leastEventLines;
  const std::size_t room = rows > taken ? rows - taken : 1;
  std::vector<Peer> peers = all;
  if (peers.size() > room) {
    std::stable_partition(peers.begin(), peers.end(), [](const Peer& peer) { return !isConnected(peer); });
    peers.erase(peers.begin() + static_cast<std::ptrdiff_t>(room), peers.end());
  }
  return peers;
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
  const std::vector<Peer> peers = peersToShow(view.peers, size.rows);
  if (!peers.empty()) {
    const std::vector<std::string> table = peerLines(peers, size.columns, style);
    lines.insert(lines.end(), table.begin(), table.end());
  }
  lines.push_back(style(
      Tone::Dim, shortened(peerCount(view.peers.size(), peers.size()) + " · Ctrl-C ends", size.columns)));
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
