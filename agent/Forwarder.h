#pragma once

#include <Velo/MalformedStep.h>
#include <Velo/Mirroring.h>
#include <Velo/Pipeline.h>
#include <Velo/PortChannels.h>
#include <agent/Core.h>

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>

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
  FrameSink* sink = nullptr;  ///< not owned
  uint64_t received = 0;
  uint64_t sent = 0;  ///< mirrored copies included
  uint64_t droppedIn = 0;
  uint64_t droppedOut = 0;
  uint64_t mirrored = 0;  ///< copies that left here
};

/// What became of a received frame.
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

/// Takes frames from ports through the pipeline and to the port they are patched to. Packets and copies are
/// handled one at a time, with contexts that are reused: nothing is allocated for a packet. One a process: it
/// is where mirrored copies go.
class Forwarder final : public Velo::MirrorTarget {
 public:
  Forwarder(Core& core, Velo::MalformedPolicy malformed);
  ~Forwarder();

  /// The port of a name, made when there is none.
  Port& portIs(const std::string& name);
  const std::map<Nimnet::IntfId, std::unique_ptr<Port>>& ports() const { return ports_; }
  /// Makes ports of the members of port-channels and the destinations of mirror sessions.
  void portsOfConfigurationIs();

  /// Joins two interfaces, ports or port-channels, both ways. Returns what is wrong.
  std::optional<std::string> patchIs(const std::string& a, const std::string& b);

  void mirrorObserverIs(MirrorObserver* observer) { mirrorObserver_ = observer; }

  /// Takes the frame that is in packet() from a port.
  Verdict receive(Port& port);
  Nimnet::Pkt& packet() { return *ctx_->pkt(); }
  const Kelp::Ptr<Velo::PacketContext>& context() const { return ctx_; }
  /// The port that the packet of context() leaves by, or left by last.
  const Nimnet::IntfId& egressIntf() const { return out_->egressIntf(); }

  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>& ctx, const Kelp::String& session,
                    const Nimnet::IntfId& destination) override;

 private:
  /// The port that a packet leaves by towards an interface; null when there is none.
  Port* egressPort(const Nimnet::IntfId& intf, Velo::PacketContext& ctx);
  /// Runs the egress pipeline and sends. Returns the step that dropped the packet.
  const Velo::PipelineStep* sendBy(Port& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out);

  Core& core_;
  const Kelp::Ptr<Velo::PacketContext> ctx_;
  const Kelp::Ptr<Velo::OutputPipelineContext> out_;
  const Kelp::Ptr<Velo::PacketContext> copyCtx_;
  const Kelp::Ptr<Velo::OutputPipelineContext> copyOut_;
  std::map<Nimnet::IntfId, std::unique_ptr<Port>> ports_;
  std::map<Nimnet::IntfId, Nimnet::IntfId> patches_;
  MirrorObserver* mirrorObserver_ = nullptr;
  uint64_t lastTraceId_ = 0;
};

}  // namespace Agent
