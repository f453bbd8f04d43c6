#pragma once

#include <Acl/Model.h>
#include <agent/config/Model.h>

#include <utility>

namespace Agent {

/// The rules of a list in the state tree, found by their numbers. Works for all types of lists.
class ListRules {
 public:
  ListRules(Acl::AclType type, Kelp::Ptr<Acl::AclSubConfig> list) : type_(type), list_(std::move(list)) {}

  const Kelp::Ptr<Acl::AclSubConfig>& list() const { return list_; }
  size_t size() const;
  /// The id of the rule with this number; the empty id when there is none.
  Kiv::UniqueId idAt(uint32_t sequence) const;
  /// `rule` must be of the list's type.
  void write(const Kiv::UniqueId& id, const Config::Rule& rule);
  void remove(const Kiv::UniqueId& id);
  /// The list must not be empty.
  void removeFirst();

 private:
  Acl::AclType type_;
  Kelp::Ptr<Acl::AclSubConfig> list_;
};

}  // namespace Agent
