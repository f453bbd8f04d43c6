#pragma once

#include <Velo/Pipeline.h>

namespace Velo {

/// What to do with malformed frames.
enum class MalformedPolicy { drop, pass };

/// Leaves malformed packets alone, and lets all others pass.
class MalformedBurst final : public BurstForm {
 public:
  explicit MalformedBurst(bool asks) : asks_(asks) {}
  void begin() override {}
  BurstVerdicts judge(const PacketBurst& burst, PacketSet asked, const BurstPlace&) override {
    return {0, asks_ ? asked & burst.malformed() : 0};
  }
  bool holds() const override { return true; }
  void act(const PacketBurst&, PacketSet) override {}

 private:
  const bool asks_;
};

/// The agent's own steps, in front of every plugin's: a malformed frame is dropped on every port, counted
/// under "Drop", "Velo::Malformed" and its fault. With MalformedPolicy::pass it is only counted, on receipt,
/// under "Malformed" instead.
class MalformedInputStep : public InputPipelineStep {
  ZEB_ENTITY(MalformedInputStep, InputPipelineStep)

 public:
  explicit MalformedInputStep(MalformedPolicy policy)
      : InputPipelineStep("MalformedInputStep", 1000), policy_(policy) {
    stepFlagsIs(enabled);
  }
  bool process(const Kelp::Ptr<PacketContext>& ctx) override;
  BurstForm* burstForm() override { return &burst_; }

 private:
  const MalformedPolicy policy_;
  MalformedBurst burst_{true};  // whatever the policy, they are counted
};

class MalformedOutputStep : public OutputPipelineStep {
  ZEB_ENTITY(MalformedOutputStep, OutputPipelineStep)

 public:
  explicit MalformedOutputStep(MalformedPolicy policy)
      : OutputPipelineStep("MalformedOutputStep", 1000), policy_(policy) {
    stepFlagsIs(enabled);
  }
  bool process(const Kelp::Ptr<OutputPipelineContext>& ctx) override;
  BurstForm* burstForm() override { return &burst_; }

 private:
  const MalformedPolicy policy_;
  MalformedBurst burst_{policy_ == MalformedPolicy::drop};
};

}  // namespace Velo
