#include <Velo/MalformedStep.h>
#include <gtest/gtest.h>

#include "../support/Frames.h"

// The agent's own steps against malformed frames, one a direction, under both policies.

namespace {

using namespace TestSupport;
using namespace Velo;

class MalformedSteps : public testing::Test {
 protected:
  /// The named counters after one frame, "Drop/Velo::Malformed/REASON"; first whether it passed.
  std::string input(MalformedPolicy policy, const Bytes& bytes) {
    const auto step = MemSlab::make<MalformedInputStep>(policy);
    EXPECT_EQ(step->stepFlags(), PipelineStep::enabled);
    return shown(step->process(packet(bytes)));
  }
  std::string output(MalformedPolicy policy, const Bytes& bytes) {
    const auto step = MemSlab::make<MalformedOutputStep>(policy);
    EXPECT_EQ(step->stepFlags(), PipelineStep::enabled);
    const auto out = MemSlab::make<OutputPipelineContext>(packet(bytes));
    return shown(step->process(out));
  }

 private:
  const Kelp::Ptr<PacketContext>& packet(const Bytes& bytes) {
    counters = MemSlab::make<VeloNamedCounters>();
    ctx = MemSlab::make<PacketContext>(counters);
    ctx->pkt()->assign(bytes, static_cast<uint32_t>(bytes.size()), 0);
    ctx->begin(Nimnet::IntfId("eth1"));
    return ctx;
  }
  std::string shown(bool passed) const {
    std::string text = passed ? "passes" : "is dropped";
    for (auto at = counters->counter().begin(); at; at.next()) {
      text +=
          fmt::format(" {}/{}/{} = {}", at.key().category, at.key().facility, at.key().reason, at.value());
    }
    return text;
  }

  Kelp::Ptr<VeloNamedCounters> counters;
  Kelp::Ptr<PacketContext> ctx;
};

TEST_F(MalformedSteps, DropUnderTheFaultsOwnReasonOrOnlyCountIt) {
  const Bytes whole = frame().eth().ip4("192.0.2.1", "198.51.100.7").udp(1, 2);
  const Bytes versioned = frame().eth().ip4("192.0.2.1", "198.51.100.7").version(5).udp(1, 2);
  const Bytes noEthernet = cut(whole, 13), noUdp = cut(whole, 14 + 20 + 3);
  const auto named = [](const char* category, ParseFault fault) {
    return fmt::format(" {}/Velo::Malformed/{} = 1", category, reason(fault));
  };
  struct Row {
    const char* why;
    const Bytes& frame;
    ParseFault fault;
  };
  const Row rows[] = {
      {"Ethernet cut off", noEthernet, ParseFault::ethHeaderCut},
      {"another IP version", versioned, ParseFault::ipVersion},
      {"shorter than declared", noUdp, ParseFault::ipTotalLengthTooLong},
  };
  for (const auto& [why, bytes, fault] : rows) {
    EXPECT_EQ(input(MalformedPolicy::drop, bytes), "is dropped" + named("Drop", fault)) << why;
    EXPECT_EQ(output(MalformedPolicy::drop, bytes), "is dropped" + named("Drop", fault)) << why;
    EXPECT_EQ(input(MalformedPolicy::pass, bytes), "passes" + named("Malformed", fault)) << why;
    EXPECT_EQ(output(MalformedPolicy::pass, bytes), "passes") << why << ": counted on receipt only";
  }
  for (const auto policy : {MalformedPolicy::drop, MalformedPolicy::pass}) {
    EXPECT_EQ(input(policy, whole), "passes");
    EXPECT_EQ(output(policy, whole), "passes");
  }
}

TEST_F(MalformedSteps, StandInFrontOfEveryPluginsSteps) {
  EXPECT_EQ(MemSlab::make<MalformedInputStep>(MalformedPolicy::drop)->position(), 1000u);
  EXPECT_EQ(MemSlab::make<MalformedOutputStep>(MalformedPolicy::drop)->position(), 1000u);
}

}  // namespace
