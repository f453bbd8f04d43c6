#pragma once

#include <Acl/Counters.h>
#include <agent/forward/Forwarder.h>
#include <agent/observe/MatchFollower.h>
#include <agent/observe/MatchPlace.h>
#include <agent/show/Verdicts.h>

#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// Records what happened to each frame. The plugin does not report this, so the recorder follows its match
/// counters and the named counters. A replay without a recorder pays nothing for it. The core and the
/// forwarder outlive it.
class VerdictRecorder final : private Zeb::Notifiee, private MirrorObserver {
 public:
  VerdictRecorder(Core& core, Forwarder& forwarder);
  ~VerdictRecorder() override;

  /// Forgets the frame before. To be called before each Forwarder::receive().
  void begin();

  const std::vector<Hit>& hits() const { return hits_; }
  const std::vector<Kelp::String>& mirrored() const { return mirrored_; }
  /// The last reason that was counted under "Drop"; empty when there was none.
  const Kelp::String& dropReason() const { return dropReason_; }

 private:
  void handleChange(const Zeb::Change& change) override;
  void handleMirrored(const Kelp::String& session) override;
  void handleMirroredDone() override { insideCopy_ = false; }
  void handleMatch(const Velo::Counter::VeloDpAclCounterKey& key);

  Core& core_;
  Forwarder& forwarder_;
  MatchPlace place_;
  std::vector<Hit> hits_;
  std::vector<Kelp::String> mirrored_;
  Kelp::String dropReason_;
  bool insideCopy_ = false;
  MatchFollower follower_;
};

}  // namespace Agent
