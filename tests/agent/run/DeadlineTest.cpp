#include <agent/core/Descriptor.h>
#include <agent/run/Deadline.h>
#include <agent/run/Run.h>
#include <agent/run/Signals.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
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
        Deadline::begin();
        hang();
      },
      testing::ExitedWithCode(1), "velo: ended before everything was written");
}

void blocked(int signal) {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, signal);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

TEST(Deadline, EndsTheProcessThatWasStartedWithItsSignalBlocked) {
  EXPECT_EXIT(
      {
        blocked(SIGALRM);
        const Deadline deadline(0.01);
        Deadline::begin();
        hang();
      },
      testing::ExitedWithCode(1), "velo: ended before everything was written");
}

TEST(Signals, EndAnAgentThatWasStartedWithThemBlocked) {
  for (const int signal : {SIGTERM, SIGINT}) {
    EXPECT_EXIT(
        {
          blocked(signal);
          raise(signal);
          (void)Agent::runAgent(Agent::RunOptions());
          _exit(7);
        },
        testing::KilledBySignal(signal), "");
  }
}

TEST(Deadline, OfWhatIsDoneNothingIsSaid) {
  EXPECT_EXIT(
      {
        Deadline deadline(0.01);
        Deadline::begin();
        deadline.doneIs(Agent::exitDone);
        hang();
      },
      testing::ExitedWithCode(0), "^$");
}

TEST(Deadline, EndsNothingWhenItHasGone) {
  EXPECT_EXIT(
      {
        {
          const Deadline deadline(0.01);
          Deadline::begin();
        }
        Deadline::begin();
        std::signal(SIGALRM, [](int) { _exit(7); });
        alarm(1);
        hang();
      },
      testing::ExitedWithCode(7), "");
}

TEST(Deadline, OnlyItsFirstBeginningCounts) {
  EXPECT_EXIT(
      {
        const Deadline deadline(0.2);
        // Each would put it off by more than it takes to come again.
        for (Deadline::begin();;) {
          Deadline::begin();
          usleep(1000);
        }
      },
      testing::ExitedWithCode(1), "velo: ended");
}

/// Has standard error be a pipe without room, which nobody reads.
void standardErrorIsFull() {
  int ends[2];
  (void)!pipe(ends);
  dup2(ends[1], STDERR_FILENO);
  fcntl(STDERR_FILENO, F_SETFL, O_NONBLOCK);
  while (write(STDERR_FILENO, "x", 1) == 1) {
  }
  fcntl(STDERR_FILENO, F_SETFL, 0);
}

TEST(Deadline, NeedsNobodyWhoReadsWhatItSays) {
  EXPECT_EXIT(
      {
        standardErrorIsFull();
        const Deadline deadline(0.01);
        Deadline::begin();
        hang();
      },
      testing::ExitedWithCode(1), "");
}

TEST(Signals, BeginTheDeadlineWhateverTheProcessWaitsFor) {
  for (const int signal : {SIGTERM, SIGINT}) {
    EXPECT_EXIT(
        {
          std::signal(signal, SIG_DFL);  // a shell has what it runs in the background ignore SIGINT
          const Deadline deadline(0.01);
          const Agent::Signals signals;
          raise(signal);
          hang();
        },
        testing::ExitedWithCode(1), "velo: ended before everything was written");
  }
  EXPECT_EXIT(
      {
        standardErrorIsFull();
        const Deadline deadline(0.05);
        const Agent::Signals signals;
        raise(SIGTERM);
        for (;;) (void)!write(STDERR_FILENO, "complaint", 9);
      },
      testing::ExitedWithCode(1), "");
}

bool isTold(const Agent::Signals& signals) {
  pollfd told{signals.fd(), POLLIN, 0};
  return poll(&told, 1, 0) == 1;
}

TEST(Signals, AreToldOf) {
  EXPECT_EXIT(
      {
        const Deadline deadline(5);
        const Agent::Signals signals;
        const bool before = isTold(signals);
        raise(SIGINT);
        _exit(!before && isTold(signals) ? 0 : 3);
      },
      testing::ExitedWithCode(0), "");
}

TEST(Signals, ThatAreIgnoredStayIgnored) {
  EXPECT_EXIT(
      {
        std::signal(SIGINT, SIG_IGN);
        const Deadline deadline(5);
        const Agent::Signals signals;
        raise(SIGINT);
        _exit(isTold(signals) ? 3 : 0);
      },
      testing::ExitedWithCode(0), "");
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
  if (!Agent::whyNoDescriptors(40)) std::exit(2);  // asking changes nothing
  Agent::raiseDescriptorLimit();
  std::exit(Agent::whyNoDescriptors(40) ? 1 : 0);
}

TEST(Descriptors, ThoseThatCannotBeHadAreCounted) {
  EXPECT_EXIT(askForTooMany(), testing::ExitedWithCode(0), "");
}

TEST(Descriptors, AsManyAreHadAsAreAllowed) {
  EXPECT_EXIT(askForAllThatAreAllowed(), testing::ExitedWithCode(0), "");
}

}  // namespace
