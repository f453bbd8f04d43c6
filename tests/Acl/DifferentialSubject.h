#pragma once

#include <Acl/Compiled.h>
#include <Kiv/TaskScheduler.h>
#include <fmt/format.h>

#include <map>
#include <thread>

#include "DifferentialModel.h"
#include "MatchSupport.h"

/// A list under test beside its oracle, and the changes that both go through.
namespace TestSupport::Differential {

inline void ruleDel(Acl::AclSubConfig& list, Kiv::UniqueId id, const Acl::IpRule&) { list.ipRuleByIdDel(id); }
inline void ruleDel(Acl::AclSubConfig& list, Kiv::UniqueId id, const Acl::Ip6Rule&) {
  list.ip6RuleByIdDel(id);
}
inline void ruleDel(Acl::AclSubConfig& list, Kiv::UniqueId id, const Acl::MacRule&) {
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
inline bool hasForm(const Acl::AclSubConfig& list, const Acl::IpRule&) { return formOf(list.ipRuleById()); }
inline bool hasForm(const Acl::AclSubConfig& list, const Acl::Ip6Rule&) { return formOf(list.ip6RuleById()); }
inline bool hasForm(const Acl::AclSubConfig& list, const Acl::MacRule&) { return formOf(list.macRuleById()); }

/// What delays of tasks are counted on: they are due whenever tasks are to run.
inline Kiv::ManualClock loopClock;

/// A list with its oracle, kept the same.
template <class Rule>
class Subject {
 public:
  using Changed = Change<Rule>;
  using Config = typename Rule::Config;

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
    const Config before(untouched());
    Config rule = before;
    Kiv::UniqueId id = Kiv::UniqueId::unset();
    const bool found = askMatcher(packet, list_, &rule, &id);
    if (found != (expected.rule != nullptr)) return Outcome::wrong;
    if (found)
      return saidBy<Rule>(rule) == *expected.rule && id == expected.id ? Outcome::hit : Outcome::wrong;
    return rule.sharesBody(before) && id == Kiv::UniqueId::unset() ? Outcome::miss : Outcome::wrong;
  }

  /// The first of some packets that finds something else in a burst than the oracle; their number when there
  /// is none.
  size_t firstWrongOf(const std::vector<Fields>& packets) {
    if (!inForce_) return packets.size();
    const BurstAnswers found = askBurst(packets, *rules_, untouched());
    for (size_t i = 0; i < packets.size(); ++i) {
      const auto expected = oracle_.first(packets[i]);
      if (found[i].has_value() != (expected.rule != nullptr)) return i;
      if (found[i] && *found[i] != expected.id) return i;
    }
    return packets.size();
  }

  /// What the two say, for people.
  std::string verdicts(const Fields& packet) {
    const auto expected = inForce_ ? oracle_.first(packet) : typename Oracle<Rule>::Answer{nullptr, {}};
    Config rule(untouched());
    Kiv::UniqueId id = Kiv::UniqueId::unset();
    const bool found = askMatcher(packet, list_, &rule, &id);
    const Rule said = saidBy<Rule>(rule);
    const auto text = [](bool met, Kiv::UniqueId ruleId, const Rule* r) {
      return met ? fmt::format("{} {}", ruleId, describe(*r)) : std::string("no rule");
    };
    return fmt::format("expected {}\nfound    {}", text(expected.rule, expected.id, expected.rule),
                       text(found, id, &said));
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

}  // namespace TestSupport::Differential
