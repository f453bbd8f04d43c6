#include <agent/live/Deadline.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <string_view>

namespace Agent {

namespace {

constexpr int notDone = -1;
volatile std::sig_atomic_t status = notDone;

/// May do what a handler of a signal may do, and no more.
void handleAlarm(int) {
  constexpr std::string_view text = "velo: ended before everything was written\n";
  if (status == notDone) (void)!write(STDERR_FILENO, text.data(), text.size());
  _exit(status == notDone ? exitUnread : status);
}

void alarmIs(double seconds) {
  constexpr double micro = 1e6;
  itimerval timer{};
  timer.it_value.tv_sec = static_cast<time_t>(seconds);
  timer.it_value.tv_usec =
      static_cast<suseconds_t>((seconds - static_cast<double>(timer.it_value.tv_sec)) * micro);
  setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

Deadline::Deadline(double seconds) {
  status = notDone;
  std::signal(SIGALRM, handleAlarm);
  alarmIs(seconds);
}

Deadline::~Deadline() {
  alarmIs(0);
  std::signal(SIGALRM, SIG_DFL);
}

void Deadline::doneIs(Exit done) { status = done; }

}  // namespace Agent
