#pragma once

#include <agent/core/Descriptor.h>

#include <initializer_list>

namespace Agent {

/// Unblocks signals for this thread: the process may have been started with them blocked.
void unblock(std::initializer_list<int> signals);

/// While it lives, SIGTERM and SIGINT do not end the process at once: they start the deadline and make a
/// descriptor readable. The signal handler itself starts the deadline, so that it works even if every thread
/// is stuck. There can be one object at a time, within the life of a deadline. After it is destroyed both
/// signals are ignored. A signal that the process was started to ignore stays ignored.
class Signals {
 public:
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Readable when a signal has come.
  int fd() const { return fd_.get(); }

 private:
  Descriptor fd_;
};

}  // namespace Agent
