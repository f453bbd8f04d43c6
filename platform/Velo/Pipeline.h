#pragma once

#include <Kelp/String.h>
#include <Velo/Burst.h>
#include <Velo/PacketContext.h>
#include <Velo/Registered.h>
#include <Zeb/Attributes.h>

#include <vector>

namespace Velo {

/// A step of the packet pipeline: a name for people and a position that orders the steps of a direction,
/// smallest first.
class PipelineStep : public Kelp::Node, public Zeb::Reflected {
 public:
  static constexpr uint32_t enabled = 1;

  const Kelp::String& name() const { return name_; }
  uint32_t position() const { return position_; }
  /// A step whose flag word is not `enabled` is left out.
  uint32_t stepFlags() const { return stepFlags_; }
  void stepFlagsIs(uint32_t flags) { stepFlags_ = flags; }
  /// How the step judges many packets at once; null: it does not, and every packet goes through process().
  virtual BurstForm* burstForm() { return nullptr; }

 protected:
  PipelineStep(Kelp::String name, uint32_t position) : name_(std::move(name)), position_(position) {}

 private:
  const Kelp::String name_;
  const uint32_t position_;
  uint32_t stepFlags_ = 0;
};

/// A step that every received packet passes. process() returns false to have the packet dropped; what it
/// counts as the reason is its own business.
class InputPipelineStep : public PipelineStep {
 public:
  using Context = PacketContext;
  virtual bool process(const Kelp::Ptr<PacketContext>& ctx) = 0;

 protected:
  using PipelineStep::PipelineStep;
};

/// A step that every packet passes that is about to be sent, mirrored copies included.
class OutputPipelineStep : public PipelineStep {
 public:
  using Context = OutputPipelineContext;
  virtual bool process(const Kelp::Ptr<OutputPipelineContext>& ctx) = 0;

 protected:
  using PipelineStep::PipelineStep;
};

/// The steps of both directions. They change between packets only, never while one is in the pipeline.
class AllGenericPipelineSteps : public Kelp::Node {
 public:
  explicit AllGenericPipelineSteps(const Registrant& registrant) : registrant_(registrant) {}

  /// Adds a step behind those of its position; a step that is there already stays as it is.
  void addStep(const Kelp::Ptr<InputPipelineStep>& step) { add(input_, step); }
  void addStep(const Kelp::Ptr<OutputPipelineStep>& step) { add(output_, step); }
  void removeStepsBy(Registrant::Id who);

  /// Runs a packet through the steps of its direction. Returns the step that dropped it, null when it passed.
  /// A packet whose step throws is dropped, and counted under "Drop", facility, "exception in STEP".
  const PipelineStep* process(const Kelp::Ptr<PacketContext>& ctx) {
    return run(input_, ctx, ctx->namedCounters());
  }
  const PipelineStep* process(const Kelp::Ptr<OutputPipelineContext>& ctx) {
    return run(output_, ctx, ctx->packetContext()->namedCounters());
  }

  /// Puts the burst forms of the steps of a direction into `forms`, in order. False when a step has none:
  /// then bursts are not judged as such.
  bool inputForms(BurstForms& forms) const { return formsOf(input_, forms); }
  bool outputForms(BurstForms& forms) const { return formsOf(output_, forms); }

  size_t stepCount() const { return input_.size() + output_.size(); }
  static const Kelp::String& facility();

 private:
  template <class Step>
  using Steps = std::vector<Registered<Step>>;
  template <class Step>
  void add(Steps<Step>& steps, const Kelp::Ptr<Step>& step);
  template <class Step>
  static bool formsOf(const Steps<Step>& steps, BurstForms& forms);
  template <class Step, class Context>
  const PipelineStep* run(const Steps<Step>& steps, const Kelp::Ptr<Context>& ctx,
                          VeloNamedCounters& counters);

  const Registrant& registrant_;
  Steps<InputPipelineStep> input_;
  Steps<OutputPipelineStep> output_;
  int packetsInside_ = 0;  // more than one when copies are sent from within a step
};

}  // namespace Velo
