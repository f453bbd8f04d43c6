#include <Zeb/Publisher.h>
#include <agent/observe/MatchFollower.h>

#include <map>
#include <utility>

namespace Agent {

using Velo::Counter::VeloDpAclCounter;
using Velo::Counter::VeloDpAclCounterColl;

/// Follows one counter.
class MatchFollower::Follower final : public Zeb::Notifiee {
 public:
  Follower(const Matched& matched, Counter what, const VeloDpAclCounter& counter)
      : matched_(matched), what_(std::move(what)) {
    counter.publisher().subscribe(*this);
  }
  const Counter& what() const { return what_; }
  void handleChange(const Zeb::Change& change) override {
    if (change.is(Velo::Counter::PktCounter::packetsAttribute())) matched_(what_);
  }

 private:
  const Matched& matched_;
  const Counter what_;
};

/// Follows the counters of one collection that are wanted. Of all others it remembers nothing, unlike a
/// Rix::CollectionFollower: there may be a counter for each of very many rules.
class MatchFollower::Collection final : public Zeb::Notifiee {
 public:
  Collection(MatchFollower& owner, Kelp::Ptr<const VeloDpAclCounterColl> counters)
      : owner_(owner), counters_(std::move(counters)) {
    counters_->publisher().subscribe(*this);
    for (auto at = counters_->counterCollection().begin(); at; at.next()) come(at.key(), *at.value());
  }
  void handleChange(const Zeb::Change& change) override {
    if (!change.is(VeloDpAclCounterColl::counterCollectionAttribute())) return;
    const Key& key = change.keyAs<Key>();
    go(key);
    if (const auto* counter = counters_->counterCollection().find(key)) come(key, **counter);
  }

  size_t size() const { return followed_.size(); }

 private:
  void come(const Key& key, const VeloDpAclCounter& counter) {
    const Counter what{key, ++owner_.lastNumber_};
    if (owner_.wanted_(what)) followed_[key] = std::make_unique<Follower>(owner_.matched_, what, counter);
  }
  void go(const Key& key) {
    const auto known = followed_.extract(key);
    if (known && owner_.gone_) owner_.gone_(known.mapped()->what());
  }

  MatchFollower& owner_;
  const Kelp::Ptr<const VeloDpAclCounterColl> counters_;
  std::map<Key, std::unique_ptr<Follower>> followed_;
};

MatchFollower::MatchFollower(const InForce& inForce, Wanted wanted, Matched matched, Gone gone)
    : wanted_(std::move(wanted)), matched_(std::move(matched)), gone_(std::move(gone)) {
  for (const auto& counters : inForce.counters())
    collections_.push_back(std::make_unique<Collection>(*this, counters));
}

MatchFollower::~MatchFollower() = default;

size_t MatchFollower::size() const {
  size_t followed = 0;
  for (const auto& collection : collections_) followed += collection->size();
  return followed;
}

}  // namespace Agent
