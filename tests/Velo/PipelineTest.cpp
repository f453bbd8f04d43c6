#include <Velo/Pipeline.h>
#include <Zeb/TraceHandle.h>
#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "../Zeb/TraceCapture.h"

namespace {

using namespace Velo;
using Nimnet::IntfId;
using Calls = std::vector<std::string>;

class FakeInput : public InputPipelineStep {
  ZEB_ENTITY(FakeInput, InputPipelineStep)
 public:
  using Act = std::function<bool(const Kelp::Ptr<PacketContext>&)>;
  FakeInput(const Kelp::String& name, uint32_t position, Act act, bool on = true)
      : InputPipelineStep(name, position), act_(std::move(act)) {
    if (on) stepFlagsIs(enabled);
  }
  bool process(const Kelp::Ptr<PacketContext>& ctx) override { return act_(ctx); }

 private:
  const Act act_;
};

class FakeOutput : public OutputPipelineStep {
  ZEB_ENTITY(FakeOutput, OutputPipelineStep)
 public:
  using Act = std::function<bool(const Kelp::Ptr<OutputPipelineContext>&)>;
  FakeOutput(const Kelp::String& name, uint32_t position, Act act)
      : OutputPipelineStep(name, position), act_(std::move(act)) {
    stepFlagsIs(enabled);
  }
  bool process(const Kelp::Ptr<OutputPipelineContext>& ctx) override { return act_(ctx); }

 private:
  const Act act_;
};

class Pipeline : public testing::Test {
 protected:
  Kelp::Ptr<InputPipelineStep> step(const char* name, uint32_t position, bool passes = true, bool on = true) {
    return MemSlab::make<FakeInput>(
        name, position,
        [this, name, passes](const auto&) {
          calls.emplace_back(name);
          return passes;
        },
        on);
  }
  Kelp::Ptr<OutputPipelineStep> outStep(const char* name, uint32_t position) {
    return MemSlab::make<FakeOutput>(name, position, [this, name](const auto&) {
      calls.emplace_back(name);
      return true;
    });
  }
  void addThrowing(const char* name, std::function<void()> act) {
    pipeline->addStep(Kelp::Ptr<InputPipelineStep>(MemSlab::make<FakeInput>(name, 10, [act](const auto&) {
      act();
      return true;
    })));
  }
  uint64_t dropped(const char* reason) const {
    const uint64_t* count = counters->counter().find({"Drop", "Velo::Pipeline", reason});
    return count ? *count : 0;
  }
  std::string droppedBy() {
    const PipelineStep* by = pipeline->process(ctx);
    return by ? by->name().str() : "";
  }

  Registrant registrant;
  const Kelp::Ptr<AllGenericPipelineSteps> pipeline = MemSlab::make<AllGenericPipelineSteps>(registrant);
  const Kelp::Ptr<VeloNamedCounters> counters = MemSlab::make<VeloNamedCounters>();
  const Kelp::Ptr<PacketContext> ctx = MemSlab::make<PacketContext>(counters);
  const Kelp::Ptr<OutputPipelineContext> out = MemSlab::make<OutputPipelineContext>(ctx);
  Calls calls;
};

TEST_F(Pipeline, StepsRunByTheirPositionWhateverTheOrderOfAdding) {
  pipeline->addStep(step("c", 32000));
  pipeline->addStep(step("a", 0));
  pipeline->addStep(step("d", 4294967295u));
  pipeline->addStep(step("b", 8500));
  pipeline->addStep(step("b2", 8500));
  EXPECT_EQ(droppedBy(), "");
  EXPECT_EQ(calls, (Calls{"a", "b", "b2", "c", "d"})) << "of one position the one added first";
}

TEST_F(Pipeline, AStepHandedOverTwiceRunsOnce) {
  const auto once = step("a", 1);
  pipeline->addStep(once);
  pipeline->addStep(step("b", 2));
  pipeline->addStep(once);
  EXPECT_EQ(pipeline->stepCount(), 2u);
  pipeline->process(ctx);
  EXPECT_EQ(calls, (Calls{"a", "b"}));
}

TEST_F(Pipeline, AStepThatIsNotEnabledIsLeftOut) {
  const auto off = step("off", 1, true, false);
  pipeline->addStep(off);
  pipeline->addStep(step("on", 2));
  pipeline->process(ctx);
  EXPECT_EQ(calls, Calls{"on"});
  off->stepFlagsIs(PipelineStep::enabled);
  pipeline->process(ctx);
  EXPECT_EQ(calls, (Calls{"on", "off", "on"})) << "the flag is read for every packet";
  off->stepFlagsIs(3);
  calls.clear();
  pipeline->process(ctx);
  EXPECT_EQ(calls, Calls{"on"}) << "no other value of the flag word enables";
}

TEST_F(Pipeline, TheFirstDropEndsItAndIsNamed) {
  pipeline->addStep(step("a", 1));
  pipeline->addStep(step("no", 2, false));
  pipeline->addStep(step("c", 3));
  EXPECT_EQ(droppedBy(), "no");
  EXPECT_EQ(calls, (Calls{"a", "no"}));
  EXPECT_TRUE(counters->counter().empty()) << "the reason is the step's own business";
}

struct FakeForm final : BurstForm {
  void begin() override {}
  BurstVerdicts judge(const PacketBurst&, PacketSet those, const BurstPlace&) override {
    asked = those;
    return verdicts;
  }
  bool holds() const override { return true; }
  void act(const PacketBurst&, PacketSet) override {}
  BurstVerdicts verdicts;
  PacketSet asked = 0;
};

class FormedInput final : public FakeInput {
 public:
  FormedInput(uint32_t position, BurstForm* form)
      : FakeInput("formed", position, [](const auto&) { return true; }), form_(form) {}
  BurstForm* burstForm() override { return form_; }

