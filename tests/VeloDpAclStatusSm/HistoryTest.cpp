#include <Nimnet/Pkt.h>
#include <Plog/Plog.h>
#include <Zeb/TraceHandle.h>

#include <cstdlib>

#include "../support/Sanitizers.h"
#include "Fixture.h"
#include "Model.h"

/// Random histories of configuration, counts, time and task runs against a model that knows nothing of tasks,
/// scans and reconciliation. The environment variable VELO_HISTORY_SEED runs one history and tells its steps,
/// with the machine's traces when VELO_HISTORY_TRACE is set, too. VELO_HISTORIES sets how many a test runs.
namespace SmTest {

namespace {

constexpr int defaultHistories = TestSupport::sanitizers ? 500 : 5000;
constexpr size_t maxSteps = 200;

enum class Yields { never, random, always, noTasks };

/// A repeatable source of choices; cheap to make.
class Dice {
 public:
  explicit Dice(uint64_t seed) : state_(seed) {}
  size_t below(size_t sides) { return static_cast<size_t>(next() % sides); }
  bool oneIn(size_t sides) { return below(sides) == 0; }

 private:
  uint64_t next() {
    state_ += 0x9e3779b97f4a7c15;
    return Kelp::mix64(Kelp::mix64(state_));
  }
  uint64_t state_;
};

/// A clock on which a slice is used up at random.
class JumpyClock final : public Kiv::Clock {
 public:
  explicit JumpyClock(Dice& dice) : dice_(dice) {}
  void jumpsIs(size_t oneIn) { oneIn_ = oneIn; }
  Kelp::Duration now() const override {
    if (oneIn_ && dice_.oneIn(oneIn_)) now_ = now_ + Kelp::Duration(1);
    return now_;
  }

 private:
  Dice& dice_;
  size_t oneIn_ = 0;
  mutable Kelp::Duration now_;
};

class History {
 public:
  History(uint64_t seed, Yields yields, bool tells)
      : dice_(seed), yields_(yields), tells_(tells), sliceClock_(dice_), pkt_(MemSlab::make<Nimnet::Pkt>()) {
    world_.scheduler->sliceClockIs(sliceClock_);
    if (yields == Yields::random) sliceClock_.jumpsIs(2 + dice_.below(6));
    Kiv::alwaysYieldIs(yields == Yields::always);
    model_.timeIs(now());
  }

  /// Returns what went wrong, empty when nothing did.
  std::string run() {
    for (size_t i = dice_.below(30); i > 0; --i) change();
    start();
    for (size_t left = 1 + dice_.below(maxSteps); left > 0 && wrong_.empty(); --left) step();
    settle();
    return wrong_;
  }

 private:
  template <class... Args>
  void tell(fmt::format_string<Args...> text, Args&&... args) {
    if (tells_) fmt::print("{:8.2f} {}\n", now(), fmt::format(text, std::forward<Args>(args)...));
  }
  double now() const { return world_.clock.now().seconds(); }

  // ---- The machine.

  static constexpr const char* taskNames[] = {
      "VeloDpAclStatusSm-copyIpOutCountersTask", "VeloDpAclStatusSm-copyIp6OutCountersTask",
      "VeloDpAclStatusSm-copyInCountersTask", "VeloDpAclStatusSm-copyMacOutCountersTask"};

  void start() {
    synchronous_ = yields_ == Yields::noTasks || dice_.oneIn(20);
    tell("start {}", synchronous_ ? "without tasks" : "with tasks");
    model_.starting(*world_.status);
    world_.start(synchronous_ ? Rix::SmControl::synchronous : Rix::SmControl::asynchronous);
    live_ = false;
    mayComeAtOnce_ = {};
    if (synchronous_) {
      model_.startedAtOnce();
      live_ = true;
      if (!world_.sm->ready()) wrong_ += "a machine without tasks is not ready at once\n";
    } else {
      for (size_t i = 0; i < StatusModel::polls; ++i) {
        tasks_[i] = world_.scheduler->taskIs(0, taskNames[i]);
        workCounts_[i] = tasks_[i]->taskWorkCount();
        doneGens_[i] = 0;
        ends_[i] = std::nullopt;
        inPass_[i] = false;
      }
    }
    check();
  }

