#include <gtest/gtest.h>

#include "Apps/ferrox/Node/PeerTable.h"
#include "Classes/Discovery/FRXNetService.h"

namespace ferrox::command {
namespace {

const auto early = std::chrono::system_clock::from_time_t(1000);
const auto late = std::chrono::system_clock::from_time_t(2000);

std::shared_ptr<FRXNetService> record(const std::string& name, std::int64_t port = 16654) {
  return std::make_shared<FRXNetService>("mac.local.", port, name);
}

TEST(PeerTable, ToleratesASecondReportOfAPeer) {
  PeerTable table;
  EXPECT_TRUE(table.add(record("A-1/X"), early));
  EXPECT_FALSE(table.add(record("A-1/X"), late));
  EXPECT_EQ(table.size(), 1U);
  EXPECT_EQ(table.sorted()[0].since, early);
}

TEST(PeerTable, APeerThatCameBackUnderAnotherNameIsNew) {
  PeerTable table;
  table.add(record("A-1/X"), early);
  table.setState(*record("A-1/X"), PeerState::Responsive, early);
  EXPECT_TRUE(table.add(record("A-2/X"), late));
  EXPECT_EQ(table.size(), 1U);
  EXPECT_EQ(table.find(*record("A-2/X"))->state, PeerState::Found);
}

TEST(PeerTable, OnlyAChangeOfStateMovesItsTime) {
  PeerTable table;
  table.add(record("A-1/X"), early);
  EXPECT_TRUE(table.setState(*record("A-1/X"), PeerState::Responsive, early));
  EXPECT_FALSE(table.setState(*record("A-1/X"), PeerState::Responsive, late));
  EXPECT_EQ(table.find(*record("A-1/X"))->since, early);
  EXPECT_FALSE(table.setState(*record("A-1/X", 1), PeerState::Responsive, late)) << "not known";
}

TEST(PeerTable, NotesWhenAConnectionOpenedAndThatItEnded) {
  PeerTable table;
  const std::string id = record("A-1/X")->serviceId();
  EXPECT_FALSE(table.setConnected(id, early)) << "not known";
  table.add(record("A-1/X"), early);
  EXPECT_FALSE(table.setConnected(id, std::nullopt)) << "it was not connected";
  EXPECT_TRUE(table.setConnected(id, late));
  EXPECT_EQ(table.find(id)->connectedSince, late);
  table.add(record("A-2/X"), late);
  EXPECT_EQ(table.find(id)->connectedSince, late) << "a new name does not change the connection";
  EXPECT_TRUE(table.setConnected(id, std::nullopt));
  EXPECT_FALSE(table.find(id)->connectedSince);
}

TEST(PeerTable, SortsNamesAsPeopleCount) {
  PeerTable table;
  int port = 1;
  for (const char* name : {"A-1/SUITE 10", "B-1/SUITE 9", "C-1/SUITE 1", "D-1/BOOTH"}) {
    table.add(record(name, port++), early);
  }
  std::vector<std::string> names;
  for (const Peer& peer : table.sorted()) names.push_back(displayName(*peer.service));
  EXPECT_EQ(names, (std::vector<std::string>{"BOOTH", "SUITE 1", "SUITE 9", "SUITE 10"}));
}

TEST(PeerTable, ForgetsARemovedPeer) {
  PeerTable table;
  table.add(record("A-1/X"), early);
  EXPECT_TRUE(table.remove(*record("A-1/X")));
  EXPECT_FALSE(table.remove(*record("A-1/X")));
  EXPECT_TRUE(table.empty());
}

TEST(PeerTable, IsSortedByTheNamePeopleSee) {
  PeerTable table;
  table.add(record("A-1/ZEBRA", 1), early);
  table.add(record("B-1/APE", 2), early);
  EXPECT_EQ(displayName(*table.sorted()[0].service), "APE");
}

TEST(Peer, IsShownByNameAndAddress) {
  EXPECT_EQ(displayName(*record("A-1/EDIT SUITE")), "EDIT SUITE");
  EXPECT_EQ(displayName(FRXNetService(std::nullopt, 0, std::nullopt)), "?");
  EXPECT_EQ(displayAddress(*record("A-1/X")), "mac.local:16654");
  EXPECT_EQ(displayAddress(*FRXPeerAddress::make("fe80::1", 7)), "[fe80::1]:7");
}

}  // namespace
}  // namespace ferrox::command
