#include "World.h"

// In which order the plugin does what follows a match.

namespace {

using namespace TestSupport;

class AfterAMatch : public World {};

/// Has a look at the moment when a copy is sent.
class Onlooker final : public Velo::MirrorTarget {
 public:
  explicit Onlooker(std::function<void()> look) : look_(std::move(look)) {
    Velo::MirroringStepHelper::singleton()->targetIs(this);
  }
  ~Onlooker() { Velo::MirroringStepHelper::singleton()->targetIs(nullptr); }
  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>&, const Kelp::String&, const IntfId&) override {
    look_();
  }

 private:
  const std::function<void()> look_;
};

TEST_F(AfterAMatch, ThePacketIsCountedThenMirroredThenDropped) {
  rule(AclType::ip, 5, Action::deny, "W");
  bind(AclType::ip, in);
  Lines countedThen, namedThen{"not asked"};
  const Onlooker onlooker([&] { countedThen = counted(), namedThen = named(); });
  EXPECT_FALSE(passes(tcp4()));
  EXPECT_EQ(countedThen, Lines{"DpAclInRuleMatches: in ip L 5 = 1"}) << "when the copy is sent";
  EXPECT_EQ(namedThen, Lines{}) << "the drop comes after it";
  EXPECT_EQ(named(), Lines{"Drop/Velo::Acl/dropping pkt = 1"});
}

TEST_F(AfterAMatch, TheMirroringDirectionIsThatOfThePacket) {
  rule(AclType::ip, 5, Action::permit, "LATER");
  bind(AclType::ip, in), bind(AclType::ip, out);
  EXPECT_TRUE(passes(tcp4(), out));
  EXPECT_EQ(named(), Lines{"Mirror/Velo::Mirroring/egress packet to an undefined session = 1"});
  EXPECT_TRUE(passes(tcp4(), in));
  EXPECT_EQ(named(), (Lines{"Mirror/Velo::Mirroring/egress packet to an undefined session = 1",
                            "Mirror/Velo::Mirroring/ingress packet to an undefined session = 1"}));
}

}  // namespace
