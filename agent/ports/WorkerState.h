#pragma once

#include <agent/forward/FrameTotals.h>

#include <cstdint>

namespace Agent {

/// How one of the processes is that have the ports together.
struct WorkerState {
  unsigned number = 0;   ///< from 1 on
  int pid = 0;           ///< 0: it has died, and will be started again
  bool serving = false;  ///< the configuration is in force with it, and its ports are open
  uint64_t starts = 0;   ///< how often it was started
  FrameTotals totals{};  ///< of the present process
};

}  // namespace Agent
