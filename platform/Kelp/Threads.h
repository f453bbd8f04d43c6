#pragma once

namespace Kelp {

/// The process-wide multi-thread switch. Reference counts change with atomic read-modify-write instructions
/// only while it is set; a process that stays single-threaded does not pay for them.
/// Set it before the second thread starts and never clear it while that thread runs.
namespace Threads {
extern bool present;
}

inline bool multiThreaded() { return Threads::present; }
inline void multiThreadedIs(bool on) { Threads::present = on; }

}  // namespace Kelp
