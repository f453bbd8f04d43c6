#include <Acl/Compiled.h>
#include <Acl/Workshop.h>
#include <Classify/Find.h>
#include <Kiv/TaskScheduler.h>
#include <fmt/format.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <optional>
#include <thread>

#include "DifferentialGenerator.h"
#include "MatchSupport.h"

// The matchers against the oracle of DifferentialModel.h, over lists and packets of DifferentialGenerator.h.
// Every list has a seed. A failure prints it with the fewest changes that still show it. Environment:
//   VELO_SEED=n         only the list of that seed
//   VELO_SOAK=minutes   each test goes on for so long, with seeds that no run had before

namespace {

using namespace TestSupport;
using namespace TestSupport::Differential;

/// Pairs of a list and a packet in each of the nine tests.
#if defined(__SANITIZE_ADDRESS__) || !defined(__OPTIMIZE__)
constexpr uint64_t pairsOfATest = 40'000;
#else
constexpr uint64_t pairsOfATest = 1'200'000;
#endif

/// The seed of the list at hand, for when the process does not get as far as a failure.
volatile uint64_t currentSeed = 0;

/// While it lives, a crash names the seed.
class SeedOnCrash {
 public:
  SeedOnCrash() {
    for (size_t i = 0; i < std::size(signals); ++i) before_[i] = std::signal(signals[i], &say);
  }
  ~SeedOnCrash() {
    for (size_t i = 0; i < std::size(signals); ++i) std::signal(signals[i], before_[i]);
  }

 private:
  static constexpr int signals[] = {SIGSEGV, SIGABRT, SIGBUS, SIGFPE};

  static void say(int signal) {
    char text[] = "\ncrashed at VELO_SEED=00000000000000000000\n";
    size_t at = sizeof text - 2;
    for (uint64_t left = currentSeed; left > 0; left /= 10) text[--at] = static_cast<char>('0' + left % 10);
    if (write(STDERR_FILENO, text, sizeof text - 1) < 0) _exit(1);
    std::signal(signal, SIG_DFL);
    std::raise(signal);
  }

  void (*before_[std::size(signals)])(int);
};

void ruleDel(Acl::AclSubConfig& list, Kiv::UniqueId id, const Acl::IpRuleConfig&) { list.ipRuleByIdDel(id); }
void ruleDel(Acl::AclSubConfig& list, Kiv::UniqueId id, const Acl::Ip6RuleConfig&) {
  list.ip6RuleByIdDel(id);
}
void ruleDel(Acl::AclSubConfig& list, Kiv::UniqueId id, const Acl::MacRuleConfig&) {
  list.macRuleByIdDel(id);
}

template <class Rule>
struct Change {
  enum Kind { put, del, inForce, outOfForce, renewed, unkept, kept, tasks, made };
  Kind kind;
  Kiv::UniqueId id{};
  Rule rule{};  ///< of put

  std::string str() const {
    switch (kind) {
      case put:
        return fmt::format("put {} {}", id, describe(rule));
      case del:
        return fmt::format("del {}", id);
      case inForce:
        return "the rules come into force";
      case outOfForce:
        return "the list has no rules in force";
      case renewed:
        return "the same rules in a new object";
      case unkept:
        return "the form is not kept up";
      case kept:
        return "the form is kept up";
      case tasks:
        return "tasks run";
      case made:
        return "tasks run until the form is made";
    }
    return {};
  }
};

template <class Rule>
bool formOf(const Acl::RuleMap<Rule>& rules) {
  const auto* form = static_cast<const Acl::Compiled<Rule>*>(rules.compiled());
  return form && form->ready();
}
bool hasForm(const Acl::AclSubConfig& list, const Acl::IpRuleConfig&) { return formOf(list.ipRuleById()); }
bool hasForm(const Acl::AclSubConfig& list, const Acl::Ip6RuleConfig&) { return formOf(list.ip6RuleById()); }
bool hasForm(const Acl::AclSubConfig& list, const Acl::MacRuleConfig&) { return formOf(list.macRuleById()); }

/// What delays of tasks are counted on: they are due whenever tasks are to run.
Kiv::ManualClock loopClock;

/// A list with its oracle, kept the same.
template <class Rule>
class Subject {
 public:
  using Changed = Change<Rule>;

