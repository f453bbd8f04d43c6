#include "../Zeb/TraceCapture.h"
#include "Fixture.h"

#include <Zeb/TraceHandle.h>

#include <fstream>
#include <map>
#include <regex>

/// Whole traces of small configurations, levels 6 to 9, each line in its place. A file of golden/ holds one
/// scenario: "== what happens", then the lines that it traces, each "LEVEL TEXT". Rule ids read as r1, r2,
/// generated ids as implicit1, implicit2 in the order of their making, addresses of counters as COUNTER. A
/// failing test writes what it saw next to the test program, for a look with diff.
namespace SmTest {
namespace {

class Golden : public testing::Test, protected World {
 protected:
  Golden() {
    // Every line counts here, so a test itself says when a slice is used up, whatever the environment asks
    // for.
    Kiv::alwaysYieldIs(false);
    Zeb::TraceHandle::disableAll();
    Zeb::TraceHandle::enable("DpAclStatusVelo/9");
  }
  ~Golden() override { Zeb::TraceHandle::disableAll(); }

  /// Runs one step; what it traces is a section of the golden file.
  void step(const std::string& what, const std::function<void()>& run) {
    TraceCapture capture;
    run();
    actual_.push_back("== " + what);
    for (const TraceLine& line : capture.lines()) {
      EXPECT_EQ(line.function, "VeloDpAclStatusSm");
      EXPECT_EQ(line.file, "VeloDpAclStatus");
      EXPECT_EQ(line.facility, "DpAclStatusVelo");
      actual_.push_back(std::to_string(line.level) + " " + readable(line.text));
    }
  }
  /// Runs without looking.
  void unseen(const std::function<void()>& run) {
    TraceCapture capture;
    run();
    for (const TraceLine& line : capture.lines()) readable(line.text);
  }

  void expectGolden(const std::string& name) const {
    std::ifstream file(VELO_SOURCE_DIR "/tests/VeloDpAclStatusSm/golden/" + name + ".txt");
    EXPECT_TRUE(file) << name;
    std::vector<std::string> expected;
    for (std::string line; std::getline(file, line);) {
      if (!line.starts_with('#')) expected.push_back(line);
    }
    std::string section;
    bool same = actual_.size() == expected.size();
    for (size_t i = 0; i < std::max(actual_.size(), expected.size()); ++i) {
      const std::string is = i < actual_.size() ? actual_[i] : "(end)";
      const std::string want = i < expected.size() ? expected[i] : "(end)";
      if (is.starts_with("== ")) section = is;
      if (is == want) continue;
      same = false;
      ADD_FAILURE() << name << ".txt, line " << i + 1 << " without comments, in \"" << section
                    << "\"\n  is:   " << is << "\n  want: " << want;
      break;
    }
    if (same) return;
    std::ofstream out(name + ".actual.txt");
    for (const std::string& line : actual_) out << line << "\n";
  }

 private:
  std::string readable(const std::string& text) {
    static const std::regex id("0x([0-9a-f]{16})"), address("shadowVal=0x[0-9a-f]+");
    std::string out;
    auto from = text.cbegin();
    for (std::smatch m; std::regex_search(from, text.cend(), m, id); from = m.suffix().first) {
      out.append(from, m.prefix().second);
      const uint64_t value = std::stoull(m[1], nullptr, 16);
      if (value >> 63) {
        out +=
            "implicit" + std::to_string(generated_.try_emplace(value, generated_.size() + 1).first->second);
      } else {
        out += "r" + std::to_string(value);
      }
    }
    out.append(from, text.cend());
    return std::regex_replace(out, address, "shadowVal=COUNTER");
  }

  std::map<uint64_t, size_t> generated_;
  std::vector<std::string> actual_;
};

TEST_F(Golden, StartUpWithOneListOneRuleOneBindingAndThenItsPolls) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  step("the machine is made: both passes", [&] { start(); });
  step("the first copies, a task each", [&] { settle(); });
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 3, 99);
  count(ipOut,
        {AclDirection::out, AclType::ip, "A",
         *statusOf(AclType::ip, "A")->implicitRuleId(Acl::ImplicitRuleType::drop)},
        2, 98);
  count(macOut, {AclDirection::out, AclType::mac, "gone", r(7)}, 1, 97);
  step("a second later: a rule's counter, an implicit rule's, one without a list", [&] { pass(1); });
  step("less than a second later nothing runs", [&] { pass(0.5); });
  expectGolden("startup");
}

