#pragma once

#include <Kelp/String.h>
#include <Velo/PacketContext.h>

#include <map>
#include <vector>

namespace Velo {

/// From which pipeline a packet is mirrored.
enum class MirroringDirection : uint8_t { ingress = 0, egress = 1 };

/// Sends mirrored copies; the agent is one.
class MirrorTarget {
 public:
  /// Sends a copy of the packet out of an interface, through the egress pipeline, marked with the session.
  /// The context belongs to the packet that is being mirrored and must come out unchanged.
  virtual void sendMirrored(const Kelp::Ptr<PacketContext>& ctx, const Kelp::String& session,
                            const Nimnet::IntfId& destination) = 0;

 protected:
  ~MirrorTarget() = default;
};

/// The mirror sessions of the process, by name, and the way to mirror to them. A rule may name a session that
/// is defined later. Copies to a session that is not defined are lost, and counted under "Mirror" in the
/// packet's named counters.
class MirroringStepHelper : public Kelp::Node {
 public:
  static const Kelp::Ptr<MirroringStepHelper>& singleton();

  using Sessions = std::map<Kelp::String, std::vector<Nimnet::IntfId>>;
  const Sessions& sessions() const { return sessions_; }
  void sessionIs(const Kelp::String& name, std::vector<Nimnet::IntfId> destinations);
  void sessionDel(const Kelp::String& name);
  /// Not owned; null: copies go nowhere.
  void targetIs(MirrorTarget* target) { target_ = target; }

  /// Sends a copy to each destination of a session.
  void maybeMirrorToSessionTargets(const Kelp::Ptr<PacketContext>& ctx, MirroringDirection direction,
                                   const Kelp::String& session);

 private:
  Sessions sessions_;
  MirrorTarget* target_ = nullptr;
};

}  // namespace Velo
