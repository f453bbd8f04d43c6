#pragma once

#include <Nimnet/IntfId.h>
#include <Nimnet/Pkt.h>
#include <Velo/NamedCounters.h>
#include <Velo/ParsedPacket.h>

namespace Velo {

class PacketContext;
class PipelineStep;

/// Observes a packet that is only tried. Such a packet takes the same way as every other, through the same
/// code, but it is not counted, copied or sent: its trial is told instead. Named counters are the exception.
/// They count in the object that the context was made with, which belongs to the trial.
class PacketTrial {
 public:
  virtual ~PacketTrial();
  /// A copy would be sent to the destinations of this session.
  virtual void handleMirrored(const Kelp::String& session) = 0;
  /// The packet has passed the egress pipeline of a port and would be sent (null), or a step has dropped it
  /// there.
  virtual void handleEgress(const Nimnet::IntfId& port, const PipelineStep* droppedBy) = 0;
};

/// The port-channels of a packet: the one that it came in by, and the one that it leaves by. Either may be
/// the empty id.
class LagPacketInfo : public Kelp::Node {
 public:
  Nimnet::IntfId ingressPortChannel;
  Nimnet::IntfId egressPortChannel;

  /// The information of a packet; null when it has to do with no port-channel.
  static Kelp::Ptr<LagPacketInfo> extractInfo(const Kelp::Ptr<PacketContext>& ctx);
};

/// Marks a packet as a copy made for a mirror session.
class MirroringPacketInfo : public Kelp::Node {
 public:
  Kelp::String session;

  /// The information of a mirrored copy; null for every other packet.
  static Kelp::Ptr<MirroringPacketInfo> extractInfo(const Kelp::Ptr<PacketContext>& ctx);
};

/// Everything that is known of one packet on its way. The agent makes a few contexts and fills them anew for
/// every packet: pkt()->assign(...), then begin(). Steps must not keep a context beyond the call.
class PacketContext : public Kelp::Node {
 public:
  explicit PacketContext(Kelp::Ptr<VeloNamedCounters> namedCounters);
  ~PacketContext() override;

  /// Starts over with the frame that pkt() holds now: first parse stage done, no port-channel, no mirroring.
  void begin(const Nimnet::IntfId& ingressIntf);

  const Kelp::Ptr<Nimnet::Pkt>& pkt() const { return pkt_; }
  ParsedPacket& parsedPacket() { return parsedPacket_; }
  const ParsedPacket& parsedPacket() const { return parsedPacket_; }
  VeloNamedCounters& namedCounters() const { return *namedCounters_; }
  /// The port that received the packet.
  const Nimnet::IntfId& ingressIntf() const { return ingressIntf_; }
  uint64_t traceId() const { return pkt_->traceId(); }
  /// Null for a real packet. Set once, by the code that made the context for trials; not owned.
  PacketTrial* trial() const { return trial_; }
  void trialIs(PacketTrial* trial) { trial_ = trial; }

  void ingressPortChannelIs(const Nimnet::IntfId& portChannel);
  void egressPortChannelIs(const Nimnet::IntfId& portChannel);
  void mirroringSessionIs(const Kelp::String& session);

 private:
  friend class LagPacketInfo;
  friend class MirroringPacketInfo;

  const Kelp::Ptr<Nimnet::Pkt> pkt_;
  const Kelp::Ptr<VeloNamedCounters> namedCounters_;
  ParsedPacket parsedPacket_;
  Nimnet::IntfId ingressIntf_;
  PacketTrial* trial_ = nullptr;
  // Made together with the context. They are valid while the flags below say so.
  const Kelp::Ptr<LagPacketInfo> lagInfo_;
  const Kelp::Ptr<MirroringPacketInfo> mirroringInfo_;
  bool hasLagInfo_ = false;
  bool hasMirroringInfo_ = false;
};

/// A packet that is about to be sent, with the port it leaves by. Reused like the PacketContext it holds.
class OutputPipelineContext : public Kelp::Node {
 public:
  explicit OutputPipelineContext(Kelp::Ptr<PacketContext> packetContext)
      : packetContext_(std::move(packetContext)) {}

  const Kelp::Ptr<PacketContext>& packetContext() const { return packetContext_; }
  const Nimnet::IntfId& egressIntf() const { return egressIntf_; }
  void egressIntfIs(const Nimnet::IntfId& intf) { egressIntf_ = intf; }

 private:
  const Kelp::Ptr<PacketContext> packetContext_;
  Nimnet::IntfId egressIntf_;
};

}  // namespace Velo
