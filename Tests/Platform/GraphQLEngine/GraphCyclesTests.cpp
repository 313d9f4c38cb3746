#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <vector>

#include "Platform/GraphQLEngine/GraphCycles.h"

namespace ferrox::graphql {
namespace {

TEST(GraphCycles, OnlyNodesThatLeadBackToThemselvesAreOnCycles) {
  EXPECT_EQ(nodesOnCycles({}), std::vector<bool>());
  EXPECT_EQ(nodesOnCycles({{}, {1}, {0, 1}}), (std::vector<bool>{false, true, false}));
  // 0 leads into the cycle of 1, 2 and 3, which leads to 4.
  EXPECT_EQ(nodesOnCycles({{1}, {2}, {3, 4}, {1}, {}}), (std::vector<bool>{false, true, true, true, false}));
}

TEST(GraphCycles, CyclesThatShareANodeAreAllSeen) {
  EXPECT_EQ(nodesOnCycles({{1, 2}, {0}, {3}, {0}, {0}}), (std::vector<bool>{true, true, true, true, false}));
}

TEST(GraphCycles, WaysThatMeetAgainAreNoCycle) {
  EXPECT_EQ(nodesOnCycles({{1, 2}, {3}, {3}, {}}), std::vector<bool>(4, false));
}

TEST(GraphCycles, LongWaysNeedNoStack) {
  constexpr std::size_t length = 200'000;
  Graph chain(length);
  for (std::size_t i = 0; i + 1 < length; ++i) chain[i] = {i + 1};
  EXPECT_EQ(nodesOnCycles(chain), std::vector<bool>(length, false));
  chain.back() = {0};
  EXPECT_EQ(nodesOnCycles(chain), std::vector<bool>(length, true));
}

}  // namespace
}  // namespace ferrox::graphql
