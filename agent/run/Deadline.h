#pragma once

#include <agent/core/Exit.h>

namespace Agent {

/// Ends the process a time after it was begun, whatever any of its threads is doing or waiting for, and says
/// so. One at a time; gone, it ends nothing.
class Deadline {
 public:
  /// Not begun yet.
  explicit Deadline(double seconds);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  /// From here on the process has its time; only the first call counts. On any thread, and in the handler of
  /// a signal.
  static void begin();
  /// All that was to be told and kept is: when it comes to it, the process ends with this status and nothing
  /// to say. Before, it ends with exitUnread.
  void doneIs(Exit status);
};

}  // namespace Agent
