#pragma once

#include <VeloAcl/VeloDpAclStatusSm/OutputKeys.h>
#include <Zeb/HashMap2018.h>

#include <map>
#include <memory>
#include <variant>
#include <vector>

/// Sets of the entries of an output that the inputs have produced.
namespace Velo::VeloAcl {

/// A set of output keys.
template <class Key>
class SeenSet {
 public:
  bool has(const Key& key) const { return keys_.has(key); }
  void add(const Key& key) { keys_.put(key, {}); }
  /// Empties the set. Calls stop() after each key; false when that returned true before the last key.
  template <class Stop>
  bool forget(const Stop& stop) {
    for (auto at = keys_.begin(); at; at.next()) {
      keys_.erase(at.key());
      if (!keys_.empty() && stop()) return false;
    }
    return true;
  }

 private:
  Zeb::HashMap2018<Key, std::monostate> keys_;
};
using HN_AclStatusStatusAclOutputSeen = SeenSet<AclStatusStatusAclOutputKeyType>;
using HN_AclStatusStatusIntfIntfOutputSeen = SeenSet<AclStatusStatusIntfIntfOutputKeyType>;
using HN_AclAclStatusPtrRuleStatusOutputSeen = SeenSet<AclAclStatusPtrRuleStatusOutputKeyType>;
using HN_AclAclStatusPtrImplicitRuleIdOutputSeen = SeenSet<AclAclStatusPtrImplicitRuleIdOutputKeyType>;
using HN_AclAclStatusPtrImplicitRuleStatusOutputSeen =
    SeenSet<AclAclStatusPtrImplicitRuleStatusOutputKeyType>;

/// The seen keys of an output, by the status of the list that they are in. The statuses are walked in the
/// order in which they were first recorded. A status can be recorded without any key in it.
template <class Key>
class PtrSeenMap {
 public:
  void record(const Kelp::Ptr<Acl::AclStatus>& status) { seenOf(status); }
  void add(const Kelp::Ptr<Acl::AclStatus>& status, const Key& key) { seenOf(status).add(key); }
  /// Empties the map. Calls stop() after each key and each status; false when that returned true before the
  /// last one.
  template <class Stop>
  bool forget(const Stop& stop) {
    while (!entries_.empty()) {
      if (!entries_.back().seen->forget(stop)) return false;
      index_.erase(entries_.back().status.get());
      entries_.pop_back();
      if (!entries_.empty() && stop()) return false;
    }
    return true;
  }

  size_t size() const { return entries_.size(); }
  const Kelp::Ptr<Acl::AclStatus>& status(size_t at) const { return entries_[at].status; }
  bool has(size_t at, const Key& key) const { return entries_[at].seen->has(key); }

 private:
  struct Entry {
    Kelp::Ptr<Acl::AclStatus> status;
    std::unique_ptr<SeenSet<Key>> seen;
  };
  SeenSet<Key>& seenOf(const Kelp::Ptr<Acl::AclStatus>& status) {
    auto [at, isNew] = index_.try_emplace(status.get(), entries_.size());
    if (isNew) entries_.push_back({status, std::make_unique<SeenSet<Key>>()});
    return *entries_[at->second].seen;
  }

  std::map<const Acl::AclStatus*, size_t> index_;
  std::vector<Entry> entries_;
};

}  // namespace Velo::VeloAcl
