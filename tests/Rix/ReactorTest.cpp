#include <Rix/InReactor.h>
#include <Zeb/Attributes.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace {

using Kelp::Ptr;
using Rix::Gen::InputStateMachine;

class Thing : public Zeb::Entity {
  ZEB_ENTITY(Thing, Zeb::Entity)
  ZEB_VALUE(int, number)
};

struct Reactor : InputStateMachine {
  using Act = std::function<void()>;
  Reactor(const char* name, const Ptr<const Thing>& thing, std::string& text, Act act = nullptr)
      : InputStateMachine(thing), name_(name), text_(text), act_(std::move(act)) {}
  ~Reactor() override { text_ += "~" + name_ + " "; }
  void doInputScan() override { note("scan:" + name_); }
  void enDispatch(const Zeb::Change&) override { note(name_); }
  void note(const std::string& what) {
    text_ += what + " ";
    const Act act = act_;
    if (act) act();
    text_ += name_.empty() ? "?" : "";  // reads a member: the object must be whole here
  }
  std::string name_;
  std::string& text_;
  Act act_;
};

struct ReactorTest : testing::Test {
  std::string take() { return std::exchange(text, ""); }
  std::string change() {
    take();
    thing->numberIs(thing->number() + 1);
    return take();
  }
  Ptr<Reactor> make(const char* name, Reactor::Act act = nullptr) {
    auto made = MemSlab::make<Reactor>(name, thing, text, std::move(act));
    made->hasNotificationActiveIs(true);
    return made;
  }
  std::string text;
  Ptr<Thing> thing = MemSlab::make<Thing>();
};

TEST_F(ReactorTest, FollowsItsEntityWhileNotificationIsOn) {
  auto r = MemSlab::make<Reactor>("r", thing, text);
  EXPECT_FALSE(r->hasNotificationActive());
  EXPECT_EQ(change(), "") << "off at first";
  for (int twice = 0; twice < 2; ++twice) r->hasNotificationActiveIs(true);
  EXPECT_TRUE(r->hasNotificationActive() && r->nodeFlag(Kelp::nodeNotifying));
  EXPECT_EQ(change(), "r ");
  r->hasNotificationActiveIs(false);
  EXPECT_FALSE(r->hasNotificationActive());
  EXPECT_EQ(change(), "");
  r->hasNotificationActiveIs(true);
  EXPECT_EQ(r->nodeUseCount(), 1u) << "following takes no reference on the reactor";
  r = nullptr;
  EXPECT_EQ(take(), "~r ");
  EXPECT_EQ(change(), "") << "it left when it went";
}

TEST_F(ReactorTest, HoldsItsEntity) {
  auto r = make("r");
  EXPECT_EQ(thing->nodeUseCount(), 2u);
  thing = nullptr;
  EXPECT_EQ(MemSlab::slabOf<Thing>().liveCount(), 1u);
  r = nullptr;
  EXPECT_EQ(MemSlab::slabOf<Thing>().liveCount(), 0u);
}

TEST_F(ReactorTest, AHandlerMayLetGoOfItselfAndOfOthers) {
  Ptr<Reactor> a, b, c;
  a = make("a", [&] { a = nullptr; });
  b = make("b", [&] { c = nullptr; });
  c = make("c");
  EXPECT_EQ(change(), "a ~a b ~c ");
  EXPECT_EQ(change(), "b ");
}

TEST_F(ReactorTest, NotificationMayBeSwitchedFromWithin) {
  Ptr<Reactor> a, b;
  a = make("a", [&] {
    a->hasNotificationActiveIs(false);
    b->hasNotificationActiveIs(false);
  });
  b = make("b");
  EXPECT_EQ(change(), "a ") << "off from within, for itself and for the one behind";
  EXPECT_EQ(change(), "");
  a->act_ = [&] {
    a->hasNotificationActiveIs(false);
    a->hasNotificationActiveIs(true);
    b->hasNotificationActiveIs(true);
  };
  a->hasNotificationActiveIs(true);
  EXPECT_EQ(change(), "a ") << "on again is for the next change";
  a->act_ = nullptr;
  EXPECT_EQ(change(), "a b ");
}