TEST_F(Golden, ANewMachineOverNothing) {
  step("the machine is made", [&] { start(); });
  step("the first copies", [&] { settle(); });
  step("an output that is ready", [&] { sm->handleAclStatusStatusAclOutputInputReady(); });
  expectGolden("empty");
}

TEST_F(Golden, ChangesOneAtATime) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  unseen([&] {
    start();
    settle();
  });
  step("a list comes, of a new type", [&] { list(AclType::mac, "M"); });
  step("and its rules", [&] {
    const auto sub = MemSlab::make<Acl::AclSubConfig>();
    sub->macRuleByIdIs(r(5), macRule());
    list(AclType::mac, "M")->currCfgIs(sub);
  });
  step("a rule is added", [&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(2), ipRule(20)); });
  step("a rule is replaced under its id", [&] { rules(AclType::ip, "A")->ipRuleByIdIs(r(2), ipRule(30)); });
  step("a rule is removed", [&] { rules(AclType::ip, "A")->ipRuleByIdDel(r(2)); });
  step("the rules are replaced by others", [&] {
    const auto sub = MemSlab::make<Acl::AclSubConfig>();
    sub->ipRuleByIdIs(r(3), ipRule());
    list(AclType::ip, "A")->currCfgIs(sub);
  });
  step("a binding gets another list", [&] { bind(AclType::ip, AclDirection::in, "eth1", "B"); });
  step("a binding moves to another interface", [&] {
    unbind(AclType::ip, AclDirection::in, "eth1");
    bind(AclType::ip, AclDirection::in, "eth2", "B");
  });
  step("a list goes", [&] { delList(AclType::ip, "A"); });
  step("the bindings of a type go", [&] { intfConfig->configDel(AclType::ip); });
  step("a type goes with a list and its rule", [&] { config->configDel(AclType::mac); });
  expectGolden("changes");
}

TEST_F(Golden, AnEarlierRunsStatusIsReconciled) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  const auto old = status->statusIs(AclType::ip);
  old->aclIs("A")->ruleStatusIs(r(8), {});
  old->acl("A")->ruleStatusIs(r(9), {});
  old->aclIs("Z")->implicitRuleIdIs(Acl::ImplicitRuleType::drop, r(10));
  old->acl("A")->implicitRuleIdIs(Acl::ImplicitRuleType::none, r(10));
  old->acl("A")->implicitRuleStatusIs(Acl::ImplicitRuleType::none, {});
  old->intfIs(AclDirection::out)->intfIs(Nimnet::IntfId("eth9"), "Z");
  status->statusIs(AclType::mac)->aclIs("M");
  step("the machine is made", [&] { start(); });
  step("the rest, in tasks", [&] { settle(); });
  expectGolden("reconciliation");
}

TEST_F(Golden, SynchronousAllOfItInsideTheConstruction) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 3, 99);
  status->statusIs(AclType::ip)->aclIs("Z");
  step("the machine is made", [&] { start(Rix::SmControl::synchronous); });
  EXPECT_EQ(scheduler->runTurn(), 0u);
  expectGolden("synchronous");
}

TEST_F(Golden, AYieldAtEveryPlaceThatCanYield) {
  for (uint32_t i = 1; i <= 3; ++i) rules(AclType::ip, "A")->ipRuleByIdIs(r(i), ipRule(10 * i));
  list(AclType::mac, "M");
  for (const char* intf : {"eth1", "eth2", "eth3"}) bind(AclType::ip, AclDirection::in, intf, "A");
  bind(AclType::mac, AclDirection::out, "eth1", "M");
  const auto old = status->statusIs(AclType::ip);
  old->aclIs("A")->ruleStatusIs(r(8), {});
  old->acl("A")->ruleStatusIs(r(9), {});
  old->aclIs("Z");
  old->acl("A")->implicitRuleIdIs(Acl::ImplicitRuleType::none, r(10));
  old->acl("A")->implicitRuleStatusIs(Acl::ImplicitRuleType::none, {});
  old->intfIs(AclDirection::out)->intfIs(Nimnet::IntfId("eth8"), "Z");
  old->intf(AclDirection::out)->intfIs(Nimnet::IntfId("eth9"), "Z");
  for (const auto& counters : {ipOut, ip6Out, in, macOut}) {
    count(counters, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 99);
    count(counters, {AclDirection::in, AclType::ip, "A", r(2)}, 1, 99);
  }
  Kiv::alwaysYieldIs(true);
  step("the machine is made: the first pass begins", [&] { start(); });
  for (int run = 1; !sm->idle() && run < 200; ++run) {
    if (*scheduler->timeUntilDue() > Kelp::Duration()) clock.advance(Kelp::Duration(1));
    step("run " + std::to_string(run), [&] { scheduler->runOne(); });
  }
  EXPECT_TRUE(sm->idle());
  expectGolden("yields");
}

