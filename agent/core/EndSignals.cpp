#include <Kelp/Assert.h>
#include <agent/core/EndSignals.h>
#include <sys/eventfd.h>

#include <cerrno>
#include <csignal>

namespace Agent {

namespace {

volatile std::sig_atomic_t toTell = -1, endAsked = 0;
void (*volatile tellAtOnce)() = nullptr;

void handleEnd(int signal) {
  if (tellAtOnce) tellAtOnce();
  endAsked = signal;
  EndSignals::wake();
}

void endHandlerIs(void (*handler)(int)) {
  for (const int signal : {SIGTERM, SIGINT}) {
    struct sigaction action {};
    sigaction(signal, nullptr, &action);
    if (action.sa_handler != SIG_IGN) handlerIs({signal}, handler);
  }
}

}  // namespace

void unblock(std::initializer_list<int> signals) {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : signals) sigaddset(&set, signal);
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

void handlerIs(std::initializer_list<int> signals, void (*handler)(int)) {
  for (const int signal : signals) {
    struct sigaction action {};
    action.sa_handler = handler;
    action.sa_flags = SA_RESTART;
    sigaction(signal, &action, nullptr);
  }
}

EndSignals::EndSignals(After after, void (*atOnce)())
    : fd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), after_(after) {
  KELP_ASSERT(fd_.get() >= 0, "a descriptor for signals can be had");
  endAsked = 0;
  tellAtOnce = atOnce;
  toTell = fd_.get();
  endHandlerIs(handleEnd);
  unblock({SIGTERM, SIGINT});
}

EndSignals::~EndSignals() {
  endHandlerIs(after_ == After::nothing ? SIG_IGN : SIG_DFL);
  toTell = -1;
}

void EndSignals::wake() {
  const int before = errno;
  (void)eventfd_write(toTell, 1);
  errno = before;
}

int EndSignals::take() {
  eventfd_t count = 0;
  (void)eventfd_read(fd_.get(), &count);
  return endAsked;
}

}  // namespace Agent
