// A plugin for velo: counts received IP packets by their DSCP class. What it counts is shown by `velo show
// drops`, under the category "Dscp", and it drops nothing.
//
//     cmake -B build && cmake --build build
//     velo run --plugin build/DscpCounter.so ...
#include <MemSlab/Slab.h>
#include <Velo/Pipeline.h>
#include <Velo/VeloPlugin.h>
#include <Zeb/TypeModule.h>

#include <array>

namespace DscpCounter {

constexpr uint32_t classCount = 64;  // DSCP has six bits

/// The names of the classes (RFC 2474, 2597, 3246, 5865); all others are told by their number.
std::string nameOf(uint32_t dscp) {
  const uint32_t group = dscp >> 3, low = dscp & 7;
  if (dscp == 46) return "EF";
  if (dscp == 44) return "VOICE-ADMIT";
  if (low == 0) return "CS" + std::to_string(group);
  if (group >= 1 && group <= 4 && low % 2 == 0) return "AF" + std::to_string(group) + std::to_string(low / 2);
  return std::to_string(dscp);
}

/// Made once, for a step must not allocate.
std::array<Kelp::String, classCount> allNames() {
  std::array<Kelp::String, classCount> names;
  for (uint32_t dscp = 0; dscp < classCount; ++dscp) names[dscp] = Kelp::String(nameOf(dscp));
  return names;
}

/// Stands in front of the access lists (32000), behind the check for malformed frames (1000): it sees what
/// they judge.
class CountingStep : public Velo::InputPipelineStep {
  ZEB_ENTITY(CountingStep, Velo::InputPipelineStep)

 public:
  CountingStep() : InputPipelineStep("DscpCounterStep", 30000) { stepFlagsIs(enabled); }

  bool process(const Kelp::Ptr<Velo::PacketContext>& ctx) override {
    ctx->parsedPacket().maybeDoFullParse();
    if (const Velo::ParsedIpHdr* ip = ctx->parsedPacket().ipHdr()) {
      const uint32_t dscp = ip->ipHdr() ? ip->ipHdr()->dscp() : ip->ip6Hdr()->dscp();
      ctx->namedCounters().count(category_, facility_, names_[dscp]);
    }
    return true;
  }

 private:
  const Kelp::String category_{"Dscp"}, facility_{"DscpCounter"};
  const std::array<Kelp::String, classCount> names_ = allNames();
};

/// What the agent leads through its phases. It puts the step into the pipeline; when it goes the agent takes
/// it out.
class CountingPlugin : public Velo::VeloPlugin {
  ZEB_ENTITY(CountingPlugin, Velo::VeloPlugin)

 public:
  explicit CountingPlugin(const Kelp::String& name) : VeloPlugin(name) {}
  void activeInit() override {
    manager()->pipeline()->addStep(Kelp::Ptr<Velo::InputPipelineStep>(MemSlab::make<CountingStep>()));
  }
};

namespace {

Kelp::Ptr<CountingPlugin> countingPlugin(const Kelp::String& name) {
  return MemSlab::make<CountingPlugin>(name);
}
Kelp::Ptr<CountingStep> countingStep() { return MemSlab::make<CountingStep>(); }

// The types of the library, before anything is made of them.
const Zeb::TypeModule types("DscpCounter", {Zeb::typeEntry(&countingPlugin), Zeb::typeEntry(&countingStep)});

/// The one global object of a plugin: it tells the agent that the library is there.
class Instance : public Plugin::PluginBase<Velo::PluginContext> {
 public:
  Instance() : PluginBase(Velo::DefaultPluginLoader(), "DscpCounter", "Dscp") {}
  void init(Velo::PluginContext* context) override {
    plugin_ = countingPlugin("DscpCounter");
    plugin_->pluginCtxIs(context);
    plugin_->savePluginRef(context->entityManager);
  }
  void letGo() override { plugin_ = nullptr; }

 private:
  Kelp::Ptr<CountingPlugin> plugin_;
};
Instance instance;

}  // namespace
}  // namespace DscpCounter
