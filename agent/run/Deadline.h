#pragma once

#include <agent/core/Exit.h>

namespace Agent {

/// Ends the process some time after begin() was called, with a message, whatever its threads are doing or
/// waiting for. There can be one at a time. When it is destroyed before that time, the process goes on.
class Deadline {
 public:
  /// `seconds`: from begin() to the end of the process.
  explicit Deadline(double seconds);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  /// The time starts now; only the first call counts. May be called on any thread and in a signal handler.
  static void begin();
  /// Everything has been written and saved: when the time is over, the process ends with this status and
  /// without a message. Before this call it would end with exitUnread.
  void doneIs(Exit status);
};

}  // namespace Agent
