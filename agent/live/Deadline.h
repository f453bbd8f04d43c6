#pragma once

#include <agent/Exit.h>

namespace Agent {

/// Ends the process after a time, whatever any of its threads is doing or waiting for, and says so. One at a
/// time; gone, it ends nothing.
class Deadline {
 public:
  explicit Deadline(double seconds);
  ~Deadline();
  Deadline(const Deadline&) = delete;
  Deadline& operator=(const Deadline&) = delete;

  /// All that was to be told and kept is: when it comes to it, the process ends with this status and nothing
  /// to say. Before, it ends with exitUnread.
  void doneIs(Exit status);
};

}  // namespace Agent
