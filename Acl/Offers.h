#pragma once

#include <Hive/DirMerged.h>
#include <Kelp/String.h>

#include <map>
#include <vector>

namespace Acl {

/// The values that sources of configuration have for each key, in the order of precedence: the first one is
/// in force, the others are overridden.
template <class Key, class Value>
class Offers {
 public:
  using Ranked = std::map<Hive::MergeRank, Value>;

  /// Sets the value of one source. True when that changes the value in force.
  bool put(const Key& key, const Hive::MergeRank& rank, Value value) {
    Ranked& offers = offers_[key];
    auto [at, isNew] = offers.try_emplace(rank, value);
    if (!isNew) {
      if (at->second == value) return false;
      at->second = std::move(value);
    }
    return at == offers.begin();
  }

  /// Removes the value of one source. True when that changes the value in force.
  bool remove(const Key& key, const Hive::MergeRank& rank) {
    auto all = offers_.find(key);
    if (all == offers_.end()) return false;
    auto at = all->second.find(rank);
    if (at == all->second.end()) return false;
    const bool wasInForce = at == all->second.begin();
    all->second.erase(at);
    if (all->second.empty()) offers_.erase(all);
    return wasInForce;
  }

  /// The value in force; null when there is none.
  const Value* inForce(const Key& key) const {
    auto at = offers_.find(key);
    return at == offers_.end() ? nullptr : &at->second.begin()->second;
  }

  /// The names of the sources, the one in force first.
  std::vector<Kelp::String> sources(const Key& key) const {
    std::vector<Kelp::String> names;
    if (auto at = offers_.find(key); at != offers_.end()) {
      for (const auto& [rank, value] : at->second) names.push_back(rank.name);
    }
    return names;
  }

 private:
  std::map<Key, Ranked> offers_;
};

}  // namespace Acl
