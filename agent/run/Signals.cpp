#include <Kelp/Assert.h>
#include <agent/run/Deadline.h>
#include <agent/run/Signals.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>

namespace Agent {

namespace {

volatile std::sig_atomic_t toTell = -1;
volatile std::sig_atomic_t endAsked = 0, reloadAsked = 0, statusAsked = 0;

/// Signal handlers: they may only call functions that are allowed there (signal-safety(7)).
void wake() {
  const int before = errno;
  (void)eventfd_write(toTell, 1);
  errno = before;
}

void handleEnd(int) {
  Deadline::begin();
  endAsked = 1;
  wake();
}

void handleRequest(int signal) {
  if (signal == SIGHUP)
    reloadAsked = 1;
  else
    statusAsked = 1;
  wake();
}

void handlerIs(int signal, void (*handler)(int)) {
  struct sigaction action {};
  action.sa_handler = handler;
  action.sa_flags = SA_RESTART;
  sigaction(signal, &action, nullptr);
}

void endHandlerIs(void (*handler)(int)) {
  for (const int signal : {SIGTERM, SIGINT}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) handlerIs(signal, handler);
  }
}

}  // namespace

void unblock(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void keepRequests() {
  reloadAsked = 0;
  statusAsked = 0;
  handlerIs(SIGPIPE, SIG_IGN);
  for (const int signal : {SIGHUP, SIGUSR1}) handlerIs(signal, handleRequest);
  unblock({SIGHUP, SIGUSR1});
}

Signals::Signals() : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  KELP_ASSERT(fd_.get() >= 0, "a descriptor for signals can be had");
  endAsked = 0;
  toTell = fd_.get();
  endHandlerIs(handleEnd);
  unblock({SIGTERM, SIGINT});
  if (reloadAsked || statusAsked) wake();
}

Signals::~Signals() {
  endHandlerIs(SIG_IGN);
  for (const int signal : {SIGHUP, SIGUSR1}) handlerIs(signal, SIG_IGN);
  toTell = -1;
}

Signals::Asked Signals::take() {
  eventfd_t count = 0;
  (void)eventfd_read(fd_.get(), &count);
  const auto exchange = [](volatile std::sig_atomic_t& asked) {
    const bool was = asked != 0;
    asked = 0;
    return was;
  };
  return {endAsked != 0, exchange(reloadAsked), exchange(statusAsked)};
}

}  // namespace Agent
