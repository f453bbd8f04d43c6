#pragma once

#include <Velo/Pipeline.h>

namespace Velo {

/// What to do with malformed frames.
enum class MalformedPolicy { drop, pass };

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

 private:
  const MalformedPolicy policy_;
};

class MalformedOutputStep : public OutputPipelineStep {
  ZEB_ENTITY(MalformedOutputStep, OutputPipelineStep)

 public:
  explicit MalformedOutputStep(MalformedPolicy policy)
      : OutputPipelineStep("MalformedOutputStep", 1000), policy_(policy) {
    stepFlagsIs(enabled);
  }
  bool process(const Kelp::Ptr<OutputPipelineContext>& ctx) override;

 private:
  const MalformedPolicy policy_;
};

}  // namespace Velo
