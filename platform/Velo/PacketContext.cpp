#include <Velo/PacketContext.h>

namespace Velo {

PacketTrial::~PacketTrial() = default;

PacketContext::PacketContext(Kelp::Ptr<VeloNamedCounters> namedCounters)
    : pkt_(MemSlab::make<Nimnet::Pkt>()),
      namedCounters_(std::move(namedCounters)),
      lagInfo_(MemSlab::make<LagPacketInfo>()),
      mirroringInfo_(MemSlab::make<MirroringPacketInfo>()) {}

PacketContext::~PacketContext() = default;

void PacketContext::begin(const Nimnet::IntfId& ingressIntf) {
  ingressIntf_ = ingressIntf;
  hasLagInfo_ = false;
  hasMirroringInfo_ = false;
  parsedPacket_.reset(pkt_.get());
}

void PacketContext::ingressPortChannelIs(const Nimnet::IntfId& portChannel) {
  if (!hasLagInfo_) lagInfo_->egressPortChannel = {};
  lagInfo_->ingressPortChannel = portChannel;
  hasLagInfo_ = true;
}

void PacketContext::egressPortChannelIs(const Nimnet::IntfId& portChannel) {
  if (!hasLagInfo_) lagInfo_->ingressPortChannel = {};
  lagInfo_->egressPortChannel = portChannel;
  hasLagInfo_ = true;
}

void PacketContext::mirroringSessionIs(const Kelp::String& session) {
  mirroringInfo_->session = session;
  hasMirroringInfo_ = true;
}

Kelp::Ptr<LagPacketInfo> LagPacketInfo::extractInfo(const Kelp::Ptr<PacketContext>& ctx) {
  return ctx->hasLagInfo_ ? ctx->lagInfo_ : nullptr;
}

Kelp::Ptr<MirroringPacketInfo> MirroringPacketInfo::extractInfo(const Kelp::Ptr<PacketContext>& ctx) {
  return ctx->hasMirroringInfo_ ? ctx->mirroringInfo_ : nullptr;
}

}  // namespace Velo
