#include <Acl/Workshop.h>
#include <agent/change/Changeover.h>

#include "../../support/Sanitizers.h"
#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

#include <map>
#include <random>
#include <set>

namespace {

using namespace TestSupport;
using Acl::AclType;
using ListKey = std::pair<AclType, std::string>;

/// Lists of rules that each meet one number: a UDP port, or a VLAN. By it, the action: true permits.
using Lists = std::map<ListKey, std::map<uint32_t, bool>>;
struct Plan {
  Lists lists;
  std::map<AclType, std::string> bound;  ///< on receipt at eth1
  std::map<ListKey, uint32_t> shifts{};  ///< of the numbers that its rules have

  /// The number that a rule of a list has in its text.
  uint32_t sequence(const ListKey& key, uint32_t number) const {
    const auto shift = shifts.find(key);
    return 10 * number + (lists.contains(key) && shift != shifts.end() ? shift->second : 0);
  }
};

std::string ruleText(AclType type, uint32_t number, bool permits) {
  const char* action = permits ? "permit" : "deny";
  return type == AclType::mac ? fmt::format("{} vlan {} any any", action, number)
                              : fmt::format("{} udp any any eq {}", action, number);
}

std::string textOf(const Plan& plan) {
  std::string text;
  for (const auto& [key, rules] : plan.lists) {
    text += fmt::format("{} access-list {}\n", key.first, key.second);
    for (const auto& [number, permits] : rules) {
      text += fmt::format(" {} {}\n", plan.sequence(key, number), ruleText(key.first, number, permits));
    }
  }
  text += "interface eth1\n";
  for (const auto& [type, name] : plan.bound) text += fmt::format(" {} access-group {} in\n", type, name);
  return text;
}

/// What the first rule of some frames is: one letter a frame.
using Verdicts = std::string;

/// A tick with every look, so that slices end after so many looks, whatever the computer does meanwhile.
class TickingClock final : public Kiv::Clock {
 public:
  Kelp::Duration now() const override { return now_ = now_ + Kelp::Duration(0.0001); }

 private:
  mutable Kelp::Duration now_;
};

class ChangeoverTest : public testing::TestWithParam<bool> {
 protected:
  ChangeoverTest() {
    Acl::Workshop::singleton().threadIs(GetParam());
    scheduler_->sliceClockIs(slices_);
  }
  ~ChangeoverTest() override {
    agent_.reset();
    scheduler_->sliceClockIs(Kiv::steadyClock());
    Acl::Workshop::singleton().threadIs(false);
  }

  /// By the list that would decide: each frame goes past a MAC list and an IP list.
  Verdicts verdicts() {
    Verdicts all;
    for (const uint16_t number : {1, 2, 3, 50, 199, 250, 400, 401}) {
      for (const Bytes& bytes :
           {frame().eth().vlan(number).ip4("192.0.2.1", "198.51.100.7").udp(1, number).bytes(),
            frame().eth().vlan(number).ip6("2001:db8::1", "2001:db8::2").udp(1, number).bytes()})
        all += agent_->receive("eth1", bytes).passed() ? 'p' : 'd';
    }
    return all;
  }

  /// The rules that packets are judged by, with their ids, by list and number.
  using Tree = std::map<ListKey, std::map<uint32_t, std::pair<Kiv::UniqueId, std::string>>>;
  Tree tree() {
    Tree all;
    const auto merged = agent_->core().inForce().lists();
    for (auto type = merged->config().begin(); type; type.next()) {
      for (auto list = type.value()->acl().begin(); list; list.next()) {
        auto& rules = all[{type.key(), list.key().str()}];
        const auto take = [&rules](const auto& map) {
          for (const auto* entry : map.ordered()) {
            rules[entry->value.sequence()] = {entry->key, entry->value.text().str()};
          }
        };
        const auto& current = *list.value()->currCfg();
        take(current.ipRuleById());
        take(current.ip6RuleById());
        take(current.macRuleById());
        EXPECT_FALSE(list.value()->standsIn()) << list.key().str() << " is judged by itself in the end";
        EXPECT_TRUE(current.compiledReady(type.key()))
            << list.key().str() << " is judged by its compiled form";
      }
    }
    return all;
  }

  /// Lists that packets ask are compiled, those apart that are small enough to be written in a turn.
  void checkForms(const std::string& why) {
    const auto merged = agent_->core().inForce().lists();
    for (const AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
      const auto bindings = agent_->core().inForce().bindings()->config(type);
      const auto lists = merged->config(type);
      if (!bindings || !lists) continue;
      for (auto intf = bindings->intf(Acl::AclDirection::in)->intf().begin(); intf; intf.next()) {
        const auto list = lists->acl(intf.value());
        const auto* rules = list ? list->judging() : nullptr;
        if (!rules ||
            rules->ipRuleById().size() + rules->ip6RuleById().size() + rules->macRuleById().size() <=
                Agent::Changeover::writesAtOnce)
          continue;
        EXPECT_TRUE(rules->compiledReady(type))
            << why << ": " << Acl::stringValue(type) << " " << intf.value().str();
      }
    }
  }

