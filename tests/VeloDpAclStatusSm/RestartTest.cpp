#include <Nimnet/Pkt.h>

#include <set>
#include <string>

#include "Fixture.h"

/// A machine is destroyed and another one started over the same status, with the configuration changed in
/// between. A subscriber sees every write and proves that what is true is there all the time.
namespace SmTest {

namespace {

using Acl::ImplicitRuleType;

/// What happens to a thing while no machine is there.
enum class Fate { kept, changed, removed, added };
constexpr Fate fates[] = {Fate::kept, Fate::changed, Fate::removed, Fate::added};
const char* nameOf(Fate fate) {
  constexpr const char* names[] = {"kept", "changed", "removed", "added"};
  return names[static_cast<int>(fate)];
}
bool isBefore(Fate fate) { return fate != Fate::added; }
bool isAfter(Fate fate) { return fate != Fate::removed; }

struct Fates {
  Fate list, rule, binding, type;
};

/// The status as a set of paths.
std::set<std::string> pathsOf(const Acl::StatusDp& status) {
  std::set<std::string> paths;
  for (auto type = status.status().begin(); type; type.next()) {
    const std::string at = fmt::format("{}", type.key());
    paths.insert(at);
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      const std::string name = fmt::format("{} {}", at, list.key());
      paths.insert(name);
      for (auto rule = list.value()->ruleStatus().begin(); rule; rule.next()) {
        paths.insert(fmt::format("{} rule {}", name, rule.key()));
      }
      for (auto id = list.value()->implicitRuleId().begin(); id; id.next())
        paths.insert(name + " implicit id");
      for (auto id = list.value()->implicitRuleStatus().begin(); id; id.next())
        paths.insert(name + " implicit drop");
    }
    for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
      const std::string way = fmt::format("{} {}", at, direction.key());
      paths.insert(way);
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        paths.insert(fmt::format("{} {}", way, intf.key()));
      }
    }
  }
  return paths;
}

std::string ruleAt(const char* list, UniqueId uid) { return fmt::format("{} rule {}", list, uid); }

/// Follows everything in a status and reports each write, with what it took away.
class StatusFollower {
 public:
  using Handle = std::function<void()>;
  StatusFollower(Acl::StatusDp& status, Handle handle) : status_(status), handle_(std::move(handle)) {
    follow();
  }

  const std::set<std::string>& deletions() const { return deletions_; }

 private:
  /// Subscribes to whatever is there and not followed yet, and compares with what was there before.
  void follow() {
    watch(status_);
    for (auto type = status_.status().begin(); type; type.next()) {
      const auto typeStatus = status_.status(type.key());
      watch(*typeStatus);
      for (auto list = typeStatus->acl().begin(); list; list.next()) watch(*typeStatus->acl(list.key()));
      for (auto way = typeStatus->intf().begin(); way; way.next()) watch(*typeStatus->intf(way.key()));
    }
    auto now = pathsOf(status_);
    for (const auto& path : paths_) {
      if (!now.contains(path)) deletions_.insert(path);
    }
    paths_ = std::move(now);
  }
  void watch(Zeb::Entity& entity) {
    auto& known = watches_[&entity];
    if (known.second) return;
    known.first = Kelp::Ptr<Zeb::Entity>(&entity);  // so that no other entity gets its address
    known.second = std::make_unique<Watch>(entity, [this](const Zeb::Change&) {
      follow();
      handle_();
    });
  }

  Acl::StatusDp& status_;
  const Handle handle_;
  std::map<const Zeb::Entity*, std::pair<Kelp::Ptr<Zeb::Entity>, std::unique_ptr<Watch>>> watches_;
  std::set<std::string> paths_, deletions_;
};

const UniqueId keptRule("kept rule"), fateRule("fate rule"), listRule("list rule"), otherRule("other rule"),
    typeRule("type rule");

/// ip K has the rule with a fate beside one that stays, ip L is the list with a fate, ip out eth1 the binding
/// with a fate beside ip in eth1, and ipv6 the type with one.
class Restart : public World {
 public:
  void configureBefore(const Fates& f) {
    rules(AclType::ip, "K")->ipRuleByIdIs(keptRule, ipRule(10));
    bind(AclType::ip, AclDirection::in, "eth1", "K");
    if (isBefore(f.rule)) rules(AclType::ip, "K")->ipRuleByIdIs(fateRule, ipRule(20));
    if (isBefore(f.list)) rules(AclType::ip, "L")->ipRuleByIdIs(listRule, ipRule());
    if (isBefore(f.binding)) bind(AclType::ip, AclDirection::out, "eth1", "K");
    if (isBefore(f.type)) {
      rules(AclType::ipv6, "T")->ip6RuleByIdIs(typeRule, ip6Rule());
      bind(AclType::ipv6, AclDirection::in, "eth9", "T");
    }
  }

