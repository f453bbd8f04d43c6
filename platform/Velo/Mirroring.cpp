#include <Velo/Mirroring.h>

namespace Velo {

const Kelp::Ptr<MirroringStepHelper>& MirroringStepHelper::singleton() {
  static MirroringStepHelper instance;
  static const Kelp::Ptr<MirroringStepHelper> helper(&instance);
  return helper;
}

void MirroringStepHelper::sessionIs(const Kelp::String& name, std::vector<Nimnet::IntfId> destinations) {
  sessions_[name] = std::move(destinations);
}

void MirroringStepHelper::sessionDel(const Kelp::String& name) { sessions_.erase(name); }

void MirroringStepHelper::maybeMirrorToSessionTargets(const Kelp::Ptr<PacketContext>& ctx,
                                                      MirroringDirection direction,
                                                      const Kelp::String& session) {
  auto at = sessions_.find(session);
  if (at == sessions_.end()) {
    static const Kelp::String category("Mirror");
    static const Kelp::String facility("Velo::Mirroring");
    static const Kelp::String reasons[] = {"ingress packet to an undefined session",
                                           "egress packet to an undefined session"};
    ctx->namedCounters().count(category, facility, reasons[static_cast<int>(direction)]);
    return;
  }
  if (!target_) return;
  if (PacketTrial* trial = ctx->trial()) return trial->handleMirrored(session);
  for (const Nimnet::IntfId& destination : at->second) target_->sendMirrored(ctx, session, destination);
}

}  // namespace Velo
