#include <Rix/CollectionFollower.h>
#include <Zeb/Publisher.h>
#include <agent/observe/MatchFollower.h>

#include <map>
#include <utility>

namespace Agent {

using Velo::Counter::VeloDpAclCounter;
using Velo::Counter::VeloDpAclCounterColl;

/// Follows one counter.
class MatchFollower::Counter final : public Zeb::Notifiee {
 public:
  Counter(const Matched& matched, Key key, const VeloDpAclCounter& counter)
      : matched_(matched), key_(std::move(key)) {
    counter.publisher().subscribe(*this);
  }
  void handleChange(const Zeb::Change& change) override {
    if (change.is(Velo::Counter::PktCounter::packetsAttribute())) matched_(key_);
  }

 private:
  const Matched& matched_;
  const Key key_;
};

/// Follows the counters of one collection that are wanted.
class MatchFollower::Collection {
 public:
  Collection(const MatchFollower& owner, const Kelp::Ptr<VeloDpAclCounterColl>& counters)
      : owner_(owner),
        follower_(
            counters, VeloDpAclCounterColl::counterCollectionAttribute(),
            [counters = counters.get()]() -> auto& { return counters->counterCollection(); },
            [this](const Key& key, const Zeb::Owned<VeloDpAclCounter>& counter) {
              if (owner_.wanted_(key))
                followed_[key] = std::make_unique<Counter>(owner_.matched_, key, *counter.ptr());
            },
            [this](const Key& key) {
              if (followed_.erase(key) > 0 && owner_.gone_) owner_.gone_(key);
            }) {}

  size_t size() const { return followed_.size(); }

 private:
  const MatchFollower& owner_;
  std::map<Key, std::unique_ptr<Counter>> followed_;
  Rix::CollectionFollower<VeloDpAclCounterColl::counterCollectionMap> follower_;
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