  /// Notes the ids of implicit drops, which packets count as well.
  void noteImplicitIds() {
    const auto status = agent_->core().inForce().status();
    for (auto type = status->status().begin(); type; type.next()) {
      for (auto list = type.value()->acl().begin(); list; list.next()) {
        if (const auto* id = list.value()->implicitRuleId(Acl::ImplicitRuleType::drop)) shown_.insert(*id);
      }
    }
  }
  /// What packets were counted under while a list was changed is what the list has then.
  void checkCounters(const Tree& tree, const std::string& why) {
    for (const auto& [key, rules] : tree) {
      for (const auto& [sequence, rule] : rules) shown_.insert(rule.first);
    }
    for (const auto& collection : agent_->core().inForce().counters()) {
      for (auto at = collection->counterCollection().begin(); at; at.next())
        ASSERT_TRUE(shown_.contains(at.key().ruleId)) << why << ": counted under an id that no rule had";
    }
  }

  /// How often any rule of the merged lists was written.
  uint64_t writes() {
    uint64_t sum = 0;
    const auto merged = agent_->core().inForce().lists();
    for (auto type = merged->config().begin(); type; type.next()) {
      for (auto list = type.value()->acl().begin(); list; list.next()) {
        const auto rules = list.value()->currCfg();
        if (!rules) continue;
        sum +=
            rules->ipRuleById().version() + rules->ip6RuleById().version() + rules->macRuleById().version();
      }
    }
    return sum;
  }

  /// Applies a text and looks at what packets meet after every turn: all of them the old verdicts, then all
  /// of them the new ones. Returns how many rules were written in the longest turn.
  uint64_t change(const std::string& text, const std::string& why) {
    const Verdicts before = verdicts();
    std::vector<Verdicts> met{before};
    std::optional<Json> answer;
    agent_->ask({{"do", "text"}, {"name", "t"}, {"text", text}});
    std::string wrong;
    agent_->plane().operations().handle(*Agent::Request::read(R"({"do":"apply","allowOpen":true})", &wrong),
                                        agent_->session(), true, [&](Agent::Answer given) {
                                          std::string line;
                                          while (given.document && given.document->next(line)) {
                                          }
                                          answer = Json::parse(line);
                                        });
    uint64_t longest = 0, last = writes();
    agent_->turnsUntil([&] {
      const uint64_t now = writes();
      longest = std::max(longest, now > last ? now - last : 0);
      last = now;
      if (const Verdicts these = verdicts(); these != met.back()) met.push_back(these);
      checkForms(why);
      noteImplicitIds();
      agent_->pass(0.001);
      return answer.has_value();
    });
    EXPECT_EQ(answer.value_or(Json()).value("applied", false), true) << why;
    if (const Verdicts after = verdicts(); after != met.back()) met.push_back(after);
    EXPECT_LE(met.size(), 2u) << why << ": packets met more than the old and the new configuration";
    settle();
    return longest;
  }
  /// A look at the directory may follow, and forms that no packet has to wait for.
  void settle() {
    agent_->turnsUntil([&] {
      agent_->pass(0.001);
      return !agent_->plane().configuration().busy() && Acl::Workshop::singleton().idle();
    });
  }

  /// What the command line says and, of lists that it does not have, the file; rules that were there before
  /// from the same source have kept their ids.
  void check(const Plan& before, const Tree& tree, const Plan& now, const Lists& file,
             const std::string& why) {
    Lists wanted = now.lists;
    wanted.insert(file.begin(), file.end());
    const Tree is = this->tree();
    ASSERT_EQ(is.size(), wanted.size()) << why;
    std::set<Kiv::UniqueId> used;
    for (const auto& [key, rules] : tree) {
      for (const auto& [sequence, rule] : rules) used.insert(rule.first);
    }
    for (const auto& [key, rules] : wanted) {
      const auto& list = is.at(key);
      ASSERT_EQ(list.size(), rules.size()) << why << ", list " << key.second;
      const bool sameSource = before.lists.contains(key) == now.lists.contains(key);
      for (const auto& [number, permits] : rules) {
        const auto& [id, text] = list.at(now.sequence(key, number));
        ASSERT_EQ(text, ruleText(key.first, number, permits)) << why;
        const uint32_t was = before.sequence(key, number);
        const bool known = sameSource && tree.contains(key) && tree.at(key).contains(was);
        if (known && tree.at(key).at(was).second == text) {
          ASSERT_EQ(id, tree.at(key).at(was).first) << why << ": a rule that stays keeps its id";
        } else if (now.lists.contains(key)) {
          ASSERT_FALSE(used.contains(id)) << why << ": a rule that comes has an id of its own";
        }
      }
    }
    EXPECT_FALSE(agent_->core().inForce().unpublished()) << why;
    noteImplicitIds();
    checkCounters(is, why);
  }

