#pragma once

#include <Acl/Types.h>
#include <Kelp/Duration.h>
#include <Kiv/UniqueId.h>
#include <Velo/Counter.h>
#include <Zeb/Attributes.h>

/// How matches of access lists are counted.
namespace Velo::Counter {

/// What one counter counts: matches of one rule (or of a list's implicit rule) in one direction.
struct VeloDpAclCounterKey {
  Acl::AclDirection direction = Acl::AclDirection::in;
  Acl::AclType aclType = Acl::AclType::ip;
  Kelp::String aclName;
  Kiv::UniqueId ruleId;

  uint32_t hash() const { return Kelp::keyHashAll(direction, aclType, aclName, ruleId); }
  bool operator==(const VeloDpAclCounterKey&) const = default;
  auto operator<=>(const VeloDpAclCounterKey&) const = default;
};

/// The matches of one rule, with the time of the last one.
class VeloDpAclCounter : public PktCounter {
  ZEB_ENTITY(VeloDpAclCounter, PktCounter)
 public:
  ~VeloDpAclCounter() override;

  explicit VeloDpAclCounter(const VeloDpAclCounterKey&) {}
  /// Seconds since the epoch.
  ZEB_VALUE(Kelp::Duration, lastUpdateTime)
};

/// A named collection of match counters.
class VeloDpAclCounterColl : public PktCounterCollectionBase {
  ZEB_ENTITY(VeloDpAclCounterColl, PktCounterCollectionBase)
 public:
  ~VeloDpAclCounterColl() override;

  VeloDpAclCounterColl(const Kelp::String& name, CtrPool::FeatureId featureId)
      : PktCounterCollectionBase(name, featureId) {}

  /// counterCollectionIs(key) gives the counter of a key, made when there is none.
  ZEB_CHILDREN(counterCollection, Zeb::HashMap2018<VeloDpAclCounterKey, Zeb::Owned<VeloDpAclCounter>>)
};

/// A list by kind and name.
struct AclTypeNameTuple {
  Acl::AclType aclType = Acl::AclType::ip;
  Kelp::String aclName;

  uint32_t hash() const { return Kelp::keyHashAll(aclType, aclName); }
  bool isEq(const AclTypeNameTuple& other) const { return *this == other; }
  bool operator==(const AclTypeNameTuple&) const = default;
  auto operator<=>(const AclTypeNameTuple&) const = default;
};

/// A set of rule ids: ruleIdsIs(id), ruleIdsDel(id).
class RuleIdSet : public Zeb::Entity {
  ZEB_ENTITY(RuleIdSet, Zeb::Entity)
 public:
  ~RuleIdSet() override;
  ZEB_SET(ruleIds, Kiv::UniqueId)
};

}  // namespace Velo::Counter

template <>
struct fmt::formatter<Velo::Counter::VeloDpAclCounterKey> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(const Velo::Counter::VeloDpAclCounterKey& key, Context& ctx) const {
    return fmt::format_to(ctx.out(), "{} {} {} {}", key.direction, key.aclType, key.aclName, key.ruleId);
  }
};

template <>
struct fmt::formatter<Velo::Counter::AclTypeNameTuple> : fmt::formatter<std::string_view> {
  template <class Context>
  auto format(const Velo::Counter::AclTypeNameTuple& key, Context& ctx) const {
    return fmt::format_to(ctx.out(), "{} {}", key.aclType, key.aclName);
  }
};