  void restart() {
    tell("stop");
    for (auto& task : tasks_) task = nullptr;
    world_.stop();
    model_.stopped();
    live_ = false;
    const std::string left =
        world_.scheduler->timeUntilDue() ? "a machine that is gone left a task queued\n" : "";
    wrong_ += left;
    for (size_t i = dice_.below(10); i > 0; --i) change();
    start();
  }

  /// What the machine has of a poll.
  struct OfPoll {
    const uint64_t& (Velo::VeloAcl::InputSmScanState::*done)() const;
    const bool& (Velo::VeloAcl::InputSmScanState::*idle)() const;
    const bool& (Velo::VeloAcl::MachinePolls::*duplicateSeen)() const;
    bool (Velo::VeloAcl::MachinePolls::*duplicateSeenIs)(bool);
  };
  static const OfPoll& of(size_t poll) {
    using State = Velo::VeloAcl::InputSmScanState;
    using Polls = Velo::VeloAcl::MachinePolls;
    static const std::map<size_t, OfPoll> all{
        {StatusModel::ipOut,
         {&State::copyIpOutCountersCodefDoneGen, &State::copyIpOutCountersIdle,
          &Polls::copyIpOutCountersDuplicateSeen, &Polls::copyIpOutCountersDuplicateSeenIs}},
        {StatusModel::ip6Out,
         {&State::copyIp6OutCountersCodefDoneGen, &State::copyIp6OutCountersIdle,
          &Polls::copyIp6OutCountersDuplicateSeen, &Polls::copyIp6OutCountersDuplicateSeenIs}},
        {StatusModel::in,
         {&State::copyInCountersCodefDoneGen, &State::copyInCountersIdle, &Polls::copyInCountersDuplicateSeen,
          &Polls::copyInCountersDuplicateSeenIs}},
        {StatusModel::macOut,
         {&State::copyMacOutCountersCodefDoneGen, &State::copyMacOutCountersIdle,
          &Polls::copyMacOutCountersDuplicateSeen, &Polls::copyMacOutCountersDuplicateSeenIs}}};
    return all.at(poll);
  }
  uint64_t doneGen(size_t poll) const { return ((*world_.sm->inputSmScanState()).*of(poll).done)(); }
  bool idleFlag(size_t poll) const { return ((*world_.sm->inputSmScanState()).*of(poll).idle)(); }
  bool startsOver(size_t poll) const { return ((*world_.sm).*of(poll).duplicateSeen)(); }
  void startOver(size_t poll) { ((*world_.sm).*of(poll).duplicateSeenIs)(true); }

  /// One run of one task. Returns false when none is due.
  bool runOne() {
    std::array<bool, StatusModel::polls> overBefore{};
    if (!synchronous_) {
      for (size_t i = 0; i < StatusModel::polls; ++i) overBefore[i] = startsOver(i);
    }
    const bool rulesReady = world_.sm->outputState()->ruleIdsByAclRuleIdsOutputReady();
    if (!world_.scheduler->runOne()) return false;
    if (synchronous_) {
      wrong_ += "a machine without tasks has one\n";
      return true;
    }
    for (size_t i = 0; i < StatusModel::polls; ++i) {
      const auto count = static_cast<size_t>(tasks_[i]->taskWorkCount() - workCounts_[i]);
      const bool ended = doneGen(i) != doneGens_[i];
      if (count == 0 && !ended) continue;
      workCounts_[i] += count;
      doneGens_[i] = doneGen(i);
      const bool restarted = overBefore[i] && !startsOver(i);
      tell("poll {} copies {}{}{}", i, count, restarted ? ", starts over" : "", ended ? ", ends" : "");
      const bool atOnce = !inPass_[i] && std::exchange(mayComeAtOnce_[i], false);
      if (!atOnce && !inPass_[i] && ends_[i] && now() < *ends_[i] + 1)
        wrong_ += "a poll began before its second was over\n";
      const bool complete = model_.polled(static_cast<StatusModel::Poll>(i), count, restarted);
      if (complete != ended)
        wrong_ += fmt::format("poll {} {} where it should not\n", i, ended ? "ends" : "stops");
      if (idleFlag(i) != ended) wrong_ += fmt::format("poll {} is idle in its pass, or busy out of it\n", i);
      inPass_[i] = !ended;
      if (!ended) continue;
      ends_[i] = now();
    }
    if (!rulesReady && world_.sm->outputState()->ruleIdsByAclRuleIdsOutputReady()) {
      for (size_t i = 0; i < StatusModel::polls; ++i) mayComeAtOnce_[i] = ends_[i].has_value() || inPass_[i];
    }
    if (!live_ && world_.sm->ready()) {
      tell("ready");
      wrong_ += model_.started(*world_.status);
      live_ = true;
    }
    if (!world_.scheduler->timeUntilDue() || *world_.scheduler->timeUntilDue() > Kelp::Duration())
      checkAtRest();
    return true;
  }