TEST_F(Golden, ListsOfAllKindsFromTheStart) {
  for (uint32_t i = 1; i <= 2; ++i) {
    rules(AclType::ip, "A")->ipRuleByIdIs(r(i), ipRule(10 * i));
    rules(AclType::ipv6, "B")->ip6RuleByIdIs(r(10 + i), ip6Rule(10 * i));
    rules(AclType::mac, "C")->macRuleByIdIs(r(20 + i), macRule(10 * i));
  }
  list(AclType::ipv6, "E");
  bind(AclType::ipv6, AclDirection::out, "eth1", "B");
  bind(AclType::mac, AclDirection::in, "eth2", "C");
  count(ip6Out, {AclDirection::out, AclType::ipv6, "B", r(11)}, 3, 97);
  count(macOut, {AclDirection::out, AclType::mac, "C", r(21)}, 4, 98);
  step("the machine is made: both passes", [&] { start(); });
  step("the first copies", [&] { settle(); });
  step("an IPv6 rule goes", [&] { rules(AclType::ipv6, "B")->ip6RuleByIdDel(r(11)); });
  step("a MAC rule comes", [&] { rules(AclType::mac, "C")->macRuleByIdIs(r(23), macRule(30)); });
  step("the IPv6 rules go", [&] { list(AclType::ipv6, "B")->currCfgDel(); });
  step("the MAC list goes", [&] { delList(AclType::mac, "C"); });
  step("a second later", [&] { pass(1); });
  step("doDeleteAll", [&] { sm->doDeleteAll(); });
  expectGolden("kinds");
}

TEST_F(Golden, TheRestartFlagEndsAPassOfAPoll) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  rules(AclType::ip, "A")->ipRuleByIdIs(r(2), ipRule(20));
  count(in, {AclDirection::in, AclType::ip, "A", r(1)}, 1, 99);
  count(in, {AclDirection::in, AclType::ip, "A", r(2)}, 2, 99);
  unseen([&] {
    start();
    settle();
  });
  EXPECT_FALSE(sm->copyInCountersDuplicateSeen());
  EXPECT_TRUE(Zeb::attributeValueIs(*sm, "copyInCountersDuplicateSeen", true));
  EXPECT_TRUE(Zeb::attributeValueIs(*sm, "copyMacOutCountersDuplicateSeen", true));
  step("set before a pass without bookmark: it starts over; a pass over nothing leaves the flag",
       [&] { pass(1); });
  EXPECT_FALSE(sm->copyInCountersDuplicateSeen());
  EXPECT_TRUE(sm->copyMacOutCountersDuplicateSeen());
  unseen([&] {
    Kiv::alwaysYieldIs(true);
    clock.advance(Kelp::Duration(1));
    scheduler->runTurn();
    Kiv::alwaysYieldIs(false);
  });
  EXPECT_TRUE(Zeb::attributeValueIs(*sm, "copyInCountersDuplicateSeen", true));
  step("set while a bookmark is kept: it starts over from there", [&] { pass(0); });
  expectGolden("restart_flag");
}

TEST_F(Golden, EverythingIsWithdrawn) {
  rules(AclType::ip, "A")->ipRuleByIdIs(r(1), ipRule());
  bind(AclType::ip, AclDirection::in, "eth1", "A");
  unseen([&] {
    start();
    settle();
  });
  step("doDeleteAll", [&] { sm->doDeleteAll(); });
  EXPECT_TRUE(status->status().empty());
  step("nothing after it", [&] {
    rules(AclType::ip, "A")->ipRuleByIdIs(r(2), ipRule());
    pass(5);
    sm->handleCopyInCountersCodef();
    sm->handleAclStatusStatusAclOutputInputReady();
    sm = nullptr;
  });
  expectGolden("withdrawn");
}

}  // namespace
}  // namespace SmTest
