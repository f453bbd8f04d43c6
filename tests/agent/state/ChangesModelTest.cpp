#include <agent/change/Apply.h>
#include <agent/config/Writer.h>
#include <agent/control/ControlPlane.h>
#include <agent/state/StateKeeper.h>
#include <agent/state/Successor.h>
#include <gtest/gtest.h>

#include "../../support/Dice.h"
#include "../../support/Sanitizers.h"
#include "../support/CaptureBytes.h"
#include "../support/ModelOf.h"
#include "../support/Run.h"

#include <map>
#include <set>
#include <thread>

// Edits, applies, rollbacks, unconfirmed changes and restarts, in any order, against a model that is as
// simple as can be: rules never lose their ids or counts, and never get those of others.

namespace {

using namespace Agent;
using namespace TestSupport;
using Kiv::UniqueId;

/// What a rule of the one list says, by its number.
using Says = std::map<uint32_t, std::string>;

std::string textOf(const Says& rules) {
  std::string text = "ip access-list A\n";
  for (const auto& [number, says] : rules) text += fmt::format("   {} {}\n", number, says);
  return text + "interface eth1\n   ip access-group A in\n";
}

/// An agent from its start to its end, over the state that the one before left.
class AgentLife {
 public:
  AgentLife(const std::string& statePath, const std::string& configPath) {
    std::string message;
    auto file = StateFile::open(statePath, &message);
    EXPECT_EQ(message, "");
    Past past = file->past();
    ConfigFiles files;
    EXPECT_TRUE(files.read({configPath}, "").empty());
    takeBackUnconfirmed(files, past);
    Successor successor(file->state());
    successor.publish(core_);
    EXPECT_FALSE(putInForce(core_, files.sources(), [&](const std::string& source, const Config::List& list) {
      return successor.idsOf(source, list);
    }));
    EXPECT_FALSE(core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so"));
    successor.countRules(core_);
    turns();
    successor.countImplicitDrops(core_);
    keeper_ = std::make_unique<StateKeeper>(core_, std::move(file));
    ControlOptions options;
    options.configs = {configPath};
    options.past = std::move(past);
    options.journal = keeper_.get();
    options.applied = [this] { keeper_->handleApplied(); };
    plane_ = std::make_unique<ControlPlane>(core_, forwarder_, loop_, std::move(files), std::move(options));
    session_ = std::make_unique<Session>(plane_->operations());
  }
  ~AgentLife() {
    session_.reset();
    keeper_.reset();
    plane_.reset();
  }

  /// The document of an answer, or the object with the error.
  nlohmann::ordered_json ask(const std::string& request) {
    std::string wrong;
    std::optional<nlohmann::ordered_json> result;
    plane_->operations().handle(*Request::read(request, &wrong), *session_, true, [&](Answer answer) {
      std::string line;
      while (answer.document && answer.document->next(line)) {
      }
      result = answer.document ? nlohmann::ordered_json::parse(line) : answer.error;
    });
    while (!result) {
      advance(0.001);
      std::this_thread::yield();
    }
    return *result;
  }
  nlohmann::ordered_json change(const std::string& text, const nlohmann::ordered_json& request) {
    ask(nlohmann::ordered_json({{"do", "text"}, {"name", "edit"}, {"text", text}}).dump());
    return ask(request.dump());
  }
  void advance(double seconds) {
    clock_.advance(Kelp::Duration(seconds));
    wall_.advance(Kelp::Duration(seconds));
    turns(seconds < 0.1 ? 1 : 50);
  }
  void untilFree() {
    while (plane_->configuration().busy()) advance(0.001);
  }

  struct Shown {
    std::string says;
    UniqueId id;
    uint64_t count;
  };
  std::map<uint32_t, Shown> rules() {
    std::map<uint32_t, Shown> found;
    for (const auto* entry :
         core_.inForce().lists()->config(Acl::AclType::ip)->acl("A")->currCfg()->ipRuleById().ordered()) {
      found[entry->value.sequence()] = {entry->value.text().str(), entry->key, counter(entry->key).packets()};
    }
    return found;
  }
  void count(const UniqueId& id, uint64_t times) {
    for (uint64_t i = 0; i < times; ++i) counter(id).count(MemSlab::make<Nimnet::Pkt>());
  }

 private:
  void turns(int count = 50) {
    for (int turn = 0; turn < count; ++turn) loop_.turn(0);
  }
  Velo::Counter::VeloDpAclCounter& counter(const UniqueId& id) {
    const auto in = core_.manager().counterHolder()->collection("DpAclInRuleMatches");
    return *Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(in)->counterCollectionIs(
        {Acl::AclDirection::in, Acl::AclType::ip, "A", id});
  }

  Kiv::ManualClock clock_;
  Kiv::ManualClock wall_{Kelp::Duration(1700000000)};
  EventLoop loop_{clock_, wall_};
  Core core_;
  Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  std::unique_ptr<StateKeeper> keeper_;
  std::unique_ptr<ControlPlane> plane_;
  std::unique_ptr<Session> session_;
};

/// What the rules should be.
class RulesModel {
 public:
  struct Rule {
    std::string says;
    UniqueId id;
    uint64_t count = 0;
  };
  std::map<uint32_t, Rule> rules;
  std::set<UniqueId> used;

