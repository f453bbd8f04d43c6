#pragma once

#include <Kelp/String.h>
#include <Velo/PacketContext.h>
#include <Zeb/TraceHandle.h>

#include <type_traits>
#include <utility>

namespace Velo::VeloAcl {

/// The plugin's trace facility, "Velo::Acl". Always inline, because it is asked several times for each packet
/// whether it is on.
[[gnu::always_inline]] inline const Zeb::TraceHandle& aclTrace() {
  static const Zeb::TraceHandle handle("Velo::Acl", "VeloAcl/VeloPlugin/AclVeloPlugin");
  return handle;
}
/// Its name, which is also the facility of the plugin's drop counts.
const Kelp::String& aclFacility();
/// The plugin's fast-trace facility, "Acl".
const Kelp::String& aclFastTraceFacility();

/// Writes a trace line of the packet path, with the source line of the call. The trace id of the packet
/// stands in front of the text:
///   "Pkt17: TEXT"
template <class... Args>
void tracePkt(const PacketContext& ctx, std::string_view function,
              Zeb::TraceFormat<std::type_identity_t<Args>...> text, Args&&... args) {
  if (aclTrace().on(0)) [[unlikely]] {
    aclTrace().traceAt(text.line, 0, function, "Pkt{}: {}", ctx.traceId(),
                       fmt::format(text.format, std::forward<Args>(args)...));
  }
}

}  // namespace Velo::VeloAcl
