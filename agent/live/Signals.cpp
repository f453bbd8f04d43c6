#include <Kelp/Assert.h>
#include <agent/live/Signals.h>
#include <sys/signalfd.h>

#include <csignal>

namespace Agent {

namespace {

sigset_t ends() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  return set;
}

}  // namespace

Signals::Ending::Ending() {
  const sigset_t set = ends();
  pthread_sigmask(SIG_UNBLOCK, &set, nullptr);
}

Signals::Ending::~Ending() {
  const sigset_t set = ends();
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
}

Signals::Signals() {
  const sigset_t set = ends();
  sigprocmask(SIG_BLOCK, &set, nullptr);
  fd_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  KELP_ASSERT(fd_.get() >= 0, "a descriptor for signals can be had");
}

}  // namespace Agent
