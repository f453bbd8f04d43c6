#include <Kelp/Assert.h>
#include <MemSlab/Slab.h>
#include <Velo/FlowHash.h>
#include <agent/forward/Bridge.h>
#include <agent/forward/Forwarder.h>

#include <algorithm>
#include <iterator>

namespace Agent {

namespace {

constexpr auto tellNobody = [](const Port&, const Velo::PipelineStep*) {};

}  // namespace

Forwarder::Forwarder(Core& core, Velo::MalformedPolicy malformed)
    : core_(core),
      ctx_(MemSlab::make<Velo::PacketContext>(core.namedCounters())),
      out_(MemSlab::make<Velo::OutputPipelineContext>(ctx_)),
      copyCtx_(MemSlab::make<Velo::PacketContext>(core.namedCounters())),
      copyOut_(MemSlab::make<Velo::OutputPipelineContext>(copyCtx_)),
      plan_(core.namedCounters()) {
  const auto& pipeline = core.manager().pipeline();
  pipeline->addStep(Kelp::Ptr<Velo::InputPipelineStep>(MemSlab::make<Velo::MalformedInputStep>(malformed)));
  pipeline->addStep(Kelp::Ptr<Velo::OutputPipelineStep>(MemSlab::make<Velo::MalformedOutputStep>(malformed)));
  Velo::MirroringStepHelper::singleton()->targetIs(this);
}

Forwarder::~Forwarder() { Velo::MirroringStepHelper::singleton()->targetIs(nullptr); }

Port& Forwarder::portIs(const std::string& name) {
  auto& port = ports_[Nimnet::IntfId(name)];
  if (!port) {
    port = std::make_unique<Port>();
    port->id = Nimnet::IntfId(name);
    port->up = newPortsUp_;
    resolveEnds();
  }
  return *port;
}

void Forwarder::portsOfConfigurationIs() {
  for (const auto& [name, members] : core_.portChannels().all()) {
    for (const Nimnet::IntfId& member : members) portIs(member.name().str());
  }
  for (const auto& [name, destinations] : Velo::MirroringStepHelper::singleton()->sessions()) {
    for (const Nimnet::IntfId& destination : destinations) {
      if (!core_.portChannels().has(destination)) portIs(destination.name().str());
    }
  }
  resolveEnds();
}

Verdict Forwarder::receive(Port& port) {
  ++port.received;
  ctx_->pkt()->traceIdIs(++lastTraceId_);
  const Verdict verdict =
      observer_ ? forwardObserved(port) : forward(port.id, port.portChannel, port.entry, out_, tellNobody);
  if (!verdict.egress) ++(verdict.passed() ? port.nowhere : port.droppedIn);
  return verdict;
}

Verdict Forwarder::tryPacket(const Nimnet::IntfId& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out) {
  KELP_ASSERT(out->packetContext()->trial(), "a packet is tried for somebody");
  const auto known = ports_.find(port);
  End* entry = known == ports_.end() ? nullptr : known->second->entry;
  return forward(port, core_.portChannels().portChannelOf(port), entry, out, tellNobody);
}

Verdict Forwarder::forwardObserved(const Port& port) {
  const auto tell = [this](const Port& egress, const Velo::PipelineStep* droppedBy) {
    observer_->handleEgress(egress, droppedBy);
  };
  const Verdict verdict = forward(port.id, port.portChannel, port.entry, out_, tell);
  observer_->handleVerdict(port, verdict);
  return verdict;
}

template <class Tell>
Verdict Forwarder::forward(const Nimnet::IntfId& port, const Nimnet::IntfId& portChannel, End* entry,
                           const Kelp::Ptr<Velo::OutputPipelineContext>& out, const Tell& tell) {
  const auto& ctx = out->packetContext();
  ctx->begin(port);
  if (!portChannel.empty()) ctx->ingressPortChannelIs(portChannel);

  Verdict verdict;
  verdict.droppedBy = core_.manager().pipeline()->process(ctx);
  if (verdict.droppedBy || !entry || !entry->junction) return verdict;

  const Nimnet::EthHdr& eth = Junction::headerOf(ctx->parsedPacket());
  const uint16_t vlan = ctx->pkt()->vlanId();
  if (!ctx->trial()) entry->junction->learn(*entry, eth, vlan);
  for (const End* to : entry->junction->targets(*entry, eth, vlan)) {
    Port* egress = to == entry ? nullptr : egressPort(*to, ctx->parsedPacket());
    if (!egress) continue;
    const Velo::PipelineStep* droppedBy = sendBy(*egress, out);
    tell(*egress, droppedBy);
    if (!verdict.egress || !droppedBy) verdict = {droppedBy, Acl::AclDirection::out, egress};
  }
  return verdict;
}

void Forwarder::sendMirrored(const Kelp::Ptr<Velo::PacketContext>& ctx, const Kelp::String& session,
                             const Nimnet::IntfId& destination) {
  if (Velo::MirroringPacketInfo::extractInfo(ctx)) return;  // a copy is not copied again
  if (observer_) observer_->handleMirrored(session);
  copyCtx_->pkt()->refer(*ctx->pkt());
  copyCtx_->pkt()->traceIdIs(ctx->traceId());
  copyCtx_->begin(ctx->ingressIntf());
  copyCtx_->mirroringSessionIs(session);
  const auto to = ends_.find(destination);
  if (Port* port = to == ends_.end() ? nullptr : egressPort(to->second, copyCtx_->parsedPacket())) {
    if (!sendBy(*port, copyOut_)) ++port->mirrored;
  }
  if (observer_) observer_->handleMirroredDone();
}

Port* Forwarder::egressPort(const End& end, Velo::ParsedPacket& packet) {
  const auto& ports = end.usable;
  if (ports.size() <= 1) return ports.empty() ? nullptr : ports.front();
  packet.maybeDoFullParse();
  return ports[Velo::PortChannels::chosen(Velo::flowHash(packet), ports.size())];
}

const Velo::PipelineStep* Forwarder::sendBy(Port& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out) {
  const auto& ctx = out->packetContext();
  out->egressIntfIs(port.id);
  // When a frame leaves by several ports, the one before may have been in a port-channel: that is reset here.
  if (!port.portChannel.empty() || Velo::LagPacketInfo::extractInfo(ctx)) {
    ctx->egressPortChannelIs(port.portChannel);
  }
  const Velo::PipelineStep* droppedBy = core_.manager().pipeline()->process(out);
  if (ctx->trial()) {
    ctx->trial()->handleEgress(port.id, droppedBy);
    return droppedBy;
  }
  if (droppedBy) {
    ++port.droppedOut;
    return droppedBy;
  }
  ++port.sent;
  if (port.sink) port.sink->send(*ctx->pkt());
  return nullptr;
}

}  // namespace Agent
