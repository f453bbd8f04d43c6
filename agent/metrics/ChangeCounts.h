#pragma once

#include <agent/log/LogEvent.h>

#include <cstdint>

namespace Agent {

/// How the changes of the configuration ended, counted by what the log is told of them.
class ChangeCounts {
 public:
  /// `now`: seconds since the epoch.
  void note(const LogEvent& event, double now);

  uint64_t applied = 0;
  uint64_t refused = 0;
  double lastRefused = 0;  ///< seconds since the epoch; 0: none was
};

}  // namespace Agent
