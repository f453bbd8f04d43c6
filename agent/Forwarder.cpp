#include <Velo/FlowHash.h>
#include <agent/Forwarder.h>

namespace Agent {

Forwarder::Forwarder(Core& core, Velo::MalformedPolicy malformed)
    : core_(core),
      ctx_(MemSlab::make<Velo::PacketContext>(core.namedCounters())),
      out_(MemSlab::make<Velo::OutputPipelineContext>(ctx_)),
      copyCtx_(MemSlab::make<Velo::PacketContext>(core.namedCounters())),
      copyOut_(MemSlab::make<Velo::OutputPipelineContext>(copyCtx_)) {
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
}

std::optional<std::string> Forwarder::patchIs(const std::string& a, const std::string& b) {
  if (a == b) return fmt::format("{} cannot be patched to itself", a);
  for (const auto& [end, other] : {std::pair(a, b), std::pair(b, a)}) {
    if (patches_.contains(Nimnet::IntfId(end))) {
      return fmt::format("{} is patched to {} already", end, patches_[Nimnet::IntfId(end)].name());
    }
  }
  for (const auto& end : {a, b}) {
    // A frame that came in at a member has one way to go.
    for (const auto& [known, other] : patches_) {
      if (core_.portChannels().portChannelOf(known) == Nimnet::IntfId(end)) {
        return fmt::format("{} cannot be patched, its member {} is", end, known.name());
      }
    }
    const Nimnet::IntfId& portChannel = core_.portChannels().portChannelOf(Nimnet::IntfId(end));
    if (!portChannel.empty() &&
        (patches_.contains(portChannel) || portChannel == Nimnet::IntfId(end == a ? b : a))) {
      return fmt::format("{} cannot be patched, its port-channel {} is", end, portChannel.name());
    }
  }
  for (const auto& end : {a, b}) {
    if (!core_.portChannels().has(Nimnet::IntfId(end))) portIs(end);
  }
  patches_[Nimnet::IntfId(a)] = Nimnet::IntfId(b);
  patches_[Nimnet::IntfId(b)] = Nimnet::IntfId(a);
  return std::nullopt;
}

Verdict Forwarder::receive(Port& port) {
  ++port.received;
  ctx_->pkt()->traceIdIs(++lastTraceId_);
  ctx_->begin(port.id);
  const Nimnet::IntfId& portChannel = core_.portChannels().portChannelOf(port.id);
  if (!portChannel.empty()) ctx_->ingressPortChannelIs(portChannel);

  Verdict verdict;
  verdict.droppedBy = core_.manager().pipeline()->process(ctx_);
  if (verdict.droppedBy) {
    ++port.droppedIn;
    return verdict;
  }
  auto patch = patches_.end();
  if (!portChannel.empty()) patch = patches_.find(portChannel);
  if (patch == patches_.end()) patch = patches_.find(port.id);
  if (patch == patches_.end()) return verdict;
  Port* egress = egressPort(patch->second, *ctx_);
  if (!egress) return verdict;
  verdict.egress = egress;
  verdict.direction = Acl::AclDirection::out;
  verdict.droppedBy = sendBy(*egress, out_);
  return verdict;
}

void Forwarder::sendMirrored(const Kelp::Ptr<Velo::PacketContext>& ctx, const Kelp::String& session,
                             const Nimnet::IntfId& destination) {
  if (Velo::MirroringPacketInfo::extractInfo(ctx)) return;  // a copy is not copied again
  if (mirrorObserver_) mirrorObserver_->handleMirrored(session);
  const Nimnet::Pkt& original = *ctx->pkt();
  copyCtx_->pkt()->assign(original.frame(), original.wireLength(), original.time());
  copyCtx_->pkt()->traceIdIs(original.traceId());
  copyCtx_->begin(ctx->ingressIntf());
  copyCtx_->mirroringSessionIs(session);
  if (Port* port = egressPort(destination, *copyCtx_)) {
    if (!sendBy(*port, copyOut_)) ++port->mirrored;
  }
  if (mirrorObserver_) mirrorObserver_->handleMirroredDone();
}

Port* Forwarder::egressPort(const Nimnet::IntfId& intf, Velo::PacketContext& ctx) {
  const Nimnet::IntfId* name = &intf;
  if (core_.portChannels().has(intf)) {
    ctx.parsedPacket().maybeDoFullParse();
    name = core_.portChannels().egressMember(intf, Velo::flowHash(ctx.parsedPacket()));
  }
  if (!name) return nullptr;
  auto at = ports_.find(*name);
  return at == ports_.end() ? nullptr : at->second.get();
}

const Velo::PipelineStep* Forwarder::sendBy(Port& port, const Kelp::Ptr<Velo::OutputPipelineContext>& out) {
  const auto& ctx = out->packetContext();
  out->egressIntfIs(port.id);
  const Nimnet::IntfId& portChannel = core_.portChannels().portChannelOf(port.id);
  if (!portChannel.empty()) ctx->egressPortChannelIs(portChannel);
  if (const Velo::PipelineStep* droppedBy = core_.manager().pipeline()->process(out)) {
    ++port.droppedOut;
    return droppedBy;
  }
  ++port.sent;
  if (port.sink) port.sink->send(*ctx->pkt());
  return nullptr;
}

}  // namespace Agent