  void change(const Fates& f) {
    switch (f.rule) {
      case Fate::kept:
        break;
      case Fate::removed:
        rules(AclType::ip, "K")->ipRuleByIdDel(fateRule);
        break;
      default:
        rules(AclType::ip, "K")->ipRuleByIdIs(fateRule, ipRule(30));
        break;
    }
    switch (f.list) {
      case Fate::kept:
        break;
      case Fate::removed:
        delList(AclType::ip, "L");
        break;
      case Fate::added:
        rules(AclType::ip, "L")->ipRuleByIdIs(listRule, ipRule());
        break;
      case Fate::changed: {  // other rules in force, one of them of the same id
        const auto rulesNow = MemSlab::make<Acl::AclSubConfig>();
        rulesNow->ipRuleByIdIs(listRule, ipRule());
        rulesNow->ipRuleByIdIs(otherRule, ipRule());
        list(AclType::ip, "L")->currCfgIs(rulesNow);
        break;
      }
    }
    switch (f.binding) {
      case Fate::kept:
        break;
      case Fate::removed:
        unbind(AclType::ip, AclDirection::out, "eth1");
        break;
      default:
        bind(AclType::ip, AclDirection::out, "eth1", "L");
        break;
    }
    switch (f.type) {
      case Fate::kept:
        break;
      case Fate::removed:
        config->configDel(AclType::ipv6);
        intfConfig->configDel(AclType::ipv6);
        break;
      case Fate::added:
        rules(AclType::ipv6, "T")->ip6RuleByIdIs(typeRule, ip6Rule());
        bind(AclType::ipv6, AclDirection::in, "eth9", "T");
        break;
      case Fate::changed:
        config->configDel(AclType::ipv6);
        intfConfig->configDel(AclType::ipv6);
        rules(AclType::ipv6, "U")->ip6RuleByIdIs(typeRule, ip6Rule());
        bind(AclType::ipv6, AclDirection::in, "eth8", "U");
        break;
    }
  }

  /// What the configuration alone makes of the status, before or after the change.
  static std::set<std::string> pathsExpected(const Fates& f, bool after) {
    const auto there = [after](Fate fate) { return after ? isAfter(fate) : isBefore(fate); };
    std::set<std::string> paths{"ip", "ip K", ruleAt("ip K", keptRule), "ip in", "ip in eth1"};
    if (there(f.rule)) paths.insert(ruleAt("ip K", fateRule));
    if (there(f.list)) paths.insert({"ip L", ruleAt("ip L", listRule)});
    if (after && f.list == Fate::changed) paths.insert(ruleAt("ip L", otherRule));
    if (there(f.binding)) paths.insert({"ip out", "ip out eth1"});
    if (there(f.type)) {
      const bool other = after && f.type == Fate::changed;
      const char* list = other ? "ipv6 U" : "ipv6 T";
      paths.insert(
          {"ipv6", list, ruleAt(list, typeRule), "ipv6 in", other ? "ipv6 in eth8" : "ipv6 in eth9"});
    }
    for (const char* list : {"ip K", "ip L", "ipv6 T", "ipv6 U"}) {
      if (!paths.contains(list)) continue;
      paths.insert(std::string(list) + " implicit id");
      paths.insert(std::string(list) + " implicit drop");
    }
    return paths;
  }

  UniqueId implicitId(AclType type, const char* name) const {
    return *statusOf(type, name)->implicitRuleId(ImplicitRuleType::drop);
  }
  void countOnce(AclType type, const char* name, UniqueId uid) {
    const auto counter = in->counterCollectionIs({AclDirection::in, type, name, uid});
    counter->count(MemSlab::make<Nimnet::Pkt>());
    counter->lastUpdateTimeIs(clock.now());
  }
  /// That many; false when fewer are due.
  bool runTasks(int runs) {
    while (runs > 0 && scheduler->runOne()) --runs;
    return runs == 0;
  }
  /// Until the machine is ready and every poll has copied once more.
  bool run() { return pass(0) && pass(1) && pass(1) && sm->idle(); }
};

