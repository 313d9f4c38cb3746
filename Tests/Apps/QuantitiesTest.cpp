#include <gtest/gtest.h>

#include "Apps/ferrox/Terminal/Quantities.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

TEST(Quantities, BytesAreToldInUnitsOfTen) {
  EXPECT_EQ(formattedBytes(0), "0 B");
  EXPECT_EQ(formattedBytes(999), "999 B");
  EXPECT_EQ(formattedBytes(1000), "1.0 kB");
  EXPECT_EQ(formattedBytes(9949), "9.9 kB");
  EXPECT_EQ(formattedBytes(9950), "10 kB");
  EXPECT_EQ(formattedBytes(999'499), "999 kB");
  EXPECT_EQ(formattedBytes(999'500), "1.0 MB");
  EXPECT_EQ(formattedBytes(312'000'000), "312 MB");
  EXPECT_EQ(formattedBytes(UINT64_MAX), "18 EB");
}

TEST(Quantities, DurationsAreToldInMinutesOrHours) {
  EXPECT_EQ(formattedDuration(0s), "0:00");
  EXPECT_EQ(formattedDuration(5s), "0:05");
  EXPECT_EQ(formattedDuration(12min + 40s), "12:40");
  EXPECT_EQ(formattedDuration(1h + 2min + 3s), "1:02:03");
  EXPECT_EQ(formattedDuration(-3s), "0:00");
}

}  // namespace
}  // namespace ferrox::command
