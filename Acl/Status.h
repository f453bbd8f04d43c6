#pragma once

#include <Acl/Model.h>
#include <Kelp/Duration.h>

/// What the dataplane publishes of the lists that it enforces.
namespace Acl {

/// The status of one rule.
struct RuleStatus {
  uint64_t hardwareMatches = 0;  ///< always 0: this dataplane has no hardware
  uint64_t packets = 0;          ///< as of the last copy of the rule's counter
  double lastMatch = 0;          ///< seconds since the epoch, of the last counted match
  bool installed = false;        ///< true for every published rule
  bool operator==(const RuleStatus&) const = default;
};

class AclStatusBase : public Zeb::Entity {
  ZEB_ENTITY(AclStatusBase, Zeb::Entity)
 public:
  ~AclStatusBase() override;

  explicit AclStatusBase(const Kelp::String& aclName) : Entity(aclName) {}
  ZEB_COLLECTION(ruleStatus, Zeb::HashMap2018<Kiv::UniqueId, RuleStatus>)
  ZEB_COLLECTION(implicitRuleStatus, Zeb::HashMap2018<ImplicitRuleType, RuleStatus>)
};

/// The status of one list.
class AclStatus : public AclStatusBase {
  ZEB_ENTITY(AclStatus, AclStatusBase)
 public:
  ~AclStatus() override;

  using AclStatusBase::AclStatusBase;
  ZEB_COLLECTION(implicitRuleId, Zeb::HashMap2018<ImplicitRuleType, Kiv::UniqueId>)
  ZEB_VALUE(Kelp::Duration, counterUpdateTime)
};

/// The status of one kind of list: the lists by name, in the order of the names, and the bindings.
class AclTypeStatus : public Zeb::Entity {
  ZEB_ENTITY(AclTypeStatus, Zeb::Entity)
 public:
  ~AclTypeStatus() override;

  explicit AclTypeStatus(AclType type) : Entity(stringValue(type)) {}
  ZEB_CHILDREN(acl, Zeb::OrderedMap<Kelp::String, Zeb::Owned<AclStatus>>)
  ZEB_CHILDREN(intf, Zeb::HashMap2018<AclDirection, Zeb::Owned<AclIntf>>)
};

/// What the dataplane can do, and the status by kind of list. The flags are set once, before initialize().
class StatusBase : public Zeb::Entity {
  ZEB_ENTITY(StatusBase, Zeb::Entity)
 public:
  ~StatusBase() override;

  explicit StatusBase(Kelp::String name = {}) : Entity(std::move(name)) {}

  ZEB_VALUE(bool, dpAclSupported)
  ZEB_VALUE(bool, dpIpEgressAclSupported)
  ZEB_VALUE(bool, dpIp6AclSupported)
  ZEB_VALUE(bool, dpIp6EgressAclSupported)
  ZEB_VALUE(bool, dpMacAclSupported)
  ZEB_VALUE(bool, dpMacEgressAclSupported)
  ZEB_VALUE(bool, dpAclTcSupported)
  ZEB_VALUE(bool, dpAclHopLimitSupported)
  ZEB_VALUE(bool, dpAclCountersSupported)
  ZEB_VALUE(bool, dpIpAclMirrorActionSupported)
  ZEB_VALUE(bool, dpIpv6AclMirrorActionSupported)
  ZEB_VALUE(bool, dpMacAclMirrorActionSupported)
  ZEB_VALUE(bool, dpAclDscpSupported)
  ZEB_VALUE(bool, dpAclDscpMaskSupported)
  ZEB_VALUE(bool, dpAclDscpMaskIpv6Supported)
  ZEB_VALUE(bool, dpAclSctpSupported)
  ZEB_VALUE(bool, dpAclSctpPortMatchSupported)
  ZEB_VALUE(bool, dpAclVlanSupported)
  ZEB_VALUE(bool, vlanSupported)
  ZEB_VALUE(bool, dscpFilterSupported)

  /// Marks the status as complete: readers trust the flags only from then on.
  void initialize() { initializedIs(true); }
  ZEB_VALUE(bool, initialized)
  ZEB_CHILDREN(status, Zeb::HashMap2018<AclType, Zeb::Owned<AclTypeStatus>>)
};

/// The status of a software dataplane.
class StatusDp : public StatusBase {
  ZEB_ENTITY(StatusDp, StatusBase)
 public:
  ~StatusDp() override;

  using StatusBase::StatusBase;
};

}  // namespace Acl

template <>
struct fmt::formatter<Acl::RuleStatus> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(const Acl::RuleStatus& s, Context& ctx) const {
    return fmt::format_to(ctx.out(), "{{{}, {}, {}, {}}}", s.hardwareMatches, s.packets, s.lastMatch,
                          s.installed);
  }
};