  Subject() { scheduler_->clockIs(loopClock); }
  ~Subject() { scheduler_->clockIs(Kiv::steadyClock()); }

  void apply(const Changed& change) {
    switch (change.kind) {
      case Changed::put:
        known_[change.id] = change.rule;
        oracle_.ruleIs(change.id, change.rule);
        ruleIs(*rules_, change.id, change.rule);
        break;
      case Changed::del:
        known_.erase(change.id);
        oracle_.ruleDel(change.id);
        ruleDel(*rules_, change.id, change.rule);
        break;
      case Changed::inForce:
        rules_->compile(Acl::listTypeOf<Rule>);
        list_->currCfgIs(rules_);
        inForce_ = kept_ = true;
        break;
      case Changed::outOfForce:
        list_->currCfgDel();
        inForce_ = false;
        break;
      case Changed::renewed:
        rules_ = MemSlab::make<Acl::AclSubConfig>();
        for (const auto& [id, rule] : known_) ruleIs(*rules_, id, rule);
        rules_->compile(Acl::listTypeOf<Rule>);
        kept_ = true;
        if (inForce_) list_->currCfgIs(rules_);
        break;
      case Changed::unkept:
      case Changed::kept:
        kept_ = change.kind == Changed::kept;
        rules_->upkeepIs(Acl::listTypeOf<Rule>, kept_);
        break;
      case Changed::tasks:
        runTasks();
        break;
      case Changed::made:
        for (int i = 0; i < 10000 && inForce_ && kept_ && !compiled(); ++i) {
          std::this_thread::yield();
          runTasks();
        }
        break;
    }
  }

  enum class Outcome { hit, miss, wrong };
  Outcome ask(const Fields& packet) {
    const auto expected = inForce_ ? oracle_.first(packet) : typename Oracle<Rule>::Answer{nullptr, {}};
    Rule rule = untouched();
    Kiv::UniqueId id = Kiv::UniqueId::unset();
    const bool found = askMatcher(packet, list_, &rule, &id);
    if (found != (expected.rule != nullptr)) return Outcome::wrong;
    if (found) return rule == *expected.rule && id == expected.id ? Outcome::hit : Outcome::wrong;
    return rule == untouched() && id == Kiv::UniqueId::unset() ? Outcome::miss : Outcome::wrong;
  }

  /// What the two say, for people.
  std::string verdicts(const Fields& packet) {
    const auto expected = inForce_ ? oracle_.first(packet) : typename Oracle<Rule>::Answer{nullptr, {}};
    Rule rule = untouched();
    Kiv::UniqueId id = Kiv::UniqueId::unset();
    const bool found = askMatcher(packet, list_, &rule, &id);
    const auto text = [](bool met, Kiv::UniqueId ruleId, const Rule* r) {
      return met ? fmt::format("{} {}", ruleId, describe(*r)) : std::string("no rule");
    };
    return fmt::format("expected {}\nfound    {}", text(expected.rule, expected.id, expected.rule),
                       text(found, id, &rule));
  }

  const std::map<Kiv::UniqueId, Rule>& known() const { return known_; }
  /// Whether packets are judged by the compiled form now.
  bool compiled() const { return hasForm(*rules_, untouched()); }

 private:
  void runTasks() {
    loopClock.advance(Kelp::Duration(0.01));
    scheduler_->runTurn();
  }
  static const Rule& untouched() {
    static const Rule rule = [] {
      Rule made;
      made.sequence = 77;
      made.text = "untouched";
      return made;
    }();
    return rule;
  }