 private:
  BurstForm* const form_;
};

TEST_F(Pipeline, BurstsAreJudgedWhenAllEnabledStepsCan) {
  FakeForm first, second;
  first.verdicts = {0b0010, 0b0100};
  second.verdicts = {0b1000, 0};
  const auto add = [this](uint32_t position, BurstForm* form) {
    pipeline->addStep(Kelp::Ptr<InputPipelineStep>(MemSlab::make<FormedInput>(position, form)));
  };
  BurstForms forms;
  EXPECT_TRUE(pipeline->inputForms(forms)) << "no step";
  add(20, &second);
  add(10, &first);
  pipeline->addStep(step("off", 15, true, false));
  ASSERT_TRUE(pipeline->inputForms(forms));
  const PacketBurst burst(counters);
  const BurstVerdicts said = forms.judge(burst, 0b1111, {IntfId("eth1"), {}});
  EXPECT_EQ(said.dropped, 0b1010u);
  EXPECT_EQ(said.alone, 0b0100u);
  EXPECT_EQ(second.asked, 0b1001u) << "not about those of which the first has said something";
  BurstForms same;
  EXPECT_TRUE(pipeline->inputForms(same) && same == forms);
  pipeline->addStep(step("single", 30));
  EXPECT_FALSE(pipeline->inputForms(forms));
  EXPECT_TRUE(pipeline->outputForms(forms)) << "of the other direction there are none";
}

TEST_F(Pipeline, TheDirectionsAreApart) {
  pipeline->addStep(step("in", 1));
  pipeline->addStep(outStep("out", 1));
  pipeline->process(ctx);
  EXPECT_EQ(calls, Calls{"in"});
  pipeline->process(out);
  EXPECT_EQ(calls, (Calls{"in", "out"}));
}

TEST_F(Pipeline, AnExceptionDropsThatPacketUnderItsOwnReasonAndThePipelineGoesOn) {
  bool calm = false;
  addThrowing("bad", [&calm] {
    if (!calm) throw std::range_error("label");
  });
  pipeline->addStep(step("after", 20));
  ASSERT_EQ(Zeb::TraceHandle::enable("Velo::Pipeline/0"), std::nullopt);
  TraceCapture traces;
  EXPECT_EQ(droppedBy(), "bad");
  EXPECT_EQ(traces.texts(), Calls{"bad threw: label"});
  EXPECT_EQ(traces.lines()[0].file, "Velo/Pipeline");
  Zeb::TraceHandle::disableAll();
  EXPECT_EQ(calls, Calls{});
  EXPECT_EQ(dropped("exception in bad"), 1u);
  calm = true;
  EXPECT_EQ(droppedBy(), "") << "the next packet is none the worse";
  EXPECT_EQ(calls, Calls{"after"});
  pipeline->addStep(step("new", 30));
  EXPECT_EQ(dropped("exception in bad"), 1u) << "no packet counts as inside any more, so a step can be added";
}

TEST_F(Pipeline, AnythingThatIsThrownDropsThePacket) {
  addThrowing("odd", [] { throw 5; });
  EXPECT_EQ(droppedBy(), "odd");
  EXPECT_EQ(dropped("exception in odd"), 1u);
}

TEST_F(Pipeline, RunsNestForCopiesThatAStepSends) {
  const auto copyCtx = MemSlab::make<PacketContext>(counters);
  const auto copy = MemSlab::make<OutputPipelineContext>(copyCtx);
  pipeline->addStep(outStep("out", 1));
  pipeline->addStep(Kelp::Ptr<InputPipelineStep>(MemSlab::make<FakeInput>("mirror", 5, [&](const auto&) {
    calls.emplace_back("mirror");
    EXPECT_EQ(pipeline->process(copy), nullptr);
    return true;
  })));
  pipeline->addStep(step("in", 10));
  EXPECT_EQ(droppedBy(), "");
  EXPECT_EQ(calls, (Calls{"mirror", "out", "in"}));
}

TEST_F(Pipeline, RegistrantsTakeTheirStepsOutAndNoOthers) {
  int a = 0, b = 0;
  pipeline->addStep(step("agent", 1));
  {
    const Registrant::Scope outer(registrant, &a);
    pipeline->addStep(step("a", 2));
    {
      const Registrant::Scope inner(registrant, &b);
      pipeline->addStep(step("b", 3));
    }
    pipeline->addStep(outStep("a out", 4));
  }
  EXPECT_EQ(pipeline->stepCount(), 4u);
  pipeline->removeStepsBy(&a);
  pipeline->process(ctx);
  pipeline->process(out);
  EXPECT_EQ(calls, (Calls{"agent", "b"}));
  pipeline->removeStepsBy(&b);
  EXPECT_EQ(pipeline->stepCount(), 1u);
}

using PipelineDeathTest = Pipeline;

TEST_F(PipelineDeathTest, ChangingTheStepsUnderAPacketIsRefused) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  pipeline->addStep(Kelp::Ptr<InputPipelineStep>(MemSlab::make<FakeInput>("late", 5, [&](const auto&) {
    pipeline->addStep(step("new", 1));
    return true;
  })));
  EXPECT_DEATH(pipeline->process(ctx), "added while a packet was in the pipeline");
}

}  // namespace
