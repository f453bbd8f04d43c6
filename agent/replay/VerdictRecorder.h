#pragma once

#include <Acl/Counters.h>
#include <agent/forward/Forwarder.h>

#include <string>
#include <string_view>
#include <vector>

namespace Agent {

/// One rule that a frame met.
struct Hit {
  Acl::AclDirection direction;
  Nimnet::IntfId intf;
  Acl::AclType type;
  Kelp::String list;
  uint32_t sequence;  ///< 0: the list's implicit drop
  Acl::Action action;
};

/// Tells what happened to each frame. The plugin reports nothing of the kind; the recorder follows its match
/// counters and the named counters, and knows the interface of a match from the order of evaluation: the
/// port-channel before its member, on each the MAC list before the IP list. It costs nothing while it does
/// not exist. The core and the forwarder outlive it.
class VerdictRecorder final : private Zeb::Notifiee, private MirrorObserver {
 public:
  VerdictRecorder(Core& core, Forwarder& forwarder);
  ~VerdictRecorder() override;

  /// Forgets the last frame; call before each Forwarder::receive().
  void begin();

  const std::vector<Hit>& hits() const { return hits_; }
  const std::vector<Kelp::String>& mirrored() const { return mirrored_; }
  /// The last reason counted under "Drop"; empty when there was none.
  const Kelp::String& dropReason() const { return dropReason_; }

 private:
  class Collection;
  void handleChange(const Zeb::Change& change) override;
  void handleMirrored(const Kelp::String& session) override;
  void handleMirroredDone() override { insideCopy_ = false; }
  void handleMatch(const Velo::Counter::VeloDpAclCounterKey& key);
  /// The interface that the next match of this key is on.
  Nimnet::IntfId interfaceOf(const Velo::Counter::VeloDpAclCounterKey& key);

  Core& core_;
  Forwarder& forwarder_;
  std::vector<std::unique_ptr<Collection>> collections_;
  std::vector<Hit> hits_;
  std::vector<Kelp::String> mirrored_;
  Kelp::String dropReason_;
  bool insideCopy_ = false;
  // How far the evaluation of a direction has come: interface times two, plus one behind the MAC list.
  unsigned progress_[2] = {0, 0};
};

}  // namespace Agent
