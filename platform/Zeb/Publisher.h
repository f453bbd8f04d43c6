#pragma once

#include <Kelp/Assert.h>

#include <cstddef>
#include <string_view>
#include <vector>

namespace Zeb {

class Attribute;
class Entity;
class Publisher;

/// What changed: an attribute of an entity and, of a collection, the key of the element. A handler reads the
/// current state; by the time it runs the element may have changed again.
struct Change {
  Entity& entity;
  const Attribute& attribute;
  const void* key = nullptr;  ///< of the collection's key type; valid during the call

  bool is(const Attribute& other) const { return &attribute == &other; }
  template <class K>
  const K& keyAs() const {
    KELP_ASSERT(key != nullptr, "a change of a single attribute has no key");
    return *static_cast<const K*>(key);
  }
};

/// Follows entities. It may be destroyed while it is subscribed, also from within a notification.
class Notifiee {
 public:
  Notifiee() = default;
  Notifiee(const Notifiee&) = delete;
  Notifiee& operator=(const Notifiee&) = delete;
  virtual ~Notifiee();

  virtual void handleChange(const Change& change) = 0;

 private:
  friend class Publisher;
  std::vector<Publisher*> publishers_;
};

/// The subscribers of one entity. Changes are delivered synchronously, in the order of subscription, on the
/// thread that makes them. A handler may subscribe, unsubscribe, destroy subscribers (itself included) and
/// drop the entity; whoever subscribes during a delivery does not get that change, whoever leaves gets
/// nothing more. A change made in a handler is delivered at once, inside that call, to everyone who is
/// subscribed then.
class Publisher {
 public:
  Publisher() = default;
  Publisher(const Publisher&) = delete;
  Publisher& operator=(const Publisher&) = delete;
  ~Publisher();

  /// Adds a subscriber at the end; one that is there already stays where it is.
  void subscribe(Notifiee& who);
  void unsubscribe(Notifiee& who);
  bool hasSubscriber(const Notifiee& who) const;
  /// Whether nobody is subscribed. (During a delivery: whether nobody was when it began.)
  bool empty() const { return subscribers_.empty(); }
  void publish(const Change& change);

 private:
  friend class Notifiee;
  class Delivery;
  void forget(const Notifiee& who);

  std::vector<Notifiee*> subscribers_;  // null where one left during a delivery
  int deliveries_ = 0;                  // nested deliveries under way
  bool left_ = false;
};

}  // namespace Zeb