  /// Nothing is due.
  void checkAtRest() {
    if (!world_.sm->idle()) {
      wrong_ += "nothing is left to do, and the machine is not idle\n";
    }
    for (size_t i = 0; i < StatusModel::polls; ++i) {
      if (!ends_[i] || now() >= *ends_[i] + 1) wrong_ += fmt::format("poll {} is overdue\n", i);
    }
  }

  void check() {
    if (live_ && wrong_.empty()) wrong_ += model_.compare(*world_.status);
  }

  // ---- The configuration.

  Acl::AclType anyType() { return static_cast<Acl::AclType>(dice_.below(3)); }
  Acl::AclDirection anyDirection() { return static_cast<Acl::AclDirection>(dice_.below(2)); }
  std::string anyName() { return std::string(1, static_cast<char>('A' + dice_.below(3))); }
  std::string anyIntf() { return fmt::format("eth{}", 1 + dice_.below(3)); }
  /// The map of its rules that a rule goes into: nearly always that of the list's type. A rule in another one
  /// is found in force only when its list was published before it is scanned, so there are none where scans
  /// yield.
  size_t anyFamily(Acl::AclType type) {
    const bool ordered = yields_ == Yields::never || yields_ == Yields::noTasks;
    return ordered && dice_.oneIn(8) ? dice_.below(3) : static_cast<size_t>(type);
  }
  UniqueId anyUid(size_t family) { return UniqueId(uint64_t{100} * (family + 1) + dice_.below(4)); }

  void putRule(Acl::AclSubConfig& rules, size_t family, UniqueId uid) {
    const auto sequence = static_cast<uint32_t>(1 + dice_.below(50));
    switch (family) {
      case 0:
        rules.ipRuleByIdIs(uid, World::ipRule(sequence));
        break;
      case 1:
        rules.ip6RuleByIdIs(uid, World::ip6Rule(sequence));
        break;
      default:
        rules.macRuleByIdIs(uid, World::macRule(sequence));
        break;
    }
  }

  void change() {
    const Acl::AclType type = anyType();
    const std::string name = anyName();
    const auto lists = world_.config->config(type);
    const auto list = lists ? lists->acl(name) : nullptr;
    switch (dice_.below(16)) {
      case 0:
      case 1:
        tell("list {} {}", type, name);
        world_.config->configIs(type)->aclIs(name);
        return model_.listIs(type, name);
      case 2:
        if (!list || dice_.oneIn(2)) return;
        tell("no list {} {}", type, name);
        lists->aclDel(name);
        return model_.listDel(type, name);
      case 3:
        if (!dice_.oneIn(3)) return;
        tell("no lists {}", type);
        world_.config->configDel(type);
        return model_.typeDel(type);
      case 4:
      case 5:
        return replaceRules(type, name);
      case 6:
      case 7:
      case 8:
      case 9:
        return putRule(type, name);
      case 10:
      case 11:
        return delRule(type, name);
      case 12:
      case 13:
        return bind();
      default:
        return unbind();
    }
  }

