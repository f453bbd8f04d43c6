#pragma once

#include <Kiv/Clock.h>
#include <Velo/MalformedStep.h>
#include <Velo/Mirroring.h>
#include <Velo/Pipeline.h>
#include <agent/core/Core.h>
#include <agent/forward/BurstPlan.h>
#include <agent/forward/Junction.h>
#include <agent/forward/Port.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

class Bridge;

/// Is told what becomes of received frames, while it happens. Whoever it belongs to takes it away before it
/// goes.
class FrameObserver {
 public:
  /// Before a mirrored copy is sent, and when it has been.
  virtual void handleMirrored(const Kelp::String& session) = 0;
  virtual void handleMirroredDone() = 0;
  /// The frame has come to a port that it was to leave by. `droppedBy`: null when it has left there.
  virtual void handleEgress(const Port& port, const Velo::PipelineStep* droppedBy) = 0;
  /// All has been done with the frame that `port` has received. It is still that of Forwarder::context().
  virtual void handleVerdict(const Port& port, const Verdict& verdict) = 0;

 protected:
  ~FrameObserver() = default;
};

/// Takes frames from ports through the pipeline, and to the ports that these are joined with by a patch or a
/// bridge. Packets and copies are handled one at a time in contexts that are used again, so that nothing is
/// allocated for a packet. Bursts come to the same, see BurstPlan. A process has one forwarder, which also
/// sends the mirrored copies.
class Forwarder final : public Velo::MirrorTarget {
 public:
  Forwarder(Core& core, Velo::MalformedPolicy malformed);
  ~Forwarder();

  /// The port with this name; made when there is none.
  Port& portIs(const std::string& name);
  const std::map<Nimnet::IntfId, std::unique_ptr<Port>>& ports() const { return ports_; }
  /// Makes ports for the members of port-channels and the destinations of mirror sessions, and finds out
  /// which ports belong to which port-channel. To be called after every Core::interfacesAre().
  void portsOfConfigurationIs();
  /// Whether ports that are made from now on are up, until portUpIs() is called. At first they are.
  void newPortsUpIs(bool up) { newPortsUp_ = up; }
  /// The link of a port has come or gone. When no port of an end is up, its junction forgets what it learned
  /// there.
  void portUpIs(Port& port, bool up);

  /// Whether interfaces can be joined is found out once, with the configuration of then.
  enum class Judged {
    now,
    before,  ///< ports are there; what is none may have been a port-channel, and is an end without ports
  };
  /// Joins two interfaces, ports or port-channels, both ways. Returns what is wrong.
  std::optional<std::string> patchIs(const std::string& a, const std::string& b, Judged judged = Judged::now);
  /// Joins two or more interfaces by a bridge. `clock` is used for ageing and outlives the forwarder. Returns
  /// what is wrong; then nothing is joined.
  std::optional<std::string> bridgeIs(const std::vector<std::string>& names, const Kiv::Clock& clock,
                                      Judged judged = Judged::now);

  /// The bridges, in the order in which they were made.
  const std::vector<Bridge*>& bridges() const { return bridges_; }

  /// There can be one; null: none. It costs a packet nothing but being asked for.
  void observerIs(FrameObserver* observer) { observer_ = observer; }
  bool hasObserver() const { return observer_ != nullptr; }

  /// Forwards the frame in packet(), which this port has received.
  Verdict receive(Port& port);
  /// Where the frames of the next burst are put.
  Velo::PacketBurst& burst() { return plan_.packets; }
  /// Forwards the frames in burst(), which this port has received in this order, as receive() would one after
  /// the other. Returns those that have passed.
  Velo::PacketSet receiveBurst(Port& port);
  /// Sends the packet of a context with a trial (Velo::PacketTrial) through the same steps, but counts,
  /// copies and sends nothing. Must not be called from within receive().
  Verdict tryPacket(const Nimnet::IntfId& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out);
  Nimnet::Pkt& packet() { return *ctx_->pkt(); }
  const Kelp::Ptr<Velo::PacketContext>& context() const { return ctx_; }
  /// The port that the packet of context() is leaving by, or has left by last.
  const Nimnet::IntfId& egressIntf() const { return out_->egressIntf(); }

  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>& ctx, const Kelp::String& session,
                    const Nimnet::IntfId& destination) override;

 private:
  /// The whole way from the ingress pipeline to the last egress port, for real packets and for trials.
  /// `entry` is null when the agent has no such port. `tell` is called with each egress port and what dropped
  /// the packet there.
  template <class Tell>
  Verdict forward(const Nimnet::IntfId& port, const Nimnet::IntfId& portChannel, End* entry,
                  const Kelp::Ptr<Velo::OutputPipelineContext>& out, const Tell& tell);
  /// The same for the packet that a port has received, with the observer.
  Verdict forwardObserved(const Port& port);
  /// The port by which a packet reaches an end; null when the end has no port.
  static Port* egressPort(const End& end, Velo::ParsedPacket& packet);
  /// Runs the egress pipeline and sends. Returns the step that dropped the packet.
  const Velo::PipelineStep* sendBy(Port& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out);

  // In Bursts.cpp. A plan is for the packets from `first` on.
  bool planFrom(const Port& port, uint32_t first);
  void planEgress(const Port& port, Velo::PacketSet packets);
  /// Judges packets that leave by a port.
  void judgeEgress(const Port& to, Velo::PacketSet packets);
  /// The one port that all packets leave by, whatever is in them; null: it has to be asked for each.
  Port* egressOfAll(const End& entry, Velo::PacketSet packets);
  /// The one port that a packet leaves by; null: none, or several.
  Port* soleEgress(const End& entry, uint32_t packet, bool& several);
  bool planHolds() const;
  /// Carries the plan out as far as it holds, and returns the packet behind that.
  uint32_t carryOut(Port& port, uint32_t first, Velo::PacketSet& passed);
  /// Has the junction learn from the packets up to `end`, or up to the first one for which it has now another
  /// way than the planned one: returns that one, which is then to be handled alone.
  uint32_t learnUpTo(const Port& port, uint32_t first, uint32_t end);
  Velo::PacketSet carryOutAll(Port& port, Velo::PacketSet packets);
  bool receiveAlone(Port& port, uint32_t packet);

  /// Why the interfaces cannot be joined; nothing if they can. `joined` is the word for it: "patched".
  std::optional<std::string> whyNotJoined(const std::vector<std::string>& names, std::string_view joined);
  std::vector<End*> endsOf(const std::vector<std::string>& names, Judged judged);
  void join(std::unique_ptr<Junction> junction, const std::vector<End*>& ends);
  End& endIs(const Nimnet::IntfId& id);
  /// Brings all ends up to date with the port-channels and the links.
  void resolveEnds();
  void resolveUsable(End& end);

  Core& core_;
  const Kelp::Ptr<Velo::PacketContext> ctx_;
  const Kelp::Ptr<Velo::OutputPipelineContext> out_;
  const Kelp::Ptr<Velo::PacketContext> copyCtx_;
  const Kelp::Ptr<Velo::OutputPipelineContext> copyOut_;
  std::map<Nimnet::IntfId, std::unique_ptr<Port>> ports_;
  bool newPortsUp_ = true;
  std::map<Nimnet::IntfId, End> ends_;  // of every port and port-channel there is or was
  std::vector<std::unique_ptr<Junction>> junctions_;
  std::vector<Bridge*> bridges_;  // those of them that are bridges
  FrameObserver* observer_ = nullptr;
  uint64_t lastTraceId_ = 0;
  uint64_t wiring_ = 0;  // how often anything has changed by which ports are found
  BurstPlan plan_;
};

}  // namespace Agent
