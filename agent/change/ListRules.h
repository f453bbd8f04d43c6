#pragma once

#include <Acl/Model.h>
#include <agent/config/Model.h>

#include <utility>

namespace Agent {

/// The rules of a list in the state tree, by their numbers and whatever kind they are of.
class ListRules {
 public:
  ListRules(Acl::AclType type, Kelp::Ptr<Acl::AclSubConfig> list) : type_(type), list_(std::move(list)) {}

  const Kelp::Ptr<Acl::AclSubConfig>& list() const { return list_; }
  size_t size() const;
  /// The id of the rule of a number; an empty one when there is none.
  Kiv::UniqueId idAt(uint32_t sequence) const;
  /// `rule` is one of the list's kind.
  void write(const Kiv::UniqueId& id, const Config::Rule& rule);
  void remove(const Kiv::UniqueId& id);
  /// There is one.
  void removeFirst();

 private:
  Acl::AclType type_;
  Kelp::Ptr<Acl::AclSubConfig> list_;
};

}  // namespace Agent
