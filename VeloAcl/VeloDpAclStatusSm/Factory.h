#pragma once

#include <VeloAcl/VeloDpAclStatusSm/VeloDpAclStatusSm.h>

namespace Velo::VeloAcl {

/// Makes a machine and starts it. Every pointer is mandatory.
Kelp::Ptr<VeloDpAclStatusSm> veloDpAclStatusSmFactory(
    const Kelp::Ptr<const Acl::Config>& aclConfig, const Kelp::Ptr<const Acl::IntfConfig>& aclIntfConfig,
    const Arguments::Counters& inCounters, const Arguments::Counters& macOutCounters,
    const Arguments::Counters& ipOutCounters, const Arguments::Counters& ip6OutCounters,
    const Kelp::Ptr<Acl::StatusDp>& aclStatus, const Rix::SmControl& control);

/// The same under the name that factories of state machines have.
inline constexpr auto VeloDpAclStatusSmIs = &veloDpAclStatusSmFactory;

}  // namespace Velo::VeloAcl
