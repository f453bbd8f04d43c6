#include <Kelp/Assert.h>
#include <agent/run/Deadline.h>
#include <agent/run/Signals.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>

namespace Agent {

namespace {

volatile std::sig_atomic_t toTell = -1;

/// A signal handler: it may only call functions that are allowed there (signal-safety(7)).
void handleEnd(int) {
  const int before = errno;
  Deadline::begin();
  (void)eventfd_write(toTell, 1);
  errno = before;
}

void handlerIs(void (*handler)(int)) {
  for (const int signal : {SIGTERM, SIGINT}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler == SIG_IGN) continue;
    action = {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

}  // namespace

void unblock(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

Signals::Signals() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  KELP_ASSERT(fd_.get() >= 0, "a descriptor for signals can be had");
  toTell = fd_.get();
  handlerIs(handleEnd);
  unblock({SIGTERM, SIGINT});
}

Signals::~Signals() { handlerIs(SIG_IGN); }

}  // namespace Agent
