#include <VeloAcl/VeloPlugin/AclTrace.h>
#include <VeloAcl/VeloPlugin/DataplaneAclSteps.h>

namespace Velo::VeloAcl {

DataplaneAclInputStep::DataplaneAclInputStep(const Kelp::Ptr<DataplaneAclHelper>& helper)
    : InputPipelineStep("DataplaneInputAclStep", 32000),
      helper_(helper),
      burst_(helper.get(), Acl::AclDirection::in) {
  stepFlagsIs(enabled);
}

bool DataplaneAclInputStep::process(const Kelp::Ptr<PacketContext>& ctx) {
  const Kelp::Ptr<DataplaneAclHelper> judge = helper();
  return judge->processPkt(ctx, Acl::AclDirection::in, ctx->ingressIntf());
}

DataplaneAclOutputStep::DataplaneAclOutputStep(const Kelp::Ptr<DataplaneAclHelper>& helper)
    : OutputPipelineStep("DataplaneOutputAclStep", 8500),
      helper_(helper),
      burst_(helper.get(), Acl::AclDirection::out) {
  stepFlagsIs(enabled);
}

bool DataplaneAclOutputStep::process(const Kelp::Ptr<OutputPipelineContext>& ctx) {
  const Kelp::Ptr<PacketContext> packet = ctx->packetContext();
  const Kelp::Ptr<DataplaneAclHelper> judge = helper();
  if (MirroringPacketInfo::extractInfo(packet)) {
    tracePkt(*packet, "process", "Skipping acl egress filtering on mirrored pkt");
    return true;
  }
  return judge->processPkt(packet, Acl::AclDirection::out, ctx->egressIntf());
}

Kelp::Ptr<DataplaneAclInputStep> dataplaneAclInputStepFactory(const Kelp::Ptr<DataplaneAclHelper>& helper) {
  return MemSlab::make<DataplaneAclInputStep>(helper);
}
Kelp::Ptr<DataplaneAclInputStep> DataplaneAclInputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper) {
  return dataplaneAclInputStepFactory(helper);
}
Kelp::Ptr<DataplaneAclOutputStep> dataplaneAclOutputStepFactory(const Kelp::Ptr<DataplaneAclHelper>& helper) {
  return MemSlab::make<DataplaneAclOutputStep>(helper);
}
Kelp::Ptr<DataplaneAclOutputStep> DataplaneAclOutputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper) {
  return dataplaneAclOutputStepFactory(helper);
}

}  // namespace Velo::VeloAcl
