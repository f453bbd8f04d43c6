#include <agent/run/Deadline.h>
#include <agent/run/Signals.h>
#include <poll.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

namespace Agent {

namespace {

constexpr int notDone = -1;
volatile std::sig_atomic_t endStatus = notDone;
volatile std::sig_atomic_t begun = 0;
itimerval untilEnd{};

/// A signal handler: it may only call functions that are allowed there (signal-safety(7)).
void handleAlarm(int) {
  constexpr std::string_view text = "velo: ended before everything was written\n";
  // Do not wait for a reader of standard error: it may be what the whole process is waiting for.
  pollfd room{STDERR_FILENO, POLLOUT, 0};
  if (endStatus == notDone && poll(&room, 1, 0) == 1) (void)!write(STDERR_FILENO, text.data(), text.size());
  _exit(endStatus == notDone ? exitUnread : endStatus);
}

itimerval timerOf(double seconds) {
  constexpr double micro = 1e6;
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec =
      static_cast<suseconds_t>((seconds - static_cast<double>(timer.it_value.tv_sec)) * micro);
  return timer;
}

}  // namespace

Deadline::Deadline(double seconds) {
  endStatus = notDone;
  begun = 0;
  untilEnd = timerOf(seconds);
  std::signal(SIGALRM, handleAlarm);
  unblock({SIGALRM});
}

Deadline::~Deadline() {
  begun = 1;
  const itimerval none{};
  setitimer(ITIMER_REAL, &none, nullptr);
  std::signal(SIGALRM, SIG_DFL);
}

void Deadline::begin() {
  if (begun) return;
  begun = 1;
  setitimer(ITIMER_REAL, &untilEnd, nullptr);
}

void Deadline::doneIs(Exit done) { endStatus = done; }

}  // namespace Agent