  void replaceRules(Acl::AclType type, const std::string& name) {
    const auto list = world_.config->configIs(type)->aclIs(name);
    model_.listIs(type, name);
    if (dice_.oneIn(4)) {
      tell("no rules in force {} {}", type, name);
      list->currCfgDel();
      return model_.rulesIs(type, name, std::nullopt);
    }
    const auto rules = MemSlab::make<Acl::AclSubConfig>();
    std::set<UniqueId> uids;
    for (size_t i = dice_.below(5); i > 0; --i) {
      const size_t family = anyFamily(type);
      const UniqueId uid = anyUid(family);
      putRule(*rules, family, uid);
      uids.insert(uid);
    }
    tell("rules {} {}: {} of them", type, name, uids.size());
    list->currCfgIs(rules);
    model_.rulesIs(type, name, std::move(uids));
  }

  void putRule(Acl::AclType type, const std::string& name) {
    const auto list = world_.config->configIs(type)->aclIs(name);
    model_.listIs(type, name);
    if (!list->currCfg()) {
      list->currCfgIs(MemSlab::make<Acl::AclSubConfig>());
      model_.rulesIs(type, name, std::set<UniqueId>());
    }
    const size_t family = anyFamily(type);
    const UniqueId uid = anyUid(family);
    tell("rule {} {} {}", type, name, uid);
    putRule(*list->currCfg(), family, uid);
    model_.ruleIs(type, name, uid);
  }

  void delRule(Acl::AclType type, const std::string& name) {
    const auto lists = world_.config->config(type);
    const auto list = lists ? lists->acl(name) : nullptr;
    if (!list || !list->currCfg()) return;
    const size_t family = anyFamily(type);
    const UniqueId uid = anyUid(family);
    tell("no rule {} {} {}", type, name, uid);
    switch (family) {
      case 0:
        list->currCfg()->ipRuleByIdDel(uid);
        break;
      case 1:
        list->currCfg()->ip6RuleByIdDel(uid);
        break;
      default:
        list->currCfg()->macRuleByIdDel(uid);
        break;
    }
    model_.ruleDel(type, name, uid);
  }

  void bind() {
    const Acl::AclType type = anyType();
    const Acl::AclDirection direction = anyDirection();
    const std::string intf = anyIntf(), name = anyName();
    tell("bind {} {} {} {}", type, direction, intf, name);
    world_.intfConfig->configIs(type)->intfIs(direction)->intfIs(Nimnet::IntfId(intf), name);
    model_.bindingIs(type, direction, intf, name);
  }

  void unbind() {
    const Acl::AclType type = anyType();
    const Acl::AclDirection direction = anyDirection();
    const std::string intf = anyIntf();
    const auto types = world_.intfConfig->config(type);
    if (!types) return;
    switch (dice_.below(8)) {
      case 0:
        tell("no bindings {}", type);
        world_.intfConfig->configDel(type);
        return model_.bindingsDel(type, std::nullopt);
      case 1:
        tell("no bindings {} {}", type, direction);
        types->intfDel(direction);
        return model_.bindingsDel(type, direction);
      default:
        if (!types->intf(direction)) return;
        tell("unbind {} {} {}", type, direction, intf);
        types->intf(direction)->intfDel(Nimnet::IntfId(intf));
        return model_.bindingDel(type, direction, intf);
    }
  }

  // ---- The rest.

  void count() {
    const Acl::AclType type = anyType();
    const std::string name = anyName();
    UniqueId uid = anyUid(anyFamily(type));
    if (dice_.oneIn(3)) {
      const UniqueId implicit = model_.implicitId(type, name);
      if (!implicit.empty()) uid = implicit;
      // Later, when the list has come again, this counts an id that was.
      if (!implicit.empty()) oldIds_.push_back({anyDirection(), type, name, implicit});
    }
    CounterKey key{anyDirection(), type, name, uid};
    if (!oldIds_.empty() && dice_.oneIn(10)) key = oldIds_[dice_.below(oldIds_.size())];
    const auto& counters = StatusModel::pollOf(key) == StatusModel::in       ? world_.in
                           : StatusModel::pollOf(key) == StatusModel::ipOut  ? world_.ipOut
                           : StatusModel::pollOf(key) == StatusModel::macOut ? world_.macOut
                                                                             : world_.ip6Out;
    const auto counter = counters->counterCollectionIs(key);
    counter->count(pkt_);
    counter->lastUpdateTimeIs(world_.clock.now());
    tell("count {}: {}", key, counter->packets());
    model_.counterIs(key, counter->packets(), now());
  }

