#include <Acl/FirstRule.h>
#include <Acl/Model.h>
#include <Acl/Workshop.h>
#include <Kiv/TaskScheduler.h>
#include <gtest/gtest.h>

#include <memory>
#include <thread>

// When a list is compiled anew, and that no job is lost. The thread runs in its own time; everything here
// waits for it by turns of the loop.

namespace {

using namespace Acl;

/// Two hosts, or any packet.
IpRuleConfig rule(uint32_t sequence, bool any) {
  IpRuleConfig made;
  made.sequence = sequence;
  if (any) return made;
  made.filter.sourceMask.value = made.filter.destinationMask.value = ~uint32_t{0};
  made.filter.source.value = sequence * 0x01000193;
  made.filter.destination.value = sequence * 0x9e3779b1;
  return made;
}

class WorkshopTest : public testing::Test {
 protected:
  WorkshopTest() {
    scheduler_->clockIs(clock_);
    Workshop::singleton().threadIs(true);
    for (const uint32_t sequence : {1u, 2u}) put(rule(sequence, true));
    for (uint32_t sequence = 10; sequence < 20010; ++sequence) put(rule(sequence, false));
    list_->compile(AclType::ip);
  }
  ~WorkshopTest() override { Workshop::singleton().threadIs(false); }

  void put(const IpRuleConfig& made) { list_->ipRuleByIdIs(Kiv::UniqueId(made.sequence), made); }
  void erase(uint32_t sequence) { list_->ipRuleByIdDel(Kiv::UniqueId(sequence)); }
  void turn() {
    clock_.advance(Kelp::Duration(0.01));
    scheduler_->runTurn();
  }
  void settle() {
    while (!Workshop::singleton().idle()) {
      std::this_thread::yield();
      turn();
    }
  }

  /// The number of the rule that a packet meets that a host rule asks for, 0 for none.
  uint32_t metBy(uint32_t host) {
    const IpFilter filter = rule(host, false).filter;
    Nimnet::IpHdr ip{};
    for (int i = 0; i < 4; ++i) {
      ip.bytes[12 + i] = static_cast<uint8_t>(filter.source.value >> (24 - 8 * i));
      ip.bytes[16 + i] = static_cast<uint8_t>(filter.destination.value >> (24 - 8 * i));
    }
    const auto packet = [&ip] { return IpPacket{{ip, nullptr, nullptr, nullptr, nullptr, 0, true, true}}; };
    const auto* met = firstRule(list_->ipRuleById(), packet);
    return met ? met->value.sequence : 0;
  }

  Kiv::ManualClock clock_;
  const Kelp::Ptr<Kiv::TaskScheduler> scheduler_ = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  const Kelp::Ptr<AclSubConfig> list_ = MemSlab::make<AclSubConfig>();
};

TEST_F(WorkshopTest, AListIsMadeAnewWhenItLosesARuleThatHidesOthers) {
  settle();
  erase(1);
  EXPECT_FALSE(Workshop::singleton().idle()) << "until then every packet is tried rule by rule";
  settle();
  erase(500);
  EXPECT_TRUE(Workshop::singleton().idle()) << "who hides none is taken out, and that is all";
}

TEST_F(WorkshopTest, AListIsMadeAnewOnceMoreForWhatItLostMeanwhile) {
  settle();
  erase(1);
  for (int i = 0; i < 30; ++i) turn();  // the rules are copied, and the thread is at work
  erase(2);
  settle();
  erase(500);
  EXPECT_TRUE(Workshop::singleton().idle()) << "nothing was left to be done";
}

TEST_F(WorkshopTest, ARuleThatComesMeanwhileIsNotTakenForOneThatWent) {
  settle();
  erase(1);
  for (int i = 0; i < 30; ++i) turn();  // the rules are copied, rule 2 among them, which hides the hosts now
  erase(2);
  put(rule(5, false));
  ASSERT_FALSE(Workshop::singleton().idle());
  while (!Workshop::singleton().idle()) {
    turn();
    ASSERT_EQ(metBy(0), 0u) << "of the hosts none";
    ASSERT_EQ(metBy(5), 5u);
    ASSERT_EQ(metBy(500), 500u);
  }
}

TEST_F(WorkshopTest, ARuleThatGoesWhileOthersAreCopiedLeavesNothingBehind) {
  settle();
  const bool before = Kiv::alwaysYield();
  Kiv::alwaysYieldIs(true);
  erase(1);
  turn();     // some rules are copied, the first ones
  erase(20);  // one of them
  Kiv::alwaysYieldIs(before);
  settle();
  for (const uint32_t sequence : {5u, 6u, 7u})
    put(rule(sequence, false));  // in the places that have become free
  EXPECT_EQ(metBy(20), 2u);
}

TEST_F(WorkshopTest, NoListWaitsForAThreadThatHasGone) {
  ASSERT_FALSE(list_->compiledReady(AclType::ip));
  Workshop::singleton().threadIs(false);
  EXPECT_TRUE(list_->compiledReady(AclType::ip));
}

TEST_F(WorkshopTest, TheThreadBeginsWithWhatItWasGivenAndFreesWhatIsDisposedOf) {
  settle();
  Workshop::singleton().threadIs(false);
  std::thread::id began, freed;
  Workshop::singleton().threadIs(true, [&began] { began = std::this_thread::get_id(); });
  const auto note = [&freed](int*) { freed = std::this_thread::get_id(); };
  int thing = 0;
  Workshop::singleton().dispose(std::unique_ptr<int, decltype(note)>(&thing, note));
  settle();
  Workshop::singleton().threadIs(false);
  EXPECT_NE(began, std::thread::id());
  EXPECT_NE(began, std::this_thread::get_id());
  EXPECT_EQ(freed, began);
}

}  // namespace
