#include <Blip/Ring.h>
#include <Plog/Plog.h>
#include <Zeb/TraceHandle.h>
#include <agent/show/RuleNames.h>
#include <agent/show/Shows.h>

#include <gmock/gmock.h>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

class TraceShowTest : public testing::Test {
 protected:
  void SetUp() override {
    agent_.start(
        "ip access-list A\n 10 permit udp any any eq 53\n"
        "ip access-list B\n 20 deny ip any any\n"
        "interface eth1\n ip access-group A in\ninterface eth2\n ip access-group B in\n");
  }
  void TearDown() override {
    Zeb::TraceHandle::disableAll();
    Blip::ring().clear();
  }
  std::string text(const char* what) {
    return Agent::showOf(what)->text(agent_.show(what), {false, RunningAgent::startTime + 100});
  }
  std::string refusal(const char* member, const char* name) {
    const Json answer = agent_.ask({{"do", "trace"}, {member, name}});
    return answer.contains("error") ? answer.at("error").at("text").get<std::string>() : "";
  }
  std::string idOf(const char* list) {
    return agent_.show("access-lists", list).at("lists").at(0).at("rules").at(0).at("id");
  }

  RunningAgent agent_;
};

TEST_F(TraceShowTest, TheFacilitiesAreListedWithTheirLevels) {
  EXPECT_EQ(refusal("facility", "Velo::Acl/0, DpAclStatusVelo/7"), "");
  const std::string shown = text("trace-facilities");
  for (const char* line :
       {"facility         levels on\n", "Acl              off        fast\n", "Acl::Compiled    none\n",
        "DpAclStatusVelo  0 to 7\n", "Velo::Acl        0\n", "Velo::Pipeline   none\n"})
    EXPECT_THAT(shown, HasSubstr(line)) << shown;
}

TEST_F(TraceShowTest, AnUnknownFacilityIsAMistakeThatNamesTheNearest) {
  struct Row {
    const char* member;
    const char* name;
    const char* wrong;
  };
  for (const Row& row : {
           Row{"facility", "Velo::Acls/0",
               "there is no trace facility \"Velo::Acls\" (did you mean Velo::Acl?)"},
           Row{"facility", "velo::acl/3",
               "there is no trace facility \"velo::acl\" (did you mean Velo::Acl?)"},
           Row{"facility", "Acls/1", "there is no trace facility \"Acls\" (did you mean Velo::Acl?)"},
           Row{"facility", "Velo::Acl/0,Dp/1", "there is no trace facility \"Dp\""},
           Row{"facility", "Quite/1", "there is no trace facility \"Quite\""},
           Row{"fast", "Acls", "there is no facility with fast traces \"Acls\" (did you mean Acl?)"},
           Row{"fast", "Acl", ""},
           Row{"facility", "Velo::Acl/2", ""},
       }) {
    Zeb::TraceHandle::disableAll();
    EXPECT_EQ(refusal(row.member, row.name), row.wrong);
    const auto facilities = Zeb::TraceHandle::facilities();
    const bool on =
        std::any_of(facilities.begin(), facilities.end(), [](const auto& f) { return f.level >= 0; });
    EXPECT_EQ(on, *row.wrong == 0 && std::string(row.member) == "facility")
        << row.name << " changes nothing else";
  }
  agent_.ask({{"do", "trace"}, {"fast", "Acl"}, {"on", false}});
}

TEST_F(TraceShowTest, LinesNameListAndRuleNumberBehindTheId) {
  EXPECT_EQ(refusal("facility", "Velo::Acl/0"), "");
  agent_.receive("eth1", udpTo(53));
  const std::string line = fmt::format("Matched acl A, rule {} on eth1", idOf("A"));
  const Json document = agent_.show("trace");
  ASSERT_EQ(document.at("lines").size(), document.at("rules").size());
  size_t named = 0;
  for (size_t i = 0; i < document.at("lines").size(); ++i) {
    const bool matched = document.at("lines").at(i).get<std::string>().find(line) != std::string::npos;
    EXPECT_EQ(document.at("rules").at(i), matched ? Json("(rule 10 of ip access-list A)") : Json(nullptr));
    named += matched;
  }
  EXPECT_EQ(named, 1u);
  EXPECT_THAT(text("trace"), HasSubstr(line)) << "the line itself is to the letter";
  EXPECT_THAT(text("trace"), HasSubstr(") (rule 10 of ip access-list A)\n"));
}

TEST_F(TraceShowTest, OnlyARuleOfAListThatTheLineNamesIsNamed) {
  const Agent::RuleNames names(agent_.core());
  const std::string ofA = idOf("A"), ofB = idOf("B");
  EXPECT_EQ(names.beside("ip A: " + ofA + " is new, B: " + ofB),
            " (rule 10 of ip access-list A) (rule 20 of ip access-list B)");
  EXPECT_EQ(names.beside("B " + ofA), "") << "a rule of another list";
  EXPECT_EQ(names.beside("A 0x00000000000000ff"), "") << "an id of no rule";
  EXPECT_EQ(names.beside("A 10"), "") << "a number that is no id";
  EXPECT_EQ(names.beside(""), "");
  const auto status = agent_.core().inForce().status()->status(Acl::AclType::ip)->acl("A");
  const std::string implicit = status->implicitRuleId(Acl::ImplicitRuleType::drop)->str();
  EXPECT_EQ(names.beside("A " + implicit), " (the implicit drop of ip access-list A)");
}

TEST_F(TraceShowTest, AStreamOfTracesNamesThemToo) {
  std::string written;
  const Plog::Stream before =
      Plog::streamIs([&written](const Plog::Record& r) { written += std::string(r.text) + "\n"; });
  EXPECT_EQ(refusal("facility", "Velo::Acl/0"), "");
  {
    const Agent::NamedTraces named(agent_.core());
    agent_.receive("eth1", udpTo(53));
  }
  EXPECT_THAT(written, HasSubstr(" on eth1 (rule 10 of ip access-list A)\n"));
  EXPECT_THAT(written, HasSubstr("matched acl has action permit\n"));
  written.clear();
  agent_.receive("eth1", udpTo(53));
  EXPECT_THAT(written, Not(HasSubstr("(rule 10"))) << "the stream is as it was before";
  Plog::streamIs(before);
}

TEST_F(TraceShowTest, CountersNameTheRuleByNumber) {
  agent_.receive("eth1", udpTo(53));
  agent_.receive("eth1", udpTo(54));
  agent_.receive("eth2", udpTo(53));
  std::map<std::string, Json> rules;
  const Json document = agent_.show("counters");
  for (const Json& counter : document.at("counters"))
    rules[counter.at("list").get<std::string>() + " " + counter.at("id").get<std::string>()] =
        counter.at("rule");
  EXPECT_EQ(rules.size(), 3u);
  EXPECT_EQ(rules.at("A " + idOf("A")), 10);
  EXPECT_EQ(rules.at("B " + idOf("B")), 20);
  rules.erase("A " + idOf("A"));
  EXPECT_EQ(rules.begin()->second, "implicit");
  EXPECT_THAT(text("counters"), HasSubstr("direction  type  list      rule  rule id             packets"));
  EXPECT_THAT(text("counters"), HasSubstr("in         ip    B           20  " + idOf("B")));
}

}  // namespace
