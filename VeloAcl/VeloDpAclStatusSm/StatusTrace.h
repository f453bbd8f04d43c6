#pragma once

#include <Zeb/TraceHandle.h>

#include <utility>

namespace Velo::VeloAcl {

/// The status machine's debug channel, "DpAclStatusVelo"; its lines carry the machine's name and the source
/// `VeloDpAclStatus`. Levels: 6 filters, 7 stream events and writes, 8 walker handlers and yields, 9
/// elements, scans and reconciliation.
const Zeb::TraceHandle& statusTrace();

template <class... Args>
void traceStatus(int level, fmt::format_string<Args...> text, Args&&... args) {
  statusTrace().traceAt(0, level, "VeloDpAclStatusSm", text, std::forward<Args>(args)...);
}

}  // namespace Velo::VeloAcl
