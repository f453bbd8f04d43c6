#pragma once

#include <Kiv/UniqueId.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <tuple>
#include <vector>

namespace Acl {

/// The entries of a rule map in the order in which the rules are tried: by sequence number, rules of one
/// number by id. Kept in runs of bounded length, so that a change moves a few places however long the list
/// is. Part of a rule map, which owns the entries; an entry's place is by the sequence number that it had
/// when it was put in. Iterators last until the next change.
template <class Entry>
class RuleOrder {
  /// An entry with a copy of what orders it, so that a search touches no entry.
  struct Place {
    uint32_t sequence;
    uint32_t slot;  ///< kept for the rule map; no part of the order
    Kiv::UniqueId id;
    const Entry* entry;
    bool operator<(const Place& other) const {
      return std::tie(sequence, id) < std::tie(other.sequence, other.id);
    }
  };
  using Run = std::vector<Place>;

 public:
  class Iterator {
   public:
    Iterator(const std::vector<Run>* runs, size_t run, size_t at) : runs_(runs), run_(run), at_(at) {}
    const Entry* operator*() const { return (*runs_)[run_][at_].entry; }
    /// The entry's key, without a look at the entry, which lies anywhere in memory.
    const Kiv::UniqueId& id() const { return (*runs_)[run_][at_].id; }
    Iterator& operator++() {
      if (++at_ == (*runs_)[run_].size()) ++run_, at_ = 0;
      return *this;
    }
    bool operator==(const Iterator&) const = default;

   private:
    const std::vector<Run>* runs_;
    size_t run_, at_;
  };

  size_t size() const { return size_; }
  bool empty() const { return size_ == 0; }
  Iterator begin() const { return {&runs_, 0, 0}; }
  Iterator end() const { return {&runs_, runs_.size(), 0}; }
  /// Of a map that is not empty.
  const Entry* front() const { return *begin(); }
  /// The first entry whose sequence number is not less; null when there is none.
  const Entry* from(uint32_t sequence) const {
    if (empty()) return nullptr;
    const Place wanted{sequence, 0, Kiv::UniqueId(), nullptr};
    const size_t run = runOf(wanted);
    const auto at = std::lower_bound(runs_[run].begin(), runs_[run].end(), wanted);
    if (at != runs_[run].end()) return at->entry;
    return run + 1 < runs_.size() ? runs_[run + 1].front().entry : nullptr;
  }

  void clear() {
    runs_.clear();
    firsts_.clear();
    size_ = 0;
  }
  void insert(const Entry* entry, uint32_t slot = 0) {
    const Place place{entry->value.sequence(), slot, entry->key, entry};
    ++size_;
    if (runs_.empty()) {
      runs_.push_back({place});
      firsts_.push_back(place);
      return;
    }
    const size_t index = runOf(place);
    Run& run = runs_[index];
    run.insert(std::lower_bound(run.begin(), run.end(), place), place);
    firsts_[index] = run.front();
    if (run.size() <= maxRun) return;
    Run upper(run.begin() + maxRun / 2, run.end());
    run.resize(maxRun / 2);
    const auto next = static_cast<std::ptrdiff_t>(index + 1);
    firsts_.insert(firsts_.begin() + next, upper.front());
    runs_.insert(runs_.begin() + next, std::move(upper));
  }

  /// The slot that an entry was put in with, or was given since; to be changed by whoever hands out slots.
  uint32_t& slotOf(const Entry* entry) {
    const Place place{entry->value.sequence(), 0, entry->key, entry};
    Run& run = runs_[runOf(place)];
    return std::lower_bound(run.begin(), run.end(), place)->slot;
  }

  /// Gives every entry the slot that `slotFor(entry)` says, in the order of trial.
  template <class SlotFor>
  void numberSlots(const SlotFor& slotFor) {
    for (Run& run : runs_) {
      for (Place& place : run) place.slot = slotFor(place.entry);
    }
  }

  /// The entry is there and its sequence number is the one that it was put in with. Returns its slot.
  uint32_t erase(const Entry* entry) {
    const Place place{entry->value.sequence(), 0, entry->key, entry};
    const size_t index = runOf(place);
    Run& run = runs_[index];
    const auto at = std::lower_bound(run.begin(), run.end(), place);
    const uint32_t slot = at->slot;
    run.erase(at);
    --size_;
    if (!run.empty()) {
      firsts_[index] = run.front();
    } else {
      firsts_.erase(firsts_.begin() + static_cast<std::ptrdiff_t>(index));
      runs_.erase(runs_.begin() + static_cast<std::ptrdiff_t>(index));
    }
    return slot;
  }

 private:
  static constexpr std::ptrdiff_t maxRun = 256;

  /// The run that a place is, or belongs, in; there is one.
  size_t runOf(const Place& place) const {
    const auto after = std::upper_bound(firsts_.begin(), firsts_.end(), place);
    return after == firsts_.begin() ? 0 : static_cast<size_t>(after - firsts_.begin()) - 1;
  }

  std::vector<Run> runs_;      // none is empty
  std::vector<Place> firsts_;  // of each run the first place
  size_t size_ = 0;
};

}  // namespace Acl
