#pragma once

#include <agent/core/Descriptor.h>

#include <initializer_list>

namespace Agent {

/// Unblocks signals for this thread: the process may have been started with them blocked.
void unblock(std::initializer_list<int> signals);
/// Has signals call a handler, as of now.
void handlerIs(std::initializer_list<int> signals, void (*handler)(int));

/// While it lives, SIGTERM and SIGINT do not end the process, but make a descriptor readable. One that the
/// process was started to ignore stays ignored. There can be one object at a time.
class EndSignals {
 public:
  /// What the signals do afterwards.
  enum class After { asBefore, nothing };

  /// `atOnce` is called within the signal handler (signal-safety(7)); null: nothing is.
  explicit EndSignals(After after, void (*atOnce)() = nullptr);
  ~EndSignals();
  EndSignals(const EndSignals&) = delete;
  EndSignals& operator=(const EndSignals&) = delete;

  /// Readable when such a signal has come, or after wake().
  int fd() const { return fd_.get(); }
  /// Makes the descriptor readable. May be called in a signal handler.
  static void wake();
  /// The last such signal that has come; 0: none has. The descriptor is no longer readable then.
  int take();

 private:
  const Descriptor fd_;
  const After after_;
};

}  // namespace Agent
