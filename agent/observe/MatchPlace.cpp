#include <agent/observe/MatchPlace.h>

namespace Agent {

Nimnet::IntfId MatchPlace::of(const Velo::Counter::VeloDpAclCounterKey& key) {
  const auto& ctx = forwarder_.context();
  const bool in = key.direction == Acl::AclDirection::in;
  const Nimnet::IntfId& port = in ? ctx->ingressIntf() : forwarder_.egressIntf();
  const auto lag = Velo::LagPacketInfo::extractInfo(ctx);
  const Nimnet::IntfId portChannel =
      !lag ? Nimnet::IntfId() : (in ? lag->ingressPortChannel : lag->egressPortChannel);
  return portChannel.empty() ? port : ofMember(key, {portChannel, port});
}

Nimnet::IntfId MatchPlace::ofMember(const Velo::Counter::VeloDpAclCounterKey& key,
                                    const std::array<Nimnet::IntfId, 2>& interfaces) {
  const uint64_t packet = forwarder_.context()->traceId();
  Progress& progress = progress_[static_cast<int>(key.direction)];
  if (progress.packet != packet || progress.port != interfaces[1]) progress = {packet, interfaces[1]};
  const auto types = core_.inForce().bindings()->config(key.aclType);
  const auto bindings = types ? types->intf(key.direction) : nullptr;
  for (; progress.stage < 4; ++progress.stage) {
    const bool macStage = progress.stage % 2 == 0;
    if (macStage != (key.aclType == Acl::AclType::mac)) continue;
    const Nimnet::IntfId& intf = interfaces[progress.stage / 2];
    const Kelp::String* bound = bindings ? bindings->intf(intf) : nullptr;
    if (!bound || *bound != key.aclName) continue;
    ++progress.stage;
    return intf;
  }
  return {};
}

}  // namespace Agent