  Says says() const {
    Says all;
    for (const auto& [number, rule] : rules) all[number] = rule.says;
    return all;
  }

  /// Other rules are in force. Those that say the same stay, in their order.
  void become(const Says& now) {
    std::map<std::string, std::pair<std::vector<uint32_t>, std::vector<uint32_t>>> numbers;
    for (const auto& [number, rule] : rules) numbers[rule.says].first.push_back(number);
    for (const auto& [number, says] : now) numbers[says].second.push_back(number);
    std::map<uint32_t, Rule> next;
    for (auto& [says, both] : numbers) {
      auto& [old, is] = both;
      if (old.size() != is.size()) {
        for (const uint32_t number : std::vector(is)) {
          if (std::erase(old, number) == 0) continue;
          next[number] = rules.at(number);
          std::erase(is, number);
        }
      }
      for (size_t i = 0; i < is.size(); ++i)
        next[is[i]] = i < old.size() ? rules.at(old[i]) : Rule{says, {}, 0};
    }
    rules = std::move(next);
  }

  /// Compares, and takes the ids of rules that are new.
  void check(AgentLife& agent, const std::string& why) {
    const auto shown = agent.rules();
    ASSERT_EQ(shown.size(), rules.size()) << why;
    for (auto& [number, rule] : rules) {
      ASSERT_TRUE(shown.contains(number)) << why << ": " << number;
      const auto& is = shown.at(number);
      ASSERT_EQ(is.says, rule.says) << why << ": " << number;
      if (rule.id.empty()) {
        ASSERT_TRUE(used.insert(is.id).second) << why << ": a new rule has an id that no rule ever had";
        rule.id = is.id;
      }
      ASSERT_EQ(is.id, rule.id) << why << ": " << number;
      ASSERT_EQ(is.count, rule.count) << why << ": " << number;
    }
  }
};

class ChangesModelTest : public testing::Test {
 protected:
  void start() { agent_ = std::make_unique<AgentLife>(dir_ / "state", dir_ / "a.acl"); }
  void save() {
    file_ = model_.says();
    writeFile(dir_ / "a.acl", textOf(file_));
  }
  std::string someRule() { return fmt::format("permit tcp any any eq {}", 1 + dice_.below(12)); }
  uint32_t someNumber() {
    auto rule = model_.rules.begin();
    std::advance(rule, dice_.below(model_.rules.size()));
    return rule->first;
  }

