#include <Kelp/Ptr.h>
#include <Rix/InReactor.h>

#include <vector>

namespace Rix::Gen {

namespace {

std::vector<Kelp::Ptr<InReactor>>& zombies() {
  static std::vector<Kelp::Ptr<InReactor>>& all = *new std::vector<Kelp::Ptr<InReactor>>;
  return all;
}

}  // namespace

void InReactor::hasNotificationActiveIs(bool on) {
  if (on == hasNotificationActive() || (on && done_)) return;
  nodeFlagSet(Kelp::nodeNotifying, on);
  if (!watched_) return;
  if (on) {
    watched_->publisher().subscribe(*this);
  } else {
    watched_->publisher().unsubscribe(*this);
  }
}

void InReactor::doneIs() {
  if (done_) return;
  hasNotificationActiveIs(false);
  done_ = true;
  if (!nodeFlag(Kelp::nodeLive)) return;  // a destructor is running already
  zombies().push_back(Kelp::Ptr<InReactor>(this));
}

void InReactor::handleChange(const Zeb::Change& change) {
  if (!nodeFlag(Kelp::nodeLive)) return;  // the derived part is being destroyed or is gone
  const Kelp::Ptr<InReactor> keep(this);
  enDispatch(change);
}

size_t zebDoZombieReactors() {
  size_t swept = 0;
  while (!zombies().empty()) {
    std::vector<Kelp::Ptr<InReactor>> batch;
    batch.swap(zombies());
    swept += batch.size();
  }
  return swept;
}

}  // namespace Rix::Gen