  void pass(double seconds) {
    tell("{} s pass", seconds);
    world_.clock.advance(Kelp::Duration(seconds));
    model_.timeIs(now());
  }

  void step() {
    const size_t kind = dice_.below(100);
    if (kind < 35) {
      change();
    } else if (kind < 50) {
      count();
    } else if (kind < 60) {
      pass(0.25 * static_cast<double>(1 + dice_.below(4)));
    } else if (kind < 98) {
      for (size_t runs = 1 + dice_.below(dice_.oneIn(8) ? 100 : 4); runs > 0 && wrong_.empty() && runOne();
           --runs)
        check();
    } else if (kind == 98) {
      if (!synchronous_) startOver(dice_.below(StatusModel::polls));
    } else {
      restart();
    }
    check();
  }

  /// Lets everything come to rest, and every poll copy once more after that.
  void settle() {
    for (int round = 0; round < 2 && wrong_.empty(); ++round) {
      pass(1);
      int runs = 0;
      while (wrong_.empty() && runOne()) {
        check();
        if (++runs > 100000) wrong_ += "the tasks never come to an end\n";
      }
    }
    if (wrong_.empty() && (!live_ || !world_.sm->idle())) wrong_ += "the machine never became idle\n";
    check();
    tell("end");
  }

  Dice dice_;
  const Yields yields_;
  const bool tells_;
  JumpyClock sliceClock_;
  World world_;
  Kelp::Ptr<Nimnet::Pkt> pkt_;
  StatusModel model_;
  bool synchronous_ = false;
  bool live_ = false;
  /// Polls that were begun before the first scan of the rules was over, and have not come again since.
  std::array<bool, StatusModel::polls> mayComeAtOnce_{};
  std::string wrong_;
  std::vector<CounterKey> oldIds_;
  std::array<Kelp::Ptr<Kiv::TimerTask>, StatusModel::polls> tasks_;
  std::array<uint64_t, StatusModel::polls> workCounts_{}, doneGens_{};
  std::array<std::optional<double>, StatusModel::polls> ends_{};
  std::array<bool, StatusModel::polls> inPass_{};
};

class HistoryTest : public testing::TestWithParam<Yields> {};

TEST_P(HistoryTest, TheStatusIsWhatTheModelSays) {
  const char* one = std::getenv("VELO_HISTORY_SEED");
  const char* many = std::getenv("VELO_HISTORIES");
  const uint64_t first = one ? std::strtoull(one, nullptr, 0) : 1;
  const uint64_t last = one ? first : first + (many ? std::strtoull(many, nullptr, 0) : defaultHistories) - 1;
  if (one && std::getenv("VELO_HISTORY_TRACE")) {
    Zeb::TraceHandle::enable("DpAclStatusVelo/9");
    Plog::streamIs(Plog::fileStream(stdout));
  }
  for (uint64_t seed = first; seed <= last; ++seed) {
    const uint64_t alive = MemSlab::liveCount();
    std::string wrong = History(seed, GetParam(), one != nullptr).run();
    Kiv::alwaysYieldIs(false);
    if (MemSlab::liveCount() != alive) wrong += "left alive:\n" + MemSlab::liveReport();
    ASSERT_EQ(wrong, "") << "VELO_HISTORY_SEED=" << seed << " replays it";
  }
}

std::string nameOf(const testing::TestParamInfo<Yields>& info) {
  switch (info.param) {
    case Yields::never:
      return "TasksThatNeverYield";
    case Yields::random:
      return "TasksThatYieldAtRandom";
    case Yields::always:
      return "TasksThatAlwaysYield";
    default:
      return "NoTasks";
  }
}
INSTANTIATE_TEST_SUITE_P(Histories, HistoryTest,
                         testing::Values(Yields::never, Yields::random, Yields::always, Yields::noTasks),
                         nameOf);

}  // namespace

}  // namespace SmTest
