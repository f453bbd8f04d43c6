#include <Acl/FirstRule.h>
#include <Acl/Model.h>
#include <Acl/Workshop.h>
#include <Kiv/TaskScheduler.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <memory>
#include <new>
#include <thread>

// When a list is compiled anew, and that no job is lost. The thread runs in its own time; everything here
// waits for it by turns of the loop.

namespace {

thread_local bool hasNoMemoryWhenAsked = false;
std::atomic<bool> noMemory = false;
std::atomic<int64_t> beforeNoMemory = 0;  // so many more allocations succeed

void* memory(size_t size, size_t align) {
  if (hasNoMemoryWhenAsked && noMemory && --beforeNoMemory < 0) throw std::bad_alloc();
  void* place =
      align ? std::aligned_alloc(align, (size + align - 1) / align * align) : std::malloc(size ? size : 1);
  if (!place) throw std::bad_alloc();
  return place;
}

}  // namespace

// GCC takes the pair below apart when it inlines one of them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(size_t size) { return memory(size, 0); }
void* operator new(size_t size, std::align_val_t align) { return memory(size, static_cast<size_t>(align)); }
void operator delete(void* place) noexcept { std::free(place); }
void operator delete(void* place, size_t) noexcept { std::free(place); }
void operator delete(void* place, std::align_val_t) noexcept { std::free(place); }
void operator delete(void* place, size_t, std::align_val_t) noexcept { std::free(place); }