  const Kelp::Ptr<Kiv::TaskScheduler> scheduler_ = Kiv::TaskSchedulerRoot::findOrCreateScheduler();
  const TickingClock slices_;
  std::set<Kiv::UniqueId> shown_;
  std::unique_ptr<RunningAgent> agent_ = std::make_unique<RunningAgent>();
};

/// Up to four hundred rules, few of them or all different from those before.
Plan somePlan(std::mt19937& random, const Plan& before) {
  const auto chance = [&random](unsigned one, unsigned of) { return random() % of < one; };
  Plan plan = before;
  for (const AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
    for (const char* name : {"A", "B"}) {
      const ListKey key(type, name);
      if (chance(1, 4)) {
        plan.lists.erase(key);
      } else if (chance(1, 3)) {
        auto& rules = plan.lists[key];
        rules.clear();
        const uint32_t size = chance(1, 3) ? random() % 8 : random() % 400;
        for (uint32_t number = 1; number <= size; ++number) rules[number] = chance(1, 2);
      } else if (const auto known = plan.lists.find(key); known != plan.lists.end()) {
        for (auto& [number, permits] : known->second) permits ^= chance(1, chance(1, 2) ? 3 : 100);
      }
      if (chance(1, 3)) plan.shifts[key] = static_cast<uint32_t>(5 * (random() % 8));
    }
    if (chance(1, 3)) {
      plan.bound.erase(type);
      if (chance(4, 5)) plan.bound[type] = chance(1, 2) ? "A" : "B";
    }
  }
  return plan;
}

std::string textOf(const Lists& lists) { return textOf(Plan{lists, {}, {}}); }

TEST_P(ChangeoverTest, PacketsMeetTheOldOrTheNewConfigurationAndRulesThatStayKeepTheirIds) {
  std::mt19937 random(7);
  Lists file;
  for (uint32_t number = 1; number < 300; ++number) {
    file[{AclType::ip, "A"}][number] = number % 2;
    file[{AclType::mac, "B"}][number] = number % 3;
  }
  const std::map<std::string, std::string> files = {{"file.acl", textOf(file)}};
  Plan plan;
  agent_->start(textOf(plan), &files);
  settle();
  for (int round = 0; round < casesOf(40); ++round) {
    const Plan next = somePlan(random, plan);
    const Tree tree = this->tree();
    const std::string why = fmt::format("round {}", round);
    change(textOf(next), why);
    ASSERT_NO_FATAL_FAILURE(check(plan, tree, next, file, why));
    if (HasFailure()) return;
    plan = next;
  }
}

TEST_P(ChangeoverTest, NoTurnWritesMuchHoweverLargeTheChangeIs) {
  struct Row {
    const char* why;
    std::function<void(Plan&)> change;
  };
  const ListKey a(AclType::ip, "A"), b(AclType::ip, "B");
  const auto fill = [](Plan& plan, const ListKey& key, bool permits) {
    for (uint32_t number = 1; number <= (sanitizers ? 1000u : 3000u); ++number)
      plan.lists[key][number] = permits != (number % 2 == 0);
  };
  const Row rows[] = {
      {"a list comes and is bound", [&](Plan& plan) { fill(plan, a, true), plan.bound[AclType::ip] = "A"; }},
      {"all its rules get the numbers of the next ones", [&](Plan& plan) { plan.shifts[a] = 10; }},
      {"and their old ones again", [&](Plan& plan) { plan.shifts[a] = 0; }},
      {"all its rules change", [&](Plan& plan) { fill(plan, a, false); }},
      {"another comes that is bound nowhere", [&](Plan& plan) { fill(plan, b, true); }},
      {"it takes the place of the first", [&](Plan& plan) { plan.bound[AclType::ip] = "B"; }},
      {"the first goes", [&](Plan& plan) { plan.lists.erase(a); }},
      {"the second goes and stays bound", [&](Plan& plan) { plan.lists.erase(b); }},
      {"it comes again where it is bound", [&](Plan& plan) { fill(plan, b, true); }},
      {"it goes with its binding", [&](Plan& plan) { plan = {}; }},
  };
  Plan plan;
  agent_->start(textOf(plan));
  for (const Row& row : rows) {
    Plan next = plan;
    row.change(next);
    const Tree tree = this->tree();
    EXPECT_LE(change(textOf(next), row.why), 2 * Agent::Changeover::writesAtOnce) << row.why;
    ASSERT_NO_FATAL_FAILURE(check(plan, tree, next, {}, row.why));
    plan = next;
  }
}

INSTANTIATE_TEST_SUITE_P(Compiled, ChangeoverTest, testing::Bool(),
                         [](const auto& made) { return made.param ? "OnAThread" : "InTheTurn"; });

}  // namespace