enum class Mode { synchronous, asynchronous, alwaysYield };

class RestartTest : public testing::TestWithParam<Mode> {
 protected:
  void start(Restart& world) const {
    Kiv::alwaysYieldIs(GetParam() == Mode::alwaysYield);
    world.start(GetParam() == Mode::synchronous ? Rix::SmControl::synchronous : Rix::SmControl::asynchronous);
  }
  /// Runs the first machine; returns the id that it gave the implicit rule of K.
  UniqueId firstImplicitId(Restart& world, const Fates& f) const {
    world.configureBefore(f);
    start(world);
    EXPECT_TRUE(world.run());
    return world.implicitId(AclType::ip, "K");
  }
  template <class Check>
  void forAllFates(const Check& check) const {
    for (Fate list : fates) {
      for (Fate rule : fates) {
        for (Fate binding : fates) {
          for (Fate type : fates) {
            SCOPED_TRACE(fmt::format("list {}, rule {}, binding {}, type {}", nameOf(list), nameOf(rule),
                                     nameOf(binding), nameOf(type)));
            check(Fates{list, rule, binding, type});
            if (testing::Test::HasFatalFailure()) return;
          }
        }
      }
    }
  }
};

/// Starts a machine over what the one before left and checks every instant of it, and the end.
class Watched {
 public:
  Watched(Restart& world, std::set<std::string> expected)
      : world_(world),
        before_(pathsOf(*world.status)),
        expected_(std::move(expected)),
        follower_(*world.status, [this] { check(); }) {
    for (const auto& path : before_) (expected_.contains(path) ? true_ : stale_).insert(path);
  }

  /// What is configured never went, what is stale went, and nothing else is there. `gone` went and came
  /// again.
  void finish(const std::set<std::string>& gone = {}) {
    EXPECT_EQ(pathsOf(*world_.status), expected_);
    std::set<std::string> deletions = stale_;
    deletions.insert(gone.begin(), gone.end());
    EXPECT_EQ(follower_.deletions(), deletions);
    for (const auto& path : gone) missing_.erase(path);
    EXPECT_EQ(missing_, std::set<std::string>()) << "true, and deleted for an instant";
  }

 private:
  void check() {
    const auto now = pathsOf(*world_.status);
    for (const auto& path : true_) {
      if (!now.contains(path)) missing_.insert(path);
    }
  }

  Restart& world_;
  const std::set<std::string> before_;
  const std::set<std::string> expected_;
  std::set<std::string> true_, stale_, missing_;
  StatusFollower follower_;
};

TEST_P(RestartTest, NothingStaleStaysAndNothingTrueGoes) {
  forAllFates([this](const Fates& f) {
    Restart world;
    world.configureBefore(f);
    start(world);
    ASSERT_TRUE(world.run());
    ASSERT_EQ(pathsOf(*world.status), Restart::pathsExpected(f, false));
    world.stop();
    ASSERT_EQ(pathsOf(*world.status), Restart::pathsExpected(f, false)) << "the status outlives the machine";

    world.change(f);
    Watched watched(world, Restart::pathsExpected(f, true));
    start(world);
    ASSERT_TRUE(world.run());
    watched.finish();
    const bool bindingKept = f.binding == Fate::kept;
    if (isAfter(f.binding)) {
      EXPECT_EQ(*world.status->status(AclType::ip)->intf(AclDirection::out)->intf(Nimnet::IntfId("eth1")),
                bindingKept ? "K" : "L");
    }
  });
}

