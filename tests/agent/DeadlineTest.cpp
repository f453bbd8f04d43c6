#include <agent/live/Deadline.h>
#include <agent/live/Descriptor.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>

namespace {

using Agent::Deadline;

/// Waits for what does not come, as for a thread that hangs.
[[noreturn]] void hang() {
  for (;;) pause();
}

TEST(Deadline, EndsTheProcessWhateverItWaitsFor) {
  EXPECT_EXIT(
      {
        const Deadline deadline(0.01);
        hang();
      },
      testing::ExitedWithCode(1), "velo: ended before everything was written");
}

TEST(Deadline, OfWhatIsDoneNothingIsSaid) {
  EXPECT_EXIT(
      {
        Deadline deadline(0.01);
        deadline.doneIs(Agent::exitDone);
        hang();
      },
      testing::ExitedWithCode(0), "^$");
}

TEST(Deadline, EndsNothingWhenItHasGone) {
  EXPECT_EXIT(
      {
        { const Deadline deadline(0.01); }
        std::signal(SIGALRM, [](int) { _exit(7); });
        alarm(1);
        hang();
      },
      testing::ExitedWithCode(7), "");
}

void descriptorsAre(rlim_t soft, rlim_t hard) {
  const rlimit limit{soft, hard};
  setrlimit(RLIMIT_NOFILE, &limit);
}

[[noreturn]] void askForTooMany() {
  descriptorsAre(20, 20);
  const auto wrong = Agent::whyNoDescriptors(40);
  const bool said = wrong && wrong->starts_with("40 file descriptors are needed, and ") &&
                    wrong->ends_with(" can be had: Too many open files");
  std::exit(said && !Agent::whyNoDescriptors(5) ? 0 : 1);
}

[[noreturn]] void askForAllThatAreAllowed() {
  descriptorsAre(20, 60);
  std::exit(Agent::whyNoDescriptors(40) ? 1 : 0);
}

TEST(Descriptors, ThoseThatCannotBeHadAreCounted) {
  EXPECT_EXIT(askForTooMany(), testing::ExitedWithCode(0), "");
}

TEST(Descriptors, AsManyAreHadAsAreAllowed) {
  EXPECT_EXIT(askForAllThatAreAllowed(), testing::ExitedWithCode(0), "");
}

}  // namespace
