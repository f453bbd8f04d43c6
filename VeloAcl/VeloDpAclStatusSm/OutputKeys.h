#pragma once

#include <Acl/Status.h>
#include <Nimnet/IntfId.h>

/// The keys of the reconciled outputs, each the full path of one entry.
namespace Velo::VeloAcl {

inline bool validAclType(Acl::AclType type) { return type <= Acl::AclType::mac; }

struct AclStatusStatusAclOutputKeyType {
  Acl::AclType aclType = Acl::AclType::ip;
  Kelp::String aclName;

  uint32_t hash() const { return Kelp::keyHashAll(aclType, aclName); }
  bool isEq(const AclStatusStatusAclOutputKeyType& other) const { return *this == other; }
  bool validate() const { return validAclType(aclType) && !aclName.empty(); }
  explicit operator bool() const { return !aclName.empty(); }
  bool operator==(const AclStatusStatusAclOutputKeyType&) const = default;
  auto operator<=>(const AclStatusStatusAclOutputKeyType&) const = default;
};

struct AclStatusStatusIntfIntfOutputKeyType {
  Acl::AclType aclType = Acl::AclType::ip;
  Acl::AclDirection direction = Acl::AclDirection::in;
  Nimnet::IntfId intfId;

  uint32_t hash() const { return Kelp::keyHashAll(aclType, direction, intfId); }
  bool isEq(const AclStatusStatusIntfIntfOutputKeyType& other) const { return *this == other; }
  bool validate() const {
    return validAclType(aclType) && direction <= Acl::AclDirection::out && !intfId.empty();
  }
  explicit operator bool() const { return !intfId.empty(); }
  bool operator==(const AclStatusStatusIntfIntfOutputKeyType&) const = default;
  auto operator<=>(const AclStatusStatusIntfIntfOutputKeyType&) const = default;
};

/// The key of an output that writes into one list's status: what it is keyed by there.
template <class K>
struct PerStatusOutputKey {
  K key{};

  uint32_t hash() const { return Kelp::keyHash(key); }
  bool isEq(const PerStatusOutputKey& other) const { return *this == other; }
  bool validate() const { return key != K{}; }
  explicit operator bool() const { return key != K{}; }
  bool operator==(const PerStatusOutputKey&) const = default;
  auto operator<=>(const PerStatusOutputKey&) const = default;
};
using AclAclStatusPtrRuleStatusOutputKeyType = PerStatusOutputKey<Kiv::UniqueId>;
using AclAclStatusPtrImplicitRuleIdOutputKeyType = PerStatusOutputKey<Acl::ImplicitRuleType>;
using AclAclStatusPtrImplicitRuleStatusOutputKeyType = PerStatusOutputKey<Acl::ImplicitRuleType>;

}  // namespace Velo::VeloAcl
