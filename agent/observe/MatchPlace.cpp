#include <agent/observe/MatchPlace.h>

namespace Agent {

Nimnet::IntfId MatchPlace::of(const Velo::Counter::VeloDpAclCounterKey& key) {
  const auto& ctx = forwarder_.context();
  const auto lag = Velo::LagPacketInfo::extractInfo(ctx);
  const bool in = key.direction == Acl::AclDirection::in;
  const Nimnet::IntfId interfaces[] = {
      lag ? (in ? lag->ingressPortChannel : lag->egressPortChannel) : Nimnet::IntfId(),
      in ? ctx->ingressIntf() : forwarder_.egressIntf()};

  Progress& progress = progress_[static_cast<int>(key.direction)];
  if (progress.packet != ctx->traceId() || progress.port != interfaces[1])
    progress = {ctx->traceId(), interfaces[1]};
  const auto types = core_.inForce().bindings()->config(key.aclType);
  const auto bindings = types ? types->intf(key.direction) : nullptr;
  for (; progress.stage < 4; ++progress.stage) {
    const bool macStage = progress.stage % 2 == 0;
    if (macStage != (key.aclType == Acl::AclType::mac)) continue;
    const Nimnet::IntfId& intf = interfaces[progress.stage / 2];
    const Kelp::String* bound = bindings && !intf.empty() ? bindings->intf(intf) : nullptr;
    if (!bound || *bound != key.aclName) continue;
    ++progress.stage;
    return intf;
  }
  return {};
}

}  // namespace Agent
