#include <Kiv/Clock.h>
#include <gtest/gtest.h>

#include <cmath>
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

TEST(DurationTest, LaterIsLaterHoweverLargeTheTime) {
  EXPECT_EQ(Duration(100).later(Duration(2.5)), Duration(102.5));
  EXPECT_EQ(Duration(100).later(Duration()), Duration(100));
  EXPECT_EQ(Duration(100).later(Duration(-1)), Duration(99));
  for (const int exponent : {31, 53, 54, 63, 100}) {
    const Duration time(std::ldexp(1, exponent));
    EXPECT_GT(time.later(Duration(1)), time) << "2^" << exponent;
    EXPECT_GE(time.later(Duration(1e-9)), time.later(Duration(1e-10))) << "2^" << exponent;
    EXPECT_EQ(time.later(Duration(time.seconds())), Duration(2 * time.seconds())) << "2^" << exponent;
  }
}

TEST(ManualClockTest, GoesOnHoweverLargeTheTime) {
  Kiv::ManualClock clock(Duration(std::ldexp(1, 54)));
  const Duration before = clock.now();
  clock.advance(Duration(1));
  EXPECT_GT(clock.now(), before);
}

TEST(RealClockTest, TheWallClockCountsFromTheEpoch) {
  // time() counts whole seconds and may be a tick behind, so a second more on either side.
  const double before = static_cast<double>(std::time(nullptr)) - 2;
  const double now = Kiv::wallClock().now().seconds();
  const double after = static_cast<double>(std::time(nullptr)) + 2;
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
