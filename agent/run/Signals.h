#pragma once

#include <agent/core/EndSignals.h>

namespace Agent {

/// To be called first of all: from now on SIGHUP and SIGUSR1 do not end the process, but are kept for
/// Signals, and SIGPIPE is ignored. That holds also if the process was started to ignore SIGHUP, as by
/// nohup(1).
void keepRequests();

/// While it lives, SIGTERM and SIGINT do not end the process at once: they start the deadline and make a
/// descriptor readable. The signal handler itself starts the deadline, so that it works even if every thread
/// is stuck. SIGHUP and SIGUSR1 make the descriptor readable, too.
///
/// There can be one object at a time, within the life of a deadline. After it is destroyed all these signals
/// are ignored. SIGTERM or SIGINT that the process was started to ignore stays ignored.
class Signals {
 public:
  Signals();
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Readable when a signal has come.
  int fd() const { return end_.fd(); }

  /// What signals have asked for since the last call.
  struct Asked {
    int end = 0;          ///< SIGTERM or SIGINT; 0: neither
    bool reload = false;  ///< SIGHUP
    bool status = false;  ///< SIGUSR1
  };
  /// To be called when the descriptor is readable; then it no longer is, unless further signals have come.
  Asked take();

 private:
  EndSignals end_;
};

}  // namespace Agent
