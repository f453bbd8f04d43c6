#include <agent/run/Deadline.h>
#include <agent/run/Signals.h>

#include <csignal>

namespace Agent {

namespace {

volatile std::sig_atomic_t reloadAsked = 0, statusAsked = 0;

/// A signal handler: it may only call functions that are allowed there (signal-safety(7)).
void handleRequest(int signal) {
  if (signal == SIGHUP)
    reloadAsked = 1;
  else
    statusAsked = 1;
  EndSignals::wake();
}

}  // namespace

void keepRequests() {
  reloadAsked = 0;
  statusAsked = 0;
  handlerIs({SIGPIPE}, SIG_IGN);
  handlerIs({SIGHUP, SIGUSR1}, handleRequest);
  unblock({SIGHUP, SIGUSR1});
}

Signals::Signals() : end_(EndSignals::After::nothing, Deadline::begin) {
  if (reloadAsked || statusAsked) EndSignals::wake();
}

Signals::~Signals() { handlerIs({SIGHUP, SIGUSR1}, SIG_IGN); }

Signals::Asked Signals::take() {
  const int end = end_.take();
  const auto exchange = [](volatile std::sig_atomic_t& asked) {
    const bool was = asked != 0;
    asked = 0;
    return was;
  };
  return {end, exchange(reloadAsked), exchange(statusAsked)};
}

}  // namespace Agent
