#include "Apps/ferrox/Terminal/PeerLines.h"

#include <fmt/chrono.h>

#include "Apps/ferrox/Terminal/TextTable.h"

namespace ferrox::command {
namespace {

Tone toneOf(PeerState state) {
  switch (state) {
    case PeerState::Found:
      return Tone::Notice;
    case PeerState::Responsive:
      return Tone::Good;
    case PeerState::Unresponsive:
      return Tone::Bad;
  }
  return Tone::Plain;
}

std::string countText(const std::optional<std::size_t>& count) {
  return count ? std::to_string(*count) : "-";
}

}  // namespace

std::string clockText(std::chrono::system_clock::time_point time) {
  return fmt::format("{:%H:%M:%S}", fmt::localtime(std::chrono::system_clock::to_time_t(time)));
}

std::vector<std::string> peerLines(const std::vector<Peer>& peers, std::size_t width, const Style& style) {
  TextTable table({{"NAME", Align::Left, 10},
                   {"ADDRESS", Align::Left, 16},
                   {"STATE", Align::Left, 12},
                   {"SINCE", Align::Left, 8},
                   {"STREAMS", Align::Right, 7},
                   {"PROJECTS", Align::Right, 8}});
  for (const Peer& peer : peers) {
    table.addRow({{displayName(*peer.service), Tone::Strong},
                  {displayAddress(*peer.service)},
                  {std::string(toString(peer.state)), toneOf(peer.state)},
                  {clockText(peer.since)},
                  {countText(peer.streams)},
                  {countText(peer.projects)}});
  }
  return table.lines(width, style);
}

}  // namespace ferrox::command