TEST_P(RestartTest, CountersThatStayedKeepTheirRulesAndOldImplicitIds) {
  forAllFates([this](const Fates& f) {
    Restart world;
    const UniqueId first = firstImplicitId(world, f);
    for (UniqueId uid : {keptRule, fateRule, first}) world.countOnce(AclType::ip, "K", uid);
    world.stop();

    world.change(f);
    auto expected = Restart::pathsExpected(f, true);
    expected.insert(ruleAt("ip K", fateRule));  // its counter is there, whether or not it is
    expected.insert(ruleAt("ip K", first));
    Watched watched(world, expected);
    start(world);
    ASSERT_TRUE(world.run());
    // Without tasks the rules are reconciled when the first of the polls is through, and the counter that
    // brings this rule again is another poll's.
    const bool blinks = GetParam() == Mode::synchronous && f.rule == Fate::removed;
    watched.finish(blinks ? std::set{ruleAt("ip K", fateRule)} : std::set<std::string>());
    const auto list = world.statusOf(AclType::ip, "K");
    EXPECT_NE(world.implicitId(AclType::ip, "K"), first);
    EXPECT_EQ(list->implicitRuleStatus(ImplicitRuleType::drop)->packets, 0u)
        << "a fresh id was never counted";
    for (UniqueId uid : {keptRule, fateRule, first}) EXPECT_EQ(list->ruleStatus(uid)->packets, 1u);
  });
}

TEST_P(RestartTest, OldImplicitIdsGoWithTheirCounters) {
  forAllFates([this](const Fates& f) {
    Restart world;
    const UniqueId first = firstImplicitId(world, f);
    world.countOnce(AclType::ip, "K", first);
    world.stop();
    start(world);
    ASSERT_TRUE(world.run());
    ASSERT_TRUE(world.statusOf(AclType::ip, "K")->ruleStatus(first))
        << "written under the rule id that it was";
    world.stop();

    world.in = World::collection("in");
    world.change(f);
    Watched watched(world, Restart::pathsExpected(f, true));
    start(world);
    ASSERT_TRUE(world.run());
    watched.finish();
  });
}

/// The machine in between goes after every number of task runs that it could have had.
TEST_P(RestartTest, AStartThatIsCutShortLosesNothing) {
  if (GetParam() == Mode::synchronous) GTEST_SKIP() << "without tasks a start is over at once";
  const Fates all[] = {{Fate::removed, Fate::removed, Fate::removed, Fate::removed},
                       {Fate::changed, Fate::changed, Fate::changed, Fate::changed},
                       {Fate::kept, Fate::added, Fate::removed, Fate::changed},
                       {Fate::added, Fate::removed, Fate::changed, Fate::kept}};
  for (const Fates& f : all) {
    bool wasAtRest = false;
    for (int runs = 0; !wasAtRest; ++runs) {
      SCOPED_TRACE(fmt::format("{} runs, list {}, rule {}", runs, nameOf(f.list), nameOf(f.rule)));
      Restart world;
      world.configureBefore(f);
      start(world);
      ASSERT_TRUE(world.run());
      world.stop();
      world.change(f);
      Watched watched(world, Restart::pathsExpected(f, true));
      start(world);
      wasAtRest = !world.runTasks(runs);
      world.stop();
      start(world);
      ASSERT_TRUE(world.run());
      watched.finish();
      if (HasFailure()) return;
    }
  }
}

/// A list that is configured while the status of a former one of its name waits for its deletion has nothing
/// of the rules in that, whenever it comes.
TEST_P(RestartTest, AListThatComesLateStartsWithoutRules) {
  bool wasAtRest = false;
  for (int runs = 0; !wasAtRest; ++runs) {
    SCOPED_TRACE(fmt::format("after {} runs", runs));
    Restart world;
    for (const char* name : {"K", "L", "M", "N", "O", "P"})
      world.rules(AclType::ip, name)->ipRuleByIdIs(listRule, World::ipRule());
    start(world);
    ASSERT_TRUE(world.run());
    world.stop();
    for (const char* name : {"L", "M", "N", "O", "P"}) world.delList(AclType::ip, name);
    start(world);
    wasAtRest = !world.runTasks(runs);
    world.list(AclType::ip, "O");
    ASSERT_TRUE(world.run());
    ASSERT_EQ(pathsOf(*world.status), (std::set<std::string>{"ip", "ip K", ruleAt("ip K", listRule),
                                                             "ip K implicit id", "ip K implicit drop", "ip O",
                                                             "ip O implicit id", "ip O implicit drop"}));
  }
}

std::string modeName(const testing::TestParamInfo<Mode>& info) {
  constexpr const char* names[] = {"NoTasks", "Tasks", "TasksThatAlwaysYield"};
  return names[static_cast<int>(info.param)];
}
INSTANTIATE_TEST_SUITE_P(Modes, RestartTest,
                         testing::Values(Mode::synchronous, Mode::asynchronous, Mode::alwaysYield), modeName);

}  // namespace

}  // namespace SmTest