namespace {

using namespace Acl;

/// Two hosts, or any packet.
IpRule rule(uint32_t sequence, bool any) {
  IpRule made;
  made.sequence = sequence;
  if (any) return made;
  made.filter.sourceMask.value = made.filter.destinationMask.value = ~uint32_t{0};
  made.filter.source.value = sequence * 0x01000193;
  made.filter.destination.value = sequence * 0x9e3779b1;
  return made;
}

/// What a packet meets that has these addresses, null for nothing.
const RuleMap<IpRuleConfig>::Entry* metFirst(const AclSubConfig& list, Nimnet::IpAddr source,
                                             Nimnet::IpAddr destination) {
  Nimnet::IpHdr ip{};
  for (int i = 0; i < 4; ++i) {
    ip.bytes[12 + i] = static_cast<uint8_t>(source.value >> (24 - 8 * i));
    ip.bytes[16 + i] = static_cast<uint8_t>(destination.value >> (24 - 8 * i));
  }
  const auto packet = [&ip] { return IpPacket{{ip, {}, 0, true, true}}; };
  return firstRule(list.ipRuleById(), packet);
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

  void put(const IpRule& made) { list_->ipRuleByIdIs(Kiv::UniqueId(made.sequence), made); }
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

  /// One turn in which the first rules are copied for a list that is to be compiled, and more are left.
  void copyFirstRules() {
    const bool before = Kiv::alwaysYield();
    Kiv::alwaysYieldIs(true);
    turn();
    Kiv::alwaysYieldIs(before);
  }
  /// The number of the rule that a packet meets that a host rule asks for, 0 for none.
  uint32_t metBy(uint32_t host) {
    const IpFilter filter = rule(host, false).filter;
    const auto* met = metFirst(*list_, filter.source, filter.destination);
    return met ? met->value.sequence() : 0;
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
  copyFirstRules();
  erase(2);  // one of them
  settle();
  erase(500);
  EXPECT_TRUE(Workshop::singleton().idle()) << "nothing was left to be done";
}

TEST_F(WorkshopTest, ARuleThatComesMeanwhileIsNotTakenForOneThatWent) {
  settle();
  erase(1);
  copyFirstRules();  // rule 2 among them, which hides the hosts now
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
  erase(1);
  settle();
  erase(2);  // which hid the hosts
  copyFirstRules();
  erase(20);  // one of them
  settle();
  for (const uint32_t sequence : {5u, 6u, 7u})
    put(rule(sequence, false));  // in the places that have become free
  EXPECT_EQ(metBy(20), 0u);
}

TEST_F(WorkshopTest, NoListWaitsForAThreadThatHasGone) {
  ASSERT_FALSE(list_->compiledReady(AclType::ip));
  Workshop::singleton().threadIs(false);
  EXPECT_TRUE(list_->compiledReady(AclType::ip));
  EXPECT_EQ(metBy(500), 1u) << "and it is the list's";
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

/// Sources and destinations, which go into two trees, and last two rules of one number, of which the second
/// one has the lower id.
TEST(CompiledRules, OfOneNumberAreTriedByTheirIdsWhateverTheirPlaces) {
  const auto list = MemSlab::make<AclSubConfig>();
  const auto put = [&list](uint64_t id, uint32_t sequence, bool source, uint32_t address) {
    IpRule made;
    made.sequence = sequence;
    (source ? made.filter.sourceMask : made.filter.destinationMask).value = ~uint32_t{0};
    (source ? made.filter.source : made.filter.destination).value = address;
    list->ipRuleByIdIs(Kiv::UniqueId(id), made);
  };
  constexpr uint32_t last = 3000;
  for (uint32_t sequence = 1; sequence < last; ++sequence) {
    put(sequence + 10, sequence, sequence % 2 == 0, sequence * 0x9e3779b1);
  }
  put(9, last, true, 1);
  list->compile(AclType::ip);
  put(3, last, false, 2);
  for (const bool on : {false, true}) list->upkeepIs(AclType::ip, on);
  const auto* met = metFirst(*list, {1}, {2});
  ASSERT_NE(met, nullptr);
  EXPECT_EQ(met->key, Kiv::UniqueId(uint64_t{3}));
}

/// Wherever memory runs out while a list is compiled in the call, it is tried rule by rule and can be
/// compiled again.
TEST(CompiledRules, ThatCannotBeMadeInTheCallAreTriedInTheirOrderUntilTheNextChange) {
  ASSERT_FALSE(Workshop::singleton().hasThread());
  const auto list = MemSlab::make<AclSubConfig>();
  for (uint32_t sequence = 10; sequence < 300; ++sequence)
    list->ipRuleByIdIs(Kiv::UniqueId(sequence), rule(sequence, false));
  list->compile(AclType::ip);
  const auto isRight = [&list](uint32_t host) {
    const IpFilter filter = rule(host, false).filter;
    const auto* met = metFirst(*list, filter.source, filter.destination);
    return met && met->value.sequence() == host;
  };
  int failed = 0;
  for (bool made = false; !made; ++failed) {
    SCOPED_TRACE(failed);
    list->upkeepIs(AclType::ip, false);
    beforeNoMemory = failed;
    hasNoMemoryWhenAsked = noMemory = made = true;
    try {
      list->upkeepIs(AclType::ip, true);
    } catch (const std::bad_alloc&) {
      made = false;
    }
    hasNoMemoryWhenAsked = noMemory = false;
    EXPECT_EQ(list->ipRuleById().compiled()->ready(), made);
    EXPECT_TRUE(isRight(100));
    const uint32_t next = 1000 + static_cast<uint32_t>(failed);
    list->ipRuleByIdIs(Kiv::UniqueId(next), rule(next, false));
    EXPECT_TRUE(list->ipRuleById().compiled()->ready());
    EXPECT_TRUE(isRight(next) && isRight(200));
    list->ipRuleByIdDel(Kiv::UniqueId(next));
  }
  EXPECT_GT(failed, 10);
  beforeNoMemory = 0;
}

/// The thread runs out of memory when the test says so.
class WorkshopWithoutMemory : public WorkshopTest {
 protected:
  WorkshopWithoutMemory() {
    settle();
    Workshop::singleton().threadIs(false);
    Workshop::singleton().threadIs(true, [] { hasNoMemoryWhenAsked = true; });
  }
  ~WorkshopWithoutMemory() override { noMemory = false; }
};

TEST_F(WorkshopWithoutMemory, AListThatCannotBeCompiledIsTriedInItsOrderUntilItCan) {
  noMemory = true;
  list_->compile(AclType::ip);
  EXPECT_FALSE(list_->compiledReady(AclType::ip));
  settle();
  EXPECT_FALSE(list_->ipRuleById().compiled()->ready());
  EXPECT_TRUE(list_->compiledReady(AclType::ip)) << "who waits for it would wait for ever";
  EXPECT_EQ(metBy(500), 1u);
  noMemory = false;
  erase(1);
  erase(2);
  settle();
  EXPECT_TRUE(list_->ipRuleById().compiled()->ready()) << "the next change has it tried again";
  EXPECT_EQ(metBy(500), 500u);
}

TEST_F(WorkshopWithoutMemory, AListGoesOnInTheFormThatItHas) {
  noMemory = true;
  erase(1);
  copyFirstRules();
  erase(2);
  put(rule(5, false));
  ASSERT_FALSE(Workshop::singleton().idle());
  settle();
  EXPECT_TRUE(list_->ipRuleById().compiled()->ready());
  EXPECT_EQ(metBy(5), 5u);
  EXPECT_EQ(metBy(500), 500u);
  EXPECT_EQ(metBy(0), 0u);
  noMemory = false;
  erase(600);
  settle();
  EXPECT_EQ(metBy(500), 500u);
  EXPECT_EQ(metBy(600), 0u);
  erase(700);
  EXPECT_TRUE(Workshop::singleton().idle()) << "it has been made anew, without the rules that hid others";
}

}  // namespace
