#pragma once

#include <Acl/Counters.h>
#include <agent/forward/Forwarder.h>
#include <agent/observe/MatchFollower.h>
#include <agent/observe/MatchPlace.h>
#include <agent/show/Verdicts.h>

#include <functional>

namespace Agent {

/// Records what happened to each frame. The plugin does not report this, so the recorder follows its match
/// counters and the named counters, and is the observer of the forwarder. As long as there is no recorder,
/// packets cost nothing more. The core and the forwarder outlive it.
class VerdictRecorder final : private Zeb::Notifiee, private FrameObserver {
 public:
  /// `done` is called for every frame when all has been done with it, from within Forwarder::receive(), which
  /// still has the frame; it may be empty.
  VerdictRecorder(Core& core, Forwarder& forwarder, std::function<void()> done = {});
  ~VerdictRecorder() override;

  /// Forgets the frame before. To be called before each Forwarder::receive().
  void begin();

  const Fate& fate() const { return fate_; }

 private:
  void handleChange(const Zeb::Change& change) override;
  void handleMirrored(const Kelp::String& session) override;
  void handleMirroredDone() override { insideCopy_ = false; }
  void handleEgress(const Port& port, const Velo::PipelineStep* droppedBy) override;
  void handleVerdict(const Port& port, const Verdict& verdict) override;
  void handleMatch(const Velo::Counter::VeloDpAclCounterKey& key);
  /// Takes the reason of a drop.
  Kelp::String dropReason(const Velo::PipelineStep& droppedBy);

  Core& core_;
  Forwarder& forwarder_;
  const std::function<void()> done_;
  MatchPlace place_;
  Fate fate_;
  Kelp::String dropReason_;  // the last one that was counted under "Drop", until it is told
  bool insideCopy_ = false;
  MatchFollower follower_;
};

}  // namespace Agent