  void edit() {
    Says next = model_.says();
    std::string command;
    const uint32_t number = next.empty() ? 10 : someNumber();
    // An empty list has no rule to take away or to move.
    switch (next.empty() ? 0 : dice_.below(5)) {
      case 0: {
        const auto added = static_cast<uint32_t>(1 + dice_.below(200));
        next[added] = someRule();
        command = fmt::format("{} {}", added, next[added]);
        break;
      }
      case 1:
        next.erase(number);
        command = fmt::format("no {}", number);
        break;
      case 2: {
        const auto first = static_cast<uint32_t>(1 + dice_.below(30)),
                   step = static_cast<uint32_t>(1 + dice_.below(30));
        Says renumbered;
        for (const auto& [old, says] : next)
          renumbered[first + step * static_cast<uint32_t>(renumbered.size())] = says;
        next = std::move(renumbered);
        command = fmt::format("resequence {} {}", first, step);
        break;
      }
      default:
        return move(number);
    }
    ASSERT_TRUE(agent_->change(command, {{"do", "edit"}, {"list", "A"}}).contains("applied")) << command;
    took(next);
  }
  /// The agent chooses the number; the model only knows the order.
  void move(uint32_t number) {
    if (model_.rules.size() < 2) return;
    const uint32_t to = someNumber();
    const bool before = dice_.once(2);
    const std::string command = fmt::format("move {} {} {}", number, before ? "before" : "after", to);
    const auto done = agent_->change(command, {{"do", "edit"}, {"list", "A"}});
    if (!done.contains("applied")) return;  // onto itself, or no number was free
    std::vector<std::string> wanted, is;
    for (const auto& [at, rule] : model_.rules) {
      if (at == to && before) wanted.push_back(model_.rules.at(number).says);
      if (at != number) wanted.push_back(rule.says);
      if (at == to && !before) wanted.push_back(model_.rules.at(number).says);
    }
    Says next;
    for (const auto& [at, rule] : agent_->rules()) next[at] = rule.says, is.push_back(rule.says);
    ASSERT_EQ(is, wanted) << command;
    took(next);
  }
  void took(const Says& next) {
    if (next == model_.says()) return;
    model_.become(next);
    past_.push_back(next);
  }
  Says someRules() {
    Says next;
    for (uint64_t i = dice_.below(10); i > 0; --i)
      next[static_cast<uint32_t>(1 + dice_.below(100))] = someRule();
    // Some of those that are there, under other numbers.
    for (const auto& [number, rule] : model_.rules) {
      if (dice_.once(2)) next[number + static_cast<uint32_t>(dice_.below(20))] = rule.says;
    }
    return next;
  }
  void apply() {
    const Says next = someRules();
    ASSERT_TRUE(agent_->change(textOf(next), {{"do", "apply"}}).contains("applied"));
    took(next);
  }
  void rollback() {
    const size_t back = dice_.below(std::min<size_t>(past_.size(), 20));
    const Says next = past_[past_.size() - 1 - back];
    const auto history = agent_->ask(R"({"do":"show","what":"history"})").at("changes");
    ASSERT_GT(history.size(), back);
    const auto number = history.at(history.size() - 1 - back).at("number").get<uint64_t>();
    const auto done = agent_->ask(fmt::format(R"({{"do":"rollback","number":{}}})", number));
    ASSERT_TRUE(done.contains("applied")) << done.dump();
    took(next);
  }
  /// Confirmed, taken back by the time, or by a restart in between.
  void applyToBeConfirmed() {
    const Says before = model_.says(), next = someRules();
    if (next == before) return;
    const bool written = dice_.once(2) || next == file_;
    ASSERT_TRUE(agent_->change(textOf(next), {{"do", "apply"}, {"confirm", 60}}).contains("applied"));
    took(next);
    ASSERT_NO_FATAL_FAILURE(model_.check(*agent_, "unconfirmed"));
    switch (dice_.below(3)) {
      case 0:
        ASSERT_TRUE(agent_->ask(R"({"do":"confirm"})").contains("confirmed"));
        return;
      case 1:
        agent_->advance(61);
        agent_->untilFree();
        return took(before);
      default:
        break;
    }
    // The file has the change already, or what it had before.
    const Says file = file_;
    if (written) writeFile(dir_ / "a.acl", textOf(next));
    agent_.reset();
    start();
    took(written ? before : file);
    save();
  }
  void restart() {
    agent_.reset();
    start();
    took(file_);
  }

  Dice dice_{17};
  const TempDir dir_;
  RulesModel model_;
  Says file_;
  std::vector<Says> past_{{}};
  std::unique_ptr<AgentLife> agent_;
};

TEST_F(ChangesModelTest, IdsAndCountsAreNeverLostAndNeverMixedUp) {
  save();
  start();
  size_t kept = 0;
  for (int round = 0; round < casesOf(1000); ++round) {
    const std::string why = fmt::format("round {}", round);
    const auto before = model_.rules;
    switch (dice_.below(20)) {
      case 0:
        restart();
        break;
      case 1:
      case 2:
        rollback();
        break;
      case 3:
        applyToBeConfirmed();
        break;
      case 4:
        save();
        break;
      case 5:
      case 6:
      case 7:
        apply();
        break;
      default:
        edit();
        break;
    }
    if (HasFatalFailure()) FAIL() << why;
    ASSERT_NO_FATAL_FAILURE(model_.check(*agent_, why));
    for (auto& [number, rule] : model_.rules) {
      const uint64_t times = dice_.below(4);
      agent_->count(rule.id, times);
      rule.count += times;
      kept += rule.count > 10;
    }
  }
  EXPECT_GT(kept, static_cast<size_t>(casesOf(200)))
      << "some rules live long enough to be counted over many changes";
}

}  // namespace
