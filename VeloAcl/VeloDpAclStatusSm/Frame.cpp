#include <Kelp/Assert.h>
#include <VeloAcl/VeloDpAclStatusSm/Frame.h>
#include <VeloAcl/VeloDpAclStatusSm/NoEscape.h>

namespace Velo::VeloAcl {

void MachineFrame::withMachine(const std::function<void()>& run) {
  if (stopped_) return;
  const Kelp::Ptr<MachineFrame> keep(this);
  runWithoutEscape("the status machine", run);
}

void MachineFrame::checkArguments() const {
  KELP_ASSERT(aclConfig(),
              "aclConfig() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(aclIntfConfig(),
              "aclIntfConfig() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(inCounters(),
              "inCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(macOutCounters(),
              "macOutCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(ipOutCounters(),
              "ipOutCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(ip6OutCounters(),
              "ip6OutCounters() && \"Pointer SM args cannot be null unless they are marked Optional\"");
  KELP_ASSERT(aclStatus(),
              "aclStatus() && \"Pointer SM args cannot be null unless they are marked Optional\"");
}

}  // namespace Velo::VeloAcl
