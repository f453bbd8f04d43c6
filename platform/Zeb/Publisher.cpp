#include <Zeb/Publisher.h>

#include <algorithm>

namespace Zeb {

Notifiee::~Notifiee() {
  for (Publisher* publisher : publishers_) publisher->forget(*this);
}

/// Keeps the places of the subscribers as they are while any delivery is going on.
class Publisher::Delivery {
 public:
  explicit Delivery(Publisher& publisher) : publisher_(publisher) { ++publisher_.deliveries_; }
  ~Delivery() {
    if (--publisher_.deliveries_ == 0 && publisher_.left_) {
      std::erase(publisher_.subscribers_, nullptr);
      publisher_.left_ = false;
    }
  }

 private:
  Publisher& publisher_;
};

Publisher::~Publisher() {
  for (Notifiee* who : subscribers_) {
    if (who) std::erase(who->publishers_, this);
  }
}

void Publisher::subscribe(Notifiee& who) {
  if (hasSubscriber(who)) return;
  subscribers_.push_back(&who);
  who.publishers_.push_back(this);
}

void Publisher::unsubscribe(Notifiee& who) {
  if (!hasSubscriber(who)) return;
  forget(who);
  std::erase(who.publishers_, this);
}

bool Publisher::hasSubscriber(const Notifiee& who) const {
  return std::find(subscribers_.begin(), subscribers_.end(), &who) != subscribers_.end();
}

void Publisher::forget(const Notifiee& who) {
  auto at = std::find(subscribers_.begin(), subscribers_.end(), &who);
  if (at == subscribers_.end()) return;
  if (deliveries_ > 0) {
    *at = nullptr;
    left_ = true;
  } else {
    subscribers_.erase(at);
  }
}

void Publisher::publish(const Change& change) {
  Delivery delivery(*this);
  const size_t count = subscribers_.size();
  for (size_t i = 0; i < count; ++i) {
    if (Notifiee* who = subscribers_[i]) who->handleChange(change);
  }
}

}  // namespace Zeb
