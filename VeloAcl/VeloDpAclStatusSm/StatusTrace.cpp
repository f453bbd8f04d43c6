#include <VeloAcl/LoadOrder.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>

namespace Velo::VeloAcl {

const Zeb::TraceHandle& statusTrace() {
  // Destroyed with the library; nobody traces after that.
  static const Zeb::TraceHandle handle("DpAclStatusVelo", "VeloDpAclStatus");
  return handle;
}

namespace {

/// The debug channel is there before any other global of the library, whichever of them traces first.
struct DebugChannel {
  DebugChannel() { statusTrace(); }
};
[[maybe_unused, gnu::init_priority(LoadOrder::debugChannel)]] const DebugChannel debugChannel;

}  // namespace

}  // namespace Velo::VeloAcl
