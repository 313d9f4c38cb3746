#include <gtest/gtest.h>

#include <chrono>

#include "Apps/ferrox/Downloads/FetchSession.h"
#include "Apps/ferrox/Terminal/ProgressLine.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

TEST(DownloadsTest, SegmentsAreStartAndLengthThatAFileCanHold) {
  const auto segment = fetchSegmentFrom("100:20");
  ASSERT_TRUE(segment);
  EXPECT_EQ(segment->start, 100u);
  EXPECT_EQ(segment->length, 20u);
  EXPECT_TRUE(fetchSegmentFrom("0:1"));
  EXPECT_TRUE(fetchSegmentFrom("0:9223372036854775807"));
  EXPECT_TRUE(fetchSegmentFrom("9223372036854775806:1"));
  for (const char* const bad : {"", ":", "1", "1:", ":1", "1:0", "-1:5", "1:-5", "1:2:3", " 1:2", "1:2 ",
                                "0x1:2", "1,2", "a:b", "9223372036854775807:1", "1:9223372036854775807",
                                "18446744073709551615:2", "18446744073709551616:1"}) {
    EXPECT_FALSE(fetchSegmentFrom(bad)) << bad;
  }
}

TEST(DownloadsTest, ProgressTellsPartAndRate) {
  EXPECT_EQ(progressText(500'000, 1'000'000, 2s), "50%  500 kB of 1.0 MB  250 kB/s");
  EXPECT_EQ(progressText(999'999, 1'000'000, 0s), "99%  1.0 MB of 1.0 MB");
  EXPECT_EQ(progressText(0, 0, 0s), "100%  0 B of 0 B");
  EXPECT_EQ(progressText(2'000'000, std::nullopt, 1s), "2.0 MB  2.0 MB/s");
}

}  // namespace
}  // namespace ferrox::command
