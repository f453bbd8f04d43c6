#include <Velo/Mirroring.h>
#include <gtest/gtest.h>

namespace {

using namespace Velo;
using Nimnet::IntfId;
using Sent = std::vector<std::string>;

class Mirroring : public testing::Test, private MirrorTarget {
 protected:
  Mirroring() { helper->targetIs(this); }
  ~Mirroring() override {
    helper->targetIs(nullptr);
    helper->sessionDel("W");
  }
  void sendMirrored(const Kelp::Ptr<PacketContext>& packet, const Kelp::String& session,
                    const IntfId& destination) override {
    EXPECT_EQ(packet, ctx);
    sent.push_back(fmt::format("{} to {}", session, destination));
  }
  uint64_t lost(const char* direction) const {
    const uint64_t* count = counters->counter().find(
        {"Mirror", "Velo::Mirroring", fmt::format("{} packet to an undefined session", direction)});
    return count ? *count : 0;
  }

  const Kelp::Ptr<MirroringStepHelper> helper = MirroringStepHelper::singleton();
  const Kelp::Ptr<VeloNamedCounters> counters = MemSlab::make<VeloNamedCounters>();
  const Kelp::Ptr<PacketContext> ctx = MemSlab::make<PacketContext>(counters);
  Sent sent;
};

TEST_F(Mirroring, ThereIsOneHelperAProcess) {
  EXPECT_EQ(helper, MirroringStepHelper::singleton());
  EXPECT_TRUE(helper);
}

TEST_F(Mirroring, ACopyGoesToEveryDestination) {
  helper->sessionIs("W", {IntfId("eth9"), IntfId("eth8")});
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::egress, "W");
  EXPECT_EQ(sent, (Sent{"W to eth9", "W to eth8", "W to eth9", "W to eth8"}));
  EXPECT_TRUE(counters->counter().empty());
}

TEST_F(Mirroring, ASessionMayBeDefinedAfterWhatNamesItAndIsCountedUntilThen) {
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::egress, "W");
  EXPECT_EQ(sent, Sent{});
  EXPECT_EQ(lost("ingress"), 2u);
  EXPECT_EQ(lost("egress"), 1u);
  helper->sessionIs("W", {IntfId("eth9")});
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  EXPECT_EQ(sent, Sent{"W to eth9"});
  EXPECT_EQ(lost("ingress"), 2u);
  helper->sessionDel("W");
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  EXPECT_EQ(lost("ingress"), 3u);
}

TEST_F(Mirroring, NumbersOfTheDirections) {
  EXPECT_EQ(static_cast<int>(MirroringDirection::ingress), 0);
  EXPECT_EQ(static_cast<int>(MirroringDirection::egress), 1);
}

TEST_F(Mirroring, WithoutATargetCopiesGoNowhere) {
  helper->targetIs(nullptr);
  helper->sessionIs("W", {IntfId("eth9")});
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  EXPECT_EQ(sent, Sent{});
}

TEST_F(Mirroring, ASessionWithoutDestinationsIsDefined) {
  helper->sessionIs("W", {});
  helper->maybeMirrorToSessionTargets(ctx, MirroringDirection::ingress, "W");
  EXPECT_EQ(lost("ingress"), 0u);
}

}  // namespace
