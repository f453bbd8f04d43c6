#include <VeloAcl/LoadOrder.h>
#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>

namespace Velo::VeloAcl {

const Zeb::TraceHandle& statusTrace() {
  // It is destroyed with the library. Nobody traces after that.
  static const Zeb::TraceHandle handle("DpAclStatusVelo", "VeloDpAclStatus");
  return handle;
}

namespace {

/// Makes the debug channel before any other global of the library, because any of them may trace.
struct DebugChannel {
  DebugChannel() { statusTrace(); }
};
[[maybe_unused, gnu::init_priority(LoadOrder::debugChannel)]] const DebugChannel debugChannel;

}  // namespace

}  // namespace Velo::VeloAcl
