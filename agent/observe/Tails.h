#pragma once

#include <agent/core/EventLoop.h>
#include <agent/observe/FrameQueue.h>
#include <agent/observe/VerdictRecorder.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

namespace Agent {

class Tails;

/// Which frames somebody wants to see. Every member narrows the choice.
struct TailFilter {
  Kelp::String list{};             ///< frames that this list has judged, of whichever type; empty: any
  std::optional<uint32_t> rule{};  ///< and that met this rule of it; 0: no rule
  bool drops = false;              ///< frames that were dropped, also at one of several ports

  bool wants(const Fate& fate) const;
};

/// Somebody who looks at frames as they are judged. Frames that he does not take in time are passed over:
/// nothing waits for him. Until it is destroyed it costs every packet something.
class Tail {
 public:
  /// `octets`: of each frame so many are kept; 0: those that a line tells of. The tails outlive it.
  Tail(Tails& tails, TailFilter filter, uint32_t octets);
  ~Tail();
  Tail(const Tail&) = delete;
  Tail& operator=(const Tail&) = delete;

  /// The most octets of a frame that can be kept.
  static constexpr uint32_t mostOctets = 16384;

  FrameQueue& queue() { return queue_; }
  /// Whether octets of frames are wanted beside what is told of them.
  bool wantsOctets() const { return octets_ > 0; }
  /// Has `ready` called once, as soon as there is something in the queue: at once, or from the loop between
  /// two bursts. It may destroy the tail.
  void wait(std::function<void()> ready);

 private:
  friend class Tails;
  bool hasSomething() const { return queue_.size() > 0 || queue_.hasPassedOver(); }

  Tails& tails_;
  const TailFilter filter_;
  const uint32_t octets_;
  FrameQueue queue_;
  std::function<void()> ready_;
};

/// All who look at frames. As long as there is nobody there is no recorder either, and a packet pays nothing.
/// Core, forwarder and loop outlive it; all of its tails are gone before it goes.
class Tails final : private Poller {
 public:
  /// As many may look at once.
  static constexpr size_t most = 8;

  Tails(Core& core, Forwarder& forwarder, EventLoop& loop);
  ~Tails() override;

  bool full() const { return tails_.size() >= most; }
  size_t size() const { return tails_.size(); }

 private:
  friend class Tail;
  void add(Tail& tail);
  void remove(Tail& tail);
  /// Gives the frame that was judged to those who want it.
  void take();
  bool poll() override;

  /// What there is while somebody looks.
  struct Looking {
    explicit Looking(Tails& tails);
    ~Looking();
    Tails& owner;
    VerdictRecorder recorder;
  };

  Core& core_;
  Forwarder& forwarder_;
  EventLoop& loop_;
  std::vector<Tail*> tails_;
  std::optional<Looking> looking_;
};

}  // namespace Agent
