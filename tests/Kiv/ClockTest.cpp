#include <Kiv/Clock.h>
#include <gtest/gtest.h>

#include <ctime>

namespace {

using Kelp::Duration;

TEST(ManualClockTest, StandsStillUntilToldAndNeverRunsBack) {
  Kiv::ManualClock clock(Duration(100));
  EXPECT_EQ(clock.now(), Duration(100));
  clock.advance(Duration(2.5));
  EXPECT_EQ(clock.now(), Duration(102.5));
  clock.nowIs(Duration(50));
  EXPECT_EQ(clock.now(), Duration(102.5)) << "a frame with an earlier time stamp does not set the clock back";
  clock.advance(Duration(-1));
  EXPECT_EQ(clock.now(), Duration(102.5));
  clock.nowIs(Duration(103));
  EXPECT_EQ(clock.now(), Duration(103));
}

TEST(RealClockTest, TheWallClockCountsFromTheEpoch) {
  const double before = static_cast<double>(std::time(nullptr)) - 1;
  const double now = Kiv::wallClock().now().seconds();
  const double after = static_cast<double>(std::time(nullptr)) + 1;
  EXPECT_LE(before, now);
  EXPECT_LE(now, after);
}

TEST(RealClockTest, NeitherClockRunsBack) {
  for (int i = 0; i < 1000; ++i) {
    const Duration steady = Kiv::steadyClock().now();
    const Duration wall = Kiv::wallClock().now();
    EXPECT_LE(steady, Kiv::steadyClock().now());
    EXPECT_LE(wall, Kiv::wallClock().now());
  }
}

}  // namespace