  // Held, so that whatever the list leaves to tasks can be run.
  const Kelp::Ptr<Kiv::TaskScheduler> scheduler_ = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  const Kelp::Ptr<Acl::AclConfig> list_ = MemSlab::make<Acl::AclConfig>(Kelp::String("L"));
  Kelp::Ptr<Acl::AclSubConfig> rules_ = MemSlab::make<Acl::AclSubConfig>();
  bool inForce_ = false;
  bool kept_ = true;  // the compiled form
  Oracle<Rule> oracle_;
  std::map<Kiv::UniqueId, Rule> known_;
};

/// Whether these changes still make a packet's answer wrong; it is asked after each of them, too.
template <class Rule>
bool showsIt(const std::vector<Change<Rule>>& changes, const Fields& packet) {
  Subject<Rule> subject;
  for (const auto& change : changes) {
    subject.apply(change);
    subject.ask(packet);
  }
  return subject.ask(packet) == Subject<Rule>::Outcome::wrong;
}

/// Leaves out changes for as long as the failure stays: first many at once, in the end each one alone.
template <class Rule>
std::vector<Change<Rule>> fewest(std::vector<Change<Rule>> changes, const Fields& packet) {
  int tries = 5000;
  for (size_t part = std::max<size_t>(1, changes.size() / 2);; part = std::max<size_t>(1, part / 2)) {
    bool smaller = false;
    for (size_t at = 0; at < changes.size() && tries > 0; --tries) {
      auto fewer = changes;
      const auto first = fewer.begin() + static_cast<std::ptrdiff_t>(at);
      fewer.erase(first, first + static_cast<std::ptrdiff_t>(std::min(part, changes.size() - at)));
      if (showsIt(fewer, packet)) {
        changes = std::move(fewer);
        smaller = true;
      } else {
        at += part;
      }
    }
    if (tries <= 0 || (part == 1 && !smaller)) return changes;
  }
}

template <class Rule>
std::string failure(uint64_t seed, const std::vector<Change<Rule>>& changes, const Fields& packet) {
  std::string text = fmt::format("VELO_SEED={}, {} changes, packet {}\n", seed, changes.size(), packet.str());
  if (!showsIt(changes, packet)) return text + "it does not show when only this packet is asked";
  const auto few = fewest(changes, packet);
  Subject<Rule> subject;
  for (const auto& change : few) {
    subject.apply(change);
    subject.ask(packet);
    text += "  " + change.str() + "\n";
  }
  return text + subject.verdicts(packet);
}

/// The lists of one test.
template <class Rule>
class Lists {
 public:
  explicit Lists(bool histories) : histories_(histories) {
    if (const char* minutes = std::getenv("VELO_SOAK")) {
      end_ = Clock::now() + std::chrono::seconds(static_cast<int64_t>(std::atof(minutes) * 60));
      seed_ = std::random_device{}() * uint64_t{1000000};
    }
    if (const char* seed = std::getenv("VELO_SEED")) only_ = std::strtoull(seed, nullptr, 10);
    fmt::print("first seed {}\n", only_.value_or(seed_));
  }

  void run() {
    if (only_) return list(*only_);
    for (; more() && !testing::Test::HasFatalFailure(); ++seed_) list(seed_);
    if (testing::Test::HasFatalFailure()) return;
    EXPECT_GT(hits_, pairs_ / 4) << "the generator has packets that meet rules";
    EXPECT_GT(pairs_ - hits_, pairs_ / 20) << "and packets that meet none";
    EXPECT_GT(compiled_, pairs_ / 4) << "packets are judged by compiled forms";
    fmt::print("{} pairs of list and packet, {} met a rule, {} by a compiled form\n", pairs_, hits_,
               compiled_);
  }

 private:
  using Clock = std::chrono::steady_clock;
  using Changed = Change<Rule>;

  bool more() const { return end_ ? Clock::now() < *end_ : pairs_ < pairsOfATest; }

  void list(uint64_t seed) {
    currentSeed = seed;
    Dice dice(seed);
    constexpr Classify::Unit units[] = {Classify::Unit::portable, Classify::Unit::avx2,
                                        Classify::Unit::avx512};
    if (const auto* kernels = Classify::kernelsOf(dice.of(units))) Classify::kernels = kernels;
    Generator<Rule> generator(dice);
    Subject<Rule> subject;
    changes_.clear();
    const bool early = dice.once(4);  // in force before it has rules
    if (early) change(subject, {Changed::inForce});
    for (size_t i = 0; i < generator.size(); ++i) {
      change(subject, {Changed::put, generator.id(), generator.rule()});
    }
    if (!early) change(subject, {Changed::inForce});
    packets(seed, generator, subject, histories_ ? 300 : 600);
    if (!histories_) return;
    for (auto rounds = 1 + dice.below(12); rounds > 0 && !testing::Test::HasFatalFailure(); --rounds) {
      constexpr size_t most[] = {1, 1, 1, 2, 2, 4, 4, 8, 20, 200};
      for (auto count = 1 + dice.below(dice.of(most)); count > 0; --count)
        someChange(dice, generator, subject);
      packets(seed, generator, subject, 200);
    }
  }

