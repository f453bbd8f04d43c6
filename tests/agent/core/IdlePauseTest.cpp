#include <agent/core/IdlePause.h>
#include <gtest/gtest.h>

namespace {

using Agent::IdlePause;
using Agent::PollMode;
using Kelp::Duration;

constexpr double unlimited = 3600;

TEST(IdlePause, HowLongTheLoopSleeps) {
  struct Row {
    const char* why;
    PollMode mode;
    bool silent;
    double quiet;  ///< seconds since the last packet
    double sleep;
  };
  for (const Row& row : {
           Row{"every packet is told of", PollMode::adaptive, false, 1, unlimited},
           Row{"and at once", PollMode::adaptive, false, 0.00001, unlimited},
           Row{"just after a packet", PollMode::adaptive, true, 0.0001, 0},
           Row{"a moment later", PollMode::adaptive, true, 0.0003, 0.00005},
           Row{"a tenth of the quiet", PollMode::adaptive, true, 0.002, 0.0002},
           Row{"a millisecond at most", PollMode::adaptive, true, 60, 0.001},
           Row{"busy never sleeps", PollMode::busy, true, 60, 0},
           Row{"also where packets are told of", PollMode::busy, false, 60, 0},
           Row{"sleep does so at once", PollMode::sleep, true, 0.00001, 0.001},
           Row{"but not where packets are told of", PollMode::sleep, false, 0.00001, unlimited},
       }) {
    IdlePause pause;
    pause.modeIs(row.mode);
    pause.silentIs(row.silent);
    EXPECT_EQ(pause.next(Duration(100), false, Duration(unlimited)).seconds(), 0)
        << "a packet has come: " << row.why;
    EXPECT_NEAR(pause.next(Duration(100 + row.quiet), true, Duration(unlimited)).seconds(), row.sleep, 1e-6)
        << row.why;
  }
}

}  // namespace
