#include <Kelp/Assert.h>
#include <agent/live/Signals.h>
#include <sys/signalfd.h>

#include <csignal>

namespace Agent {

Signals::Signals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigprocmask(SIG_BLOCK, &set, nullptr);
  fd_ = Descriptor(signalfd(-1, &set, SFD_CLOEXEC | SFD_NONBLOCK));
  KELP_ASSERT(fd_.get() >= 0, "a descriptor for signals can be had");
}

}  // namespace Agent
