#include <Kelp/Assert.h>
#include <Velo/Pipeline.h>
#include <Zeb/TraceHandle.h>

#include <algorithm>
#include <exception>

namespace Velo {

namespace {

const Zeb::TraceHandle trace("Velo::Pipeline", "Velo/Pipeline");

void countException(VeloNamedCounters& counters, const PipelineStep& step, std::string_view what) {
  trace.trace(0, "process", "{} threw: {}", step.name(), what);
  counters.count("Drop", AllGenericPipelineSteps::facility(), fmt::format("exception in {}", step.name()));
}

struct CountScope {
  explicit CountScope(int& n) : count(n) { ++count; }
  ~CountScope() { --count; }
  int& count;
};

}  // namespace

const Kelp::String& AllGenericPipelineSteps::facility() {
  static const Kelp::String& name = *new Kelp::String("Velo::Pipeline");
  return name;
}

template <class Step>
void AllGenericPipelineSteps::add(Steps<Step>& steps, const Kelp::Ptr<Step>& step) {
  KELP_ASSERT(packetsInside_ == 0, "a pipeline step was added while a packet was in the pipeline");
  for (const auto& known : steps) {
    if (known.object == step) return;
  }
  auto place = std::upper_bound(
      steps.begin(), steps.end(), step->position(),
      [](uint32_t position, const Registered<Step>& known) { return position < known.object->position(); });
  steps.insert(place, Registered<Step>{step, registrant_.current()});
}

template void AllGenericPipelineSteps::add(Steps<InputPipelineStep>&, const Kelp::Ptr<InputPipelineStep>&);
template void AllGenericPipelineSteps::add(Steps<OutputPipelineStep>&, const Kelp::Ptr<OutputPipelineStep>&);

void AllGenericPipelineSteps::removeStepsBy(Registrant::Id who) {
  KELP_ASSERT(packetsInside_ == 0, "pipeline steps were removed while a packet was in the pipeline");
  std::erase_if(input_, [who](const auto& step) { return step.by == who; });
  std::erase_if(output_, [who](const auto& step) { return step.by == who; });
}

template <class Step>
bool AllGenericPipelineSteps::formsOf(const Steps<Step>& steps, BurstForms& forms) {
  forms.clear();
  for (const auto& [step, by] : steps) {
    if (step->stepFlags() != PipelineStep::enabled) continue;
    BurstForm* form = step->burstForm();
    if (!form || !forms.add(form)) return false;
  }
  return true;
}

template bool AllGenericPipelineSteps::formsOf(const Steps<InputPipelineStep>&, BurstForms&);
template bool AllGenericPipelineSteps::formsOf(const Steps<OutputPipelineStep>&, BurstForms&);

template <class Step, class Context>
const PipelineStep* AllGenericPipelineSteps::run(const Steps<Step>& steps, const Kelp::Ptr<Context>& ctx,
                                                 VeloNamedCounters& counters) {
  const CountScope inside(packetsInside_);
  for (const auto& [step, by] : steps) {
    if (step->stepFlags() != PipelineStep::enabled) continue;
    try {
      if (!step->process(ctx)) return step.get();
    } catch (const std::exception& error) {
      countException(counters, *step, error.what());
      return step.get();
    } catch (...) {
      countException(counters, *step, "something unknown");
      return step.get();
    }
  }
  return nullptr;
}

template const PipelineStep* AllGenericPipelineSteps::run(const Steps<InputPipelineStep>&,
                                                          const Kelp::Ptr<PacketContext>&,
                                                          VeloNamedCounters&);
template const PipelineStep* AllGenericPipelineSteps::run(const Steps<OutputPipelineStep>&,
                                                          const Kelp::Ptr<OutputPipelineContext>&,
                                                          VeloNamedCounters&);

}  // namespace Velo
