#include <gtest/gtest.h>

#include "Apps/ferrox/Terminal/LiveTable.h"
#include "Apps/ferrox/Terminal/TerminalText.h"
#include "Classes/Discovery/FRXNetService.h"

namespace ferrox::command {
namespace {

const auto noon = std::chrono::system_clock::from_time_t(1700000000);

Peer makePeer(const std::string& name, std::int64_t port, PeerState state) {
  Peer peer;
  peer.service = std::make_shared<FRXNetService>("suite-3.local.", port, "0123ABCD-MTIZ/" + name);
  peer.state = state;
  peer.since = noon;
  return peer;
}

LiveView makeView(std::size_t peers, std::size_t events) {
  LiveView view;
  view.node = {"0-1/ME", 16654, "Machine Room", "0", "embedded"};
  view.visible = true;
  for (std::size_t i = 0; i < peers; ++i) {
    view.peers.push_back(makePeer("EDIT SUITE " + std::to_string(i), 16654, PeerState::Responsive));
  }
  for (std::size_t i = 0; i < events; ++i) {
    view.events.push_back({noon, Tone::Plain, "event number " + std::to_string(i)});
  }
  return view;
}

bool contains(const std::vector<std::string>& lines, const std::string& text) {
  for (const std::string& line : lines) {
    if (line.find(text) != std::string::npos) return true;
  }
  return false;
}

void expectWithin(const std::vector<std::string>& lines, TerminalSize size) {
  EXPECT_LE(lines.size(), size.rows);
  for (const std::string& line : lines) EXPECT_LE(displayWidth(line), size.columns) << line;
}

TEST(LiveTable, ShowsNodePeersAndEventsOnAnUsualTerminal) {
  LiveView view = makeView(2, 3);
  view.peers[1].state = PeerState::Unresponsive;
  view.peers[0].streams = 2;
  view.peers[0].projects = 1;
  const auto lines = renderLiveView(view, {80, 24}, Style(false));
  expectWithin(lines, {80, 24});
  EXPECT_EQ(lines[0], "Machine Room  port 16654 · embedded discovery · visible to others");
  EXPECT_EQ(lines[2].substr(0, 4), "NAME");
  EXPECT_TRUE(contains(lines, "EDIT SUITE 0"));
  EXPECT_TRUE(contains(lines, "suite-3.local:16654"));
  EXPECT_TRUE(contains(lines, "unresponsive"));
  EXPECT_TRUE(contains(lines, "2 peers"));
  EXPECT_TRUE(contains(lines, "event number 2"));
}

TEST(LiveTable, UsesAWideTerminalWithoutCutting) {
  LiveView view = makeView(1, 1);
  view.peers[0] = makePeer("THE VERY LONG NAME OF A MACHINE IN ROOM 417", 16654, PeerState::Found);
  const auto wide = renderLiveView(view, {200, 50}, Style(false));
  expectWithin(wide, {200, 50});
  EXPECT_TRUE(contains(wide, "THE VERY LONG NAME OF A MACHINE IN ROOM 417  suite-3.local:16654  found"));
  const auto narrow = renderLiveView(view, {80, 50}, Style(false));
  expectWithin(narrow, {80, 50});
  EXPECT_TRUE(contains(narrow, "…"));
}

TEST(LiveTable, KeepsLatestEventsVisibleBelowManyPeers) {
  const auto lines = renderLiveView(makeView(100, 50), {80, 24}, Style(false));
  expectWithin(lines, {80, 24});
  EXPECT_TRUE(contains(lines, "16 of 100 peers"));
  EXPECT_TRUE(contains(lines, "event number 49"));
}

TEST(LiveTable, ShowsThoseWithoutAConnectionFirstWhereNotAllFit) {
  LiveView view = makeView(60, 0);
  for (Peer& peer : view.peers) peer.connectedSince = noon;
  view.peers[40].state = PeerState::Unresponsive;
  view.peers[59].connectedSince.reset();
  const auto few = renderLiveView(view, {80, 24}, Style(false));
  EXPECT_EQ(few[3].substr(0, 13), "EDIT SUITE 40");
  EXPECT_EQ(few[4].substr(0, 13), "EDIT SUITE 59");
  EXPECT_EQ(few[5].substr(0, 12), "EDIT SUITE 0");
  const auto all = renderLiveView(view, {80, 80}, Style(false));
  EXPECT_EQ(all[3].substr(0, 12), "EDIT SUITE 0");
  EXPECT_TRUE(contains(all, "60 peers · Ctrl-C"));
}

TEST(LiveTable, SaysThatItLooksForPeersByAddressOnly) {
  LiveView view = makeView(0, 0);
  view.node.discovery = "off";
  EXPECT_EQ(renderLiveView(view, {80, 24}, Style(false))[0],
            "Machine Room  port 16654 · peers by address only");
}

TEST(LiveTable, FitsAnyScreen) {
  for (std::size_t rows = 1; rows < 12; ++rows) {
    for (const std::size_t columns : {1U, 9U, 12U, 20U}) {
      expectWithin(renderLiveView(makeView(3, 5), {columns, rows}, Style(false)), {columns, rows});
    }
  }
}

TEST(LiveTable, EscapesPeerSuppliedText) {
  LiveView view = makeView(0, 0);
  view.peers.push_back(makePeer("X\x1b]0;OWNED\x07", 1, PeerState::Found));
  view.events.push_back({noon, Tone::Plain, "found X\x1b[2J"});
  for (const std::string& line : renderLiveView(view, {200, 24}, Style(false))) {
    EXPECT_EQ(line.find('\x1b'), std::string::npos) << line;
    EXPECT_EQ(line.find('\x07'), std::string::npos) << line;
  }
}

TEST(LiveTable, SaysThatNobodyIsThere) {
  EXPECT_TRUE(contains(renderLiveView(makeView(0, 0), {80, 24}, Style(false)), "nobody else is here yet"));
}

}  // namespace
}  // namespace ferrox::command
