#pragma once

#include <Zeb/TraceHandle.h>

#include <type_traits>
#include <utility>

namespace Velo::VeloAcl {

/// The status machine's debug channel, "DpAclStatusVelo"; its lines carry the machine's name and the source
/// `VeloDpAclStatus`. Levels: 6 filters, 7 stream events and writes, 8 walker handlers and yields, 9
/// elements, scans and reconciliation.
const Zeb::TraceHandle& statusTrace();

/// Writes a trace line, with a source line that the caller has got from its own caller.
template <class... Args>
void traceStatusAt(int line, int level, fmt::format_string<Args...> text, Args&&... args) {
  statusTrace().traceAt(line, level, "VeloDpAclStatusSm", text, std::forward<Args>(args)...);
}

/// Writes a trace line, with the source line of this call.
template <class... Args>
void traceStatus(int level, Zeb::TraceFormat<std::type_identity_t<Args>...> text, Args&&... args) {
  traceStatusAt(text.line, level, text.format, std::forward<Args>(args)...);
}

}  // namespace Velo::VeloAcl
