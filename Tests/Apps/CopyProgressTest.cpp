#include <gtest/gtest.h>

#include "Apps/ferrox/Copy/CopyProgress.h"
#include "Apps/ferrox/Terminal/TerminalText.h"

namespace ferrox::command {
namespace {

using namespace std::chrono_literals;

const TransferRate::Instant start{};

TEST(TransferRate, IsUnknownUntilThereIsSomethingToGoBy) {
  TransferRate rate;
  EXPECT_EQ(rate.perSecond(), std::nullopt);
  rate.add(start, 1000);
  EXPECT_EQ(rate.perSecond(), std::nullopt);
  rate.add(start + 100ms, 5000);
  EXPECT_EQ(rate.perSecond(), std::nullopt);
  rate.add(start + 500ms, 6000);
  EXPECT_EQ(rate.perSecond(), 10'000);
}

TEST(TransferRate, ForgetsWhatIsLongAgo) {
  TransferRate rate;
  for (int i = 0; i <= 10; ++i) rate.add(start + i * 1s, static_cast<std::uint64_t>(i) * 1'000'000);
  for (int i = 1; i <= 6; ++i)
    rate.add(start + 10s + i * 1s, 10'000'000 + static_cast<std::uint64_t>(i) * 1000);
  ASSERT_TRUE(rate.perSecond());
  EXPECT_NEAR(*rate.perSecond(), 1000, 1);
}

TEST(TransferRate, IsNeverNegative) {
  TransferRate rate;
  rate.add(start, 5000);
  rate.add(start + 1s, 1000);
  EXPECT_EQ(rate.perSecond(), 0);
}

TEST(CopyProgress, TellsShareBytesRateTimeLeftAndFiles) {
  const CopyProgress half{500'000'000, 1'000'000'000, 3, 12, 100'000'000.0};
  EXPECT_EQ(progressLine(half, 200),
            "[###############---------------]  50%  500 MB of 1.0 GB  100 MB/s  0:05 left  3 of 12 files");
  const CopyProgress done{1'000'000'000, 1'000'000'000, 12, 12, std::nullopt};
  EXPECT_EQ(progressLine(done, 200),
            "[##############################] 100%  1.0 GB of 1.0 GB  12 of 12 files");
}

TEST(CopyProgress, FitsWhateverTheWidth) {
  const CopyProgress half{500'000'000, 1'000'000'000, 3, 12, 100'000'000.0};
  for (std::size_t columns = 0; columns < 120; ++columns) {
    EXPECT_LE(displayWidth(progressLine(half, columns)), columns) << columns;
  }
  EXPECT_TRUE(progressLine(half, 79).starts_with("[#")) << progressLine(half, 79);
}

TEST(CopyProgress, TellsWhatItWaitsForBeforeSizesAreKnown) {
  EXPECT_EQ(progressLine({}, 80), "asking what there is");
  EXPECT_EQ(progressLine({0, 0, 0, 40, std::nullopt}, 80), "asking for the sizes of 40 files");
}

TEST(CopyProgress, ForecastsNothingAtAStandstill) {
  EXPECT_EQ(progressLine({1, 1000, 0, 2, 0.0}, 60).find("left"), std::string::npos);
  EXPECT_EQ(progressLine({1, UINT64_MAX, 0, 2, 1.0}, 100).find("left"), std::string::npos);
}

}  // namespace
}  // namespace ferrox::command