TEST_F(ReactorTest, OneThatIsDoneIsSilentAndGoesWithTheSweep) {
  Ptr<Reactor> r;
  r = make("r", [&] {
    r->doneIs();
    r->doneIs();
    r = nullptr;
  });
  Reactor* raw = r.get();
  EXPECT_EQ(change(), "r ") << "it goes neither with its handler";
  EXPECT_TRUE(raw->done());
  raw->hasNotificationActiveIs(true);
  EXPECT_FALSE(raw->hasNotificationActive()) << "a done one is not switched on again";
  EXPECT_EQ(change(), "");
  EXPECT_EQ(Rix::Gen::zebDoZombieReactors(), 1u);
  EXPECT_EQ(take(), "~r ");
  EXPECT_EQ(Rix::Gen::zebDoZombieReactors(), 0u);
}

TEST_F(ReactorTest, TheSweepLeavesWhatOthersHold) {
  auto r = make("r");
  r->doneIs();
  EXPECT_EQ(Rix::Gen::zebDoZombieReactors(), 1u);
  EXPECT_TRUE(r->done());
  EXPECT_EQ(r->nodeUseCount(), 1u);
  EXPECT_EQ(take(), "");
}

TEST_F(ReactorTest, TheSweepTakesWhatBecomesDoneDuringIt) {
  struct Chain : Reactor {
    using Reactor::Reactor;
    ~Chain() override {
      if (next) next->doneIs();
      Rix::Gen::zebDoZombieReactors();  // from within the sweep
    }
    Ptr<Reactor> next;
  };
  auto first = MemSlab::make<Chain>("a", thing, text);
  first->next = make("b");
  first->doneIs();
  first = nullptr;
  EXPECT_GE(Rix::Gen::zebDoZombieReactors(), 1u);
  EXPECT_EQ(MemSlab::slabOf<Reactor>().liveCount() + MemSlab::slabOf<Chain>().liveCount(), 0u);
}

TEST_F(ReactorTest, ADestructorMayFinishItselfAndChangeItsEntity) {
  struct Last : Reactor {
    Last(const char* name, const Ptr<Thing>& t, std::string& s) : Reactor(name, t, s), mine(t) {}
    ~Last() override {
      mine->numberIs(100);
      doneIs();
      mine->numberIs(101);
    }
    Ptr<Thing> mine;
  };
  auto last = MemSlab::make<Last>("l", thing, text);
  last->hasNotificationActiveIs(true);
  last = nullptr;
  EXPECT_EQ(take(), "~l ") << "it does not handle the changes of its own end";
  EXPECT_EQ(Rix::Gen::zebDoZombieReactors(), 0u) << "and does not wait for a sweep";
}

TEST_F(ReactorTest, AMachineWithoutAnEntityHasASwitch) {
  auto r = MemSlab::make<Reactor>("r", nullptr, text);
  r->hasNotificationActiveIs(true);
  EXPECT_TRUE(r->hasNotificationActive());
  r->hasNotificationActiveIs(false);
  EXPECT_FALSE(r->hasNotificationActive());
}

TEST_F(ReactorTest, InitializeScansOnce) {
  Ptr<Reactor> r;
  r = make("r", [&] { r->initialize(); });
  EXPECT_EQ(take(), "") << "making it does not scan";
  r->initialize();
  r->initialize();
  EXPECT_EQ(take(), "scan:r ");
  Ptr<Reactor> gone;
  gone = make("g", [&] { gone = nullptr; });
  gone->initialize();
  EXPECT_EQ(take(), "scan:g ~g ") << "a scan may let go of its machine";
}

TEST_F(ReactorTest, AnExceptionFromAHandlerLeavesTheReactorFollowing) {
  Ptr<Reactor> r;
  r = make("r", [&] { throw 1; });
  EXPECT_THROW(change(), int);
  EXPECT_EQ(r->nodeUseCount(), 1u);
  r->act_ = nullptr;
  EXPECT_EQ(change(), "r ");
}

}  // namespace
