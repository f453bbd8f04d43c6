#pragma once

#include <Kiv/Clock.h>
#include <Velo/MalformedStep.h>
#include <Velo/Mirroring.h>
#include <Velo/Pipeline.h>
#include <agent/core/Core.h>
#include <agent/forward/Junction.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Where frames leave: a capture file, an interface. Owned by whoever runs the forwarder.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void send(const Nimnet::Pkt& pkt) = 0;
};

/// A port of the agent, with what went through it. Frames that leave a port without a sink are counted and
/// gone.
struct Port {
  Nimnet::IntfId id;
  FrameSink* sink = nullptr;     ///< not owned
  bool up = true;                ///< of the members of a port-channel those are used that are up
  Nimnet::IntfId portChannel{};  ///< that it is a member of, or the empty id
  End* entry = nullptr;          ///< by which its frames come into a junction: its port-channel's or its own
  uint64_t received = 0;
  uint64_t sent = 0;  ///< mirrored copies included
  uint64_t droppedIn = 0;
  uint64_t droppedOut = 0;
  uint64_t mirrored = 0;  ///< copies that left here
  uint64_t nowhere = 0;   ///< received and passed, but no other port was to have it
};

/// What became of a received frame. Of one that was to leave by several ports: passed when one copy did, then
/// with the port of the last copy that passed, otherwise that of the first one.
struct Verdict {
  const Velo::PipelineStep* droppedBy = nullptr;  ///< null: it passed
  Acl::AclDirection direction = Acl::AclDirection::in;
  const Port* egress =
      nullptr;  ///< the port it was to leave by; null: none, or dropped before that was known
  bool passed() const { return droppedBy == nullptr; }
};

/// Hears of every mirrored copy before it is sent.
class MirrorObserver {
 public:
  virtual void handleMirrored(const Kelp::String& session) = 0;
  virtual void handleMirroredDone() = 0;

 protected:
  ~MirrorObserver() = default;
};

/// Takes frames from ports through the pipeline and to the ports that they are joined with, by a patch or a
/// bridge. Packets and copies are handled one at a time, with contexts that are reused: nothing is allocated
/// for a packet. One a process: it is where mirrored copies go.
class Forwarder final : public Velo::MirrorTarget {
 public:
  Forwarder(Core& core, Velo::MalformedPolicy malformed);
  ~Forwarder();

  /// The port of a name, made when there is none.
  Port& portIs(const std::string& name);
  const std::map<Nimnet::IntfId, std::unique_ptr<Port>>& ports() const { return ports_; }
  /// Makes ports of the members of port-channels and the destinations of mirror sessions, and takes in which
  /// ports the port-channels have: to be called behind every Core::apply.
  void portsOfConfigurationIs();
  /// Whether ports made from now on are up before portUpIs says so; at first they are.
  void newPortsUpIs(bool up) { newPortsUp_ = up; }
  /// A port's link has come or gone. Junctions forget what they learned of an end none of whose ports is up.
  void portUpIs(Port& port, bool up);

  /// Joins two interfaces, ports or port-channels, both ways. Returns what is wrong.
  std::optional<std::string> patchIs(const std::string& a, const std::string& b);
  /// Joins two or more interfaces by a bridge that learns and ages by `clock`, which outlives the forwarder.
  /// Returns what is wrong; then nothing is joined.
  std::optional<std::string> bridgeIs(const std::vector<std::string>& names, const Kiv::Clock& clock);

  void mirrorObserverIs(MirrorObserver* observer) { mirrorObserver_ = observer; }

  /// Takes the frame that is in packet() from a port.
  Verdict receive(Port& port);
  /// Takes the packet of a context with a trial (Velo::PacketTrial) the same way, by the same steps, and
  /// counts, copies and sends nothing. Not from within receive().
  Verdict tryPacket(const Nimnet::IntfId& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out);
  Nimnet::Pkt& packet() { return *ctx_->pkt(); }
  const Kelp::Ptr<Velo::PacketContext>& context() const { return ctx_; }
  /// The port that the packet of context() leaves by, or left by last.
  const Nimnet::IntfId& egressIntf() const { return out_->egressIntf(); }

  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>& ctx, const Kelp::String& session,
                    const Nimnet::IntfId& destination) override;

 private:
  /// From the ingress pipeline to the last egress port, both of real packets and of those that are tried.
  /// `entry` is null for a port that the agent does not have.
  Verdict forward(const Nimnet::IntfId& port, const Nimnet::IntfId& portChannel, End* entry,
                  const Kelp::Ptr<Velo::OutputPipelineContext>& out);
  /// The port that a packet leaves by towards an end; null when there is none.
  static Port* egressPort(const End& end, Velo::PacketContext& ctx);
  /// Runs the egress pipeline and sends. Returns the step that dropped the packet.
  const Velo::PipelineStep* sendBy(Port& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out);

  /// Why the interfaces cannot be `joined` ("patched"), if so.
  std::optional<std::string> whyNotJoined(const std::vector<std::string>& names, std::string_view joined);
  std::vector<End*> endsOf(const std::vector<std::string>& names);
  void join(std::unique_ptr<Junction> junction, const std::vector<End*>& ends);
  End& endIs(const Nimnet::IntfId& id);
  /// Brings all ends up to date with the port-channels and the links.
  void resolveEnds();
  static void resolveUsable(End& end);

  Core& core_;
  const Kelp::Ptr<Velo::PacketContext> ctx_;
  const Kelp::Ptr<Velo::OutputPipelineContext> out_;
  const Kelp::Ptr<Velo::PacketContext> copyCtx_;
  const Kelp::Ptr<Velo::OutputPipelineContext> copyOut_;
  std::map<Nimnet::IntfId, std::unique_ptr<Port>> ports_;
  bool newPortsUp_ = true;
  std::map<Nimnet::IntfId, End> ends_;  // of every port and port-channel there is or was
  std::vector<std::unique_ptr<Junction>> junctions_;
  MirrorObserver* mirrorObserver_ = nullptr;
  uint64_t lastTraceId_ = 0;
};

}  // namespace Agent
