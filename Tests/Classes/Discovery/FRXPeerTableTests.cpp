#include <gtest/gtest.h>

#include "Classes/Discovery/FRXNetService.h"
#include "Classes/Discovery/FRXPeerTable.h"

namespace ferrox::test {
namespace {

std::shared_ptr<FRXNetService> record(const std::string& host, std::int64_t port, const std::string& name) {
  return std::make_shared<FRXNetService>(host, port, name);
}

TEST(FRXPeerTableTest, ARecordOfTheSameHostAndPortStaysAsItIs) {
  FRXPeerTable table;
  const auto first = record("a", 1, "FIRST");
  const auto second = record("A", 1, "SECOND");
  EXPECT_TRUE(table.add(first));
  EXPECT_TRUE(table.add(second));
  EXPECT_EQ(table.services().size(), 1U);
  EXPECT_EQ(table.find(*second), first);
}

TEST(FRXPeerTableTest, ANameFollowsItsLatestRecord) {
  FRXPeerTable table;
  table.add(record("a", 1, "N"));
  table.mapName(*record("a", 1, "N"));
  table.add(record("b", 2, "N"));
  table.mapName(*record("b", 2, "N"));
  EXPECT_EQ(table.idForServiceName("n"), "B:2");
  EXPECT_EQ(table.serviceWithId("n")->serviceId(), "B:2");
  table.mapName(FRXNetService("c", 3, std::nullopt));
  EXPECT_EQ(table.idForServiceName(""), std::nullopt);
}

TEST(FRXPeerTableTest, AFullTableRefusesNewPeersAndKeepsKnownOnes) {
  FRXPeerTable table;
  for (std::size_t i = 0; i < FRXPeerTable::maxServices; ++i) {
    ASSERT_TRUE(table.add(record("h" + std::to_string(i), 1, "N")));
  }
  EXPECT_FALSE(table.add(record("one-more", 1, "N")));
  EXPECT_TRUE(table.add(record("h0", 1, "N")));
  table.remove(*record("h0", 1, "N"));
  EXPECT_TRUE(table.add(record("one-more", 1, "N")));
}

TEST(FRXPeerTableTest, NamesOfForgottenPeersMakeRoomForNewOnes) {
  FRXPeerTable table;
  const auto known = record("known", 1, "KNOWN");
  table.add(known);
  table.mapName(*known);
  for (std::size_t i = 0; i < FRXPeerTable::maxNames + 10; ++i) {
    table.mapName(*record("gone", 1, "G" + std::to_string(i)));
  }
  EXPECT_EQ(table.idForServiceName("KNOWN"), "KNOWN:1");
  EXPECT_EQ(table.idForServiceName("G0"), std::nullopt);
  EXPECT_EQ(table.idForServiceName("G" + std::to_string(FRXPeerTable::maxNames + 9)), "GONE:1");
}

}  // namespace
}  // namespace ferrox::test
