#pragma once

namespace Velo::VeloAcl {

/// How a run of a task ended: all is done; the task goes on in its next run, from a place that it has kept;
/// or a handler that was told of a write has ended the machine, and nothing may be touched any more.
enum class RunEnd { complete, yielded, stopped };

}  // namespace Velo::VeloAcl
