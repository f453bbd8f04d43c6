#pragma once

#include <agent/core/Exit.h>
#include <agent/run/RunOptions.h>

namespace Agent {

/// Carries out the part of one worker of `velo run --workers N`: it has its share of what comes by the ports
/// and lists of its own, and does what the first process tells it (agent/workers). Returns when that one says
/// so, or is gone.
Exit runWorker(const RunOptions& options);

}  // namespace Agent
