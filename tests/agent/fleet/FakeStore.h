#pragma once

#include <agent/fleet/Etcd.h>

#include <algorithm>
#include <map>
#include <string>
#include <vector>

namespace TestSupport {

/// What a store answers: the entries with their revisions, and nothing of its past.
class FakeStore {
 public:
  /// One transaction: an empty value deletes.
  void write(const std::map<std::string, std::string>& values) {
    ++revision_;
    for (const auto& [key, value] : values) {
      if (value.empty())
        entries_.erase(key);
      else
        entries_[key] = {key, value, revision_, 1};
    }
  }
  /// Carries it out, if its comparisons hold; whether they do.
  bool txn(const Agent::EtcdTxn& asked) {
    for (const auto& [key, modified, end] : asked.compares) {
      const auto known = entries_.find(key);
      if (end.empty() && (known == entries_.end() ? 0 : known->second.modified) != modified) return false;
      if (end.empty()) continue;
      for (auto at = entries_.lower_bound(key); at != entries_.end() && at->first < end; ++at) {
        if (at->second.modified > modified) return false;
      }
    }
    ++revision_;
    for (const auto& range : asked.deletes) {
      std::erase_if(entries_, [&range](const auto& entry) {
        return range.isPrefix ? entry.first.starts_with(range.key) : entry.first == range.key;
      });
    }
    for (const auto& put : asked.puts) entries_[put.key] = {put.key, put.value, revision_, 1};
    return true;
  }
  /// As a server that was set up anew.
  void forget() {
    entries_.clear();
    revision_ = 1;
    ++cluster_;
  }

  Agent::EtcdResult read(const std::vector<Agent::EtcdRange>& ranges) const {
    Agent::EtcdResult result{revision_, std::to_string(cluster_), true, {}};
    for (const auto& range : ranges) {
      auto& found = result.reads.emplace_back();
      for (const auto& [key, entry] : entries_) {
        if (!(range.isPrefix ? key.starts_with(range.key) : key == range.key)) continue;
        if (entry.modified < range.changedFrom) continue;
        if (range.most > 0 && std::ssize(found) == range.most) break;
        found.push_back(entry);
        if (range.keysOnly) found.back().value.clear();
      }
    }
    return result;
  }

  const std::map<std::string, Agent::EtcdEntry>& entries() const { return entries_; }
  int64_t revision() const { return revision_; }

 private:
  std::map<std::string, Agent::EtcdEntry> entries_;
  int64_t revision_ = 1;
  int cluster_ = 1;
};

}  // namespace TestSupport
