#pragma once

namespace Velo::VeloAcl {

/// The events of a stream that are being carried out, each one within a write of the one before. A handler
/// that is told of a write may change the very thing that the event is about. That is a new event, which is
/// carried out at once and completely, and which knows the present state. So the event around it must not
/// write any further: it was overtaken.
template <class Key>
class EventsUnderWay {
 public:
  class Event {
   public:
    Event(EventsUnderWay& events, const Key& key) : events_(events), key_(key), around_(events.innermost_) {
      for (Event* at = around_; at; at = at->around_) at->overtaken_ = at->overtaken_ || at->key_ == key;
      events_.innermost_ = this;
    }
    ~Event() { events_.innermost_ = around_; }
    Event(const Event&) = delete;
    Event& operator=(const Event&) = delete;

    bool overtaken() const { return overtaken_; }

   private:
    EventsUnderWay& events_;
    const Key key_;
    Event* const around_;
    bool overtaken_ = false;
  };

  /// Whether the innermost event was overtaken.
  bool overtaken() const { return innermost_ && innermost_->overtaken(); }

 private:
  Event* innermost_ = nullptr;
};

}  // namespace Velo::VeloAcl
