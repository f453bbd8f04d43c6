#pragma once

#include <Acl/Compiled.h>
#include <Acl/Workshop.h>
#include <Kiv/Clock.h>

#include <algorithm>
#include <tuple>
#include <type_traits>
#include <vector>

namespace Acl {

/// Adds the images of a rule of any kind. Of `projection` and `wide` only those count that the kind has.
inline void imagesFor(const IpFilter& filter, uint32_t slot, const Classify::Projection&, bool wide,
                      std::vector<Classify::Image>& images) {
  addImages(filter, slot, wide, images);
}
inline void imagesFor(const Ip6Filter& filter, uint32_t slot, const Classify::Projection& projection,
                      bool wide, std::vector<Classify::Image>& images) {
  addImages(filter, projection, slot, wide, images);
}
inline void imagesFor(const MacFilter& filter, uint32_t slot, const Classify::Projection&, bool,
                      std::vector<Classify::Image>& images) {
  addImages(filter, slot, images);
}

/// Makes a new form of copies of the rules that the owner has when it comes to them.
template <class Rule>
class Compiled<Rule>::Job final : public BuildJob {
 public:
  explicit Job(Compiled& owner) : owner_(&owner) {}
  void ownerDel() { owner_ = nullptr; }

  bool collect(const Kiv::Task* task) override {
    constexpr uint32_t rulesAtOnce = 64;
    if (!owner_) return true;
    const auto& entries = owner_->entries_;
    if (copied_ == 0) rules_.reserve(owner_->rules_);
    while (copied_ < entries.size()) {
      if (const Entry* entry = entries[copied_]) {
        rules_.push_back({owner_->sequences_[copied_], copied_, entry->key, entry->value.filter()});
      }
      ++copied_;
      if (copied_ % rulesAtOnce == 0 && task && task->taskShouldYield()) break;
    }
    complete_ = copied_ == entries.size();
    return complete_;
  }

  void build() override {
    const Kelp::Duration start = Kiv::steadyClock().now();
    std::sort(rules_.begin(), rules_.end(), [](const Copy& a, const Copy& b) {
      return std::tie(a.sequence, a.id) < std::tie(b.sequence, b.id);
    });
    if constexpr (!std::is_same_v<Rule, MacRuleConfig>) {
      wide_ =
          std::any_of(rules_.begin(), rules_.end(), [](const Copy& rule) { return asksQuad(rule.filter); });
    }
    if constexpr (std::is_same_v<Rule, Ip6RuleConfig>) {
      std::vector<const Ip6Filter*> filters;
      for (const Copy& rule : rules_) filters.push_back(&rule.filter);
      projection = projectionOf(filters);
    }
    std::vector<Classify::Image> images;
    images.reserve(rules_.size());
    std::vector<uint32_t> sequences(copied_);
    for (const Copy& rule : rules_) {
      imagesFor(rule.filter, rule.slot, projection, wide_, images);
      sequences[rule.slot] = rule.sequence;
    }
    rules_ = {};
    forest.build(images, sequences, wide_);
    seconds = (Kiv::steadyClock().now() - start).seconds();
  }

  void handleDone() override {
    if (owner_) owner_->takeNew();
  }
  void handleFailed() override {
    if (owner_) owner_->goOnWithout();
  }

  /// Whether a change of a slot comes too late to be copied.
  bool hasCopied(uint32_t slot) const { return complete_ || slot < copied_; }

  Classify::Forest forest;  ///< the result, with the projection that it was made under
  Classify::Projection projection;
  double seconds = 0;  ///< that build() took

 private:
  struct Copy {
    uint32_t sequence;
    uint32_t slot;
    Kiv::UniqueId id;
    Filter filter;
  };

  Compiled* owner_;      // null when it has gone
  uint32_t copied_ = 0;  // slots
  bool complete_ = false;
  bool wide_ = false;
  std::vector<Copy> rules_;
};

}  // namespace Acl
