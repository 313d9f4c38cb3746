#include <gtest/gtest.h>

#include "Classes/Monitor/CheckedHostName.h"

namespace ferrox::test {
namespace {

TEST(CheckedHostNameTests, LowerCaseLocalLosesItsDotEverywhere) {
  EXPECT_EQ(checkedHostName("peer.local."), "peer.local");
  EXPECT_EQ(checkedHostName("local.peer.local."), "localpeer.local");
  EXPECT_EQ(checkedHostName("local.local."), "locallocal");
  EXPECT_EQ(checkedHostName("local.."), "local.");
}

TEST(CheckedHostNameTests, EverythingElseStays) {
  for (const char* name : {"", "PEER-MAC.LOCAL.", "Peer.Local.", "peer.local", "10.0.0.7", "local"}) {
    EXPECT_EQ(checkedHostName(name), name);
  }
}

}  // namespace
}  // namespace ferrox::test
