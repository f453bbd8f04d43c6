#pragma once

#include <Velo/Pipeline.h>
#include <VeloAcl/VeloPlugin/AclBurst.h>
#include <VeloAcl/VeloPlugin/DataplaneAclHelper.h>

namespace Velo::VeloAcl {

/// Judges every received packet by the lists that are bound "in" on its port.
class DataplaneAclInputStep : public InputPipelineStep {
  ZEB_ENTITY(DataplaneAclInputStep, InputPipelineStep)

 public:
  explicit DataplaneAclInputStep(const Kelp::Ptr<DataplaneAclHelper>& helper);
  bool process(const Kelp::Ptr<PacketContext>& ctx) override;
  BurstForm* burstForm() override { return &burst_; }
  ZEB_HELD(DataplaneAclHelper, helper)

 private:
  AclBurst burst_;
};

/// Judges every packet before it is sent by the lists that are bound "out" on its port. Mirrored copies pass.
class DataplaneAclOutputStep : public OutputPipelineStep {
  ZEB_ENTITY(DataplaneAclOutputStep, OutputPipelineStep)

 public:
  explicit DataplaneAclOutputStep(const Kelp::Ptr<DataplaneAclHelper>& helper);
  bool process(const Kelp::Ptr<OutputPipelineContext>& ctx) override;
  BurstForm* burstForm() override { return &burst_; }
  ZEB_HELD(DataplaneAclHelper, helper)

 private:
  AclBurst burst_;
};

Kelp::Ptr<DataplaneAclInputStep> dataplaneAclInputStepFactory(const Kelp::Ptr<DataplaneAclHelper>& helper);
Kelp::Ptr<DataplaneAclInputStep> DataplaneAclInputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper);
Kelp::Ptr<DataplaneAclOutputStep> dataplaneAclOutputStepFactory(const Kelp::Ptr<DataplaneAclHelper>& helper);
Kelp::Ptr<DataplaneAclOutputStep> DataplaneAclOutputStepIs(const Kelp::Ptr<DataplaneAclHelper>& helper);

}  // namespace Velo::VeloAcl