  void someChange(Dice& dice, Generator<Rule>& generator, Subject<Rule>& subject) {
    const auto& known = subject.known();
    const auto drawn = dice.below(42);
    if (drawn >= 40) return change(subject, {dice.once(3) ? Changed::unkept : Changed::kept});
    if (drawn == 0) return change(subject, {Changed::renewed});
    if (drawn == 1) return change(subject, {dice.once(2) ? Changed::outOfForce : Changed::inForce});
    if (drawn < 6) return change(subject, {Changed::tasks});
    if (drawn < 18 || known.empty()) {
      return change(subject, {Changed::put, generator.id(), generator.rule()});
    }
    auto one = known.lower_bound(generator.id());
    if (one == known.end()) one = known.begin();
    if (drawn < 30) return change(subject, {Changed::del, one->first});
    // A rule of the same id: all new, new but for its place, in another place, or equal.
    Rule rule = drawn < 36 ? generator.rule() : one->second;
    if (drawn >= 33 && drawn < 36) rule.sequence = one->second.sequence;
    if (drawn >= 36 && drawn < 39) rule.sequence = generator.sequence();
    change(subject, {Changed::put, one->first, rule});
  }

  void change(Subject<Rule>& subject, Changed made) {
    subject.apply(made);
    changes_.push_back(std::move(made));
  }

  void packets(uint64_t seed, Generator<Rule>& generator, Subject<Rule>& subject, int count) {
    using Outcome = typename Subject<Rule>::Outcome;
    for (int i = 0; i < count; ++i, ++pairs_) {
      // In between, so that packets meet the list before and after its form is made.
      if (i % 64 == 0) change(subject, {i == 64 ? Changed::made : Changed::tasks});
      compiled_ += subject.compiled();
      const Fields packet = generator.packet();
      const Outcome outcome = subject.ask(packet);
      hits_ += outcome == Outcome::hit;
      if (outcome == Outcome::wrong) FAIL() << failure(seed, changes_, packet);
    }
  }

  const bool histories_;
  std::optional<Clock::time_point> end_;
  std::optional<uint64_t> only_;
  uint64_t seed_ = 1;
  uint64_t pairs_ = 0, hits_ = 0, compiled_ = 0;
  std::vector<Changed> changes_;
};

template <class Rule>
class MatchDifferential : public testing::Test {
 protected:
  void TearDown() override {
    Acl::Workshop::singleton().threadIs(false);
    Classify::kernels = kernels_;
  }

 private:
  const Classify::Kernels* const kernels_ = Classify::kernels;
  const SeedOnCrash seedOnCrash_;
};
struct KindName {
  template <class Rule>
  static std::string GetName(int) {
    return std::is_same_v<Rule, Acl::IpRuleConfig>    ? "ip"
           : std::is_same_v<Rule, Acl::Ip6RuleConfig> ? "ipv6"
                                                      : "mac";
  }
};
using Kinds = testing::Types<Acl::IpRuleConfig, Acl::Ip6RuleConfig, Acl::MacRuleConfig>;
TYPED_TEST_SUITE(MatchDifferential, Kinds, KindName);

TYPED_TEST(MatchDifferential, AListAnswersLikeTheOracle) { Lists<TypeParam>(false).run(); }

TYPED_TEST(MatchDifferential, AListAnswersLikeTheOracleAfterAnyHistoryOfChanges) {
  Lists<TypeParam>(true).run();
}

// Here a failure may not show again, as it depends on when the thread is ready.
TYPED_TEST(MatchDifferential, AListAnswersLikeTheOracleWhileAThreadCompilesIt) {
  Acl::Workshop::singleton().threadIs(true);
  Lists<TypeParam>(true).run();
}

}  // namespace
