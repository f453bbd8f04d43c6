#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlan.h>
#include <agent/fleet/FleetSight.h>
#include <agent/fleet/RolloutStore.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/Schema.h"
#include "FakeStore.h"

#include <map>
#include <string>
#include <utility>
#include <vector>

namespace {

using Agent::FleetPlan;
using Agent::FleetSight;
using testing::ElementsAre;
using testing::HasSubstr;
using Json = nlohmann::ordered_json;

constexpr const char* filter =
    "ip access-list X\n 10 permit udp any any eq 10\ninterface eth1\n ip access-group X in\n";

/// A fleet of a1 and a2 in `edge`, a2 also in `lab`, and a3, which is gone.
FleetSight fleet() {
  FleetSight sight;
  sight.revision = 50;
  const auto text = [&sight](const std::string& key, const char* value, int64_t modified) {
    sight.texts[key] = {key, value, modified, 1};
  };
  text("/velo/v1/config/edge/base", filter, 10);
  text("/velo/v1/config/lab/more", "ip access-list L\n", 20);
  text("/velo/v1/config/agents/a1/own", "ip access-list O\n", 30);
  text("/velo/v1/config/edge/no/name", "nonsense", 40);
  sight.agents["a1"].groups = {"edge"};
  sight.agents["a2"].groups = {"lab", "edge"};
  sight.agents["a3"].groups = {"lab"};
  const Json ports = Json::array({{{"name", "eth1"}, {"device", "e"}, {"present", true}, {"up", true}}});
  for (const char* name : {"a1", "a2"}) {
    const auto content = sight.contentOf(name);
    const Json said = {{"revision", content.revision}, {"version", content.version}};
    sight.agents[name].state = {{"agent", name},
                                {"groups", sight.agents[name].groups},
                                {"program", "1"},
                                {"wanted", said},
                                {"inForce", said},
                                {"result", "in force"},
                                {"mistakes", Json::array()},
                                {"openings", Json::array()},
                                {"ports", ports},
                                {"since", 1700000000},
                                {"started", 1700000000}};
  }
  return sight;
}

std::string statusOf(const FleetSight& sight, const std::string& agent) {
  return std::string(Agent::memberStatus(sight.agents.at(agent), sight.contentOf(agent).version));
}

TEST(FleetSight, KnowsWhatAnAgentIsToHave) {
  const FleetSight sight = fleet();
  std::vector<std::string> keys;
  for (const auto& text : sight.contentOf("a2").texts) keys.push_back(text.key);
  EXPECT_THAT(keys, ElementsAre("/velo/v1/config/lab/more", "/velo/v1/config/edge/base"));
  EXPECT_EQ(sight.contentOf("a2").revision, 20);
  EXPECT_THAT(sight.agentsOf("edge"), ElementsAre("a1", "a2"));
  EXPECT_THAT(sight.agentsOf("agents/a1"), ElementsAre("a1"));
}

TEST(FleetSight, SaysHowAnAgentStands) {
  const auto changed = [](auto change) {
    FleetSight sight = fleet();
    change(sight);
    const Json document = Agent::fleetStatusDocument(sight);
    EXPECT_EQ(TestSupport::whyNotOf("fleet-status.json", document), "");
    EXPECT_EQ(TestSupport::whyNotOf("fleet-diff.json", Agent::fleetDiffDocument(sight)), "");
    EXPECT_FALSE(Agent::fleetStatusText(document, false, 1700000100).empty());
    return statusOf(sight, "a1");
  };
  EXPECT_EQ(changed([](FleetSight&) {}), "in force");
  EXPECT_EQ(changed([](FleetSight& sight) { sight.agents["a1"].state = nullptr; }), "gone");
  EXPECT_EQ(changed([](FleetSight& sight) { sight.texts.at("/velo/v1/config/edge/base").modified = 45; }),
            "behind");
  EXPECT_EQ(changed([](FleetSight& sight) { sight.texts.erase("/velo/v1/config/edge/base"); }), "behind");
  EXPECT_EQ(changed([](FleetSight& sight) { sight.texts.at("/velo/v1/config/lab/more").modified = 45; }),
            "in force")
      << "of another group";
  const auto refuse = [](FleetSight& sight) {
    sight.texts.at("/velo/v1/config/edge/base").modified = 45;
    auto& state = sight.agents["a1"].state;
    state["wanted"] = {{"revision", 45}, {"version", sight.contentOf("a1").version}};
    state["result"] = "refused";
    state["mistakes"] = {"why"};
  };
  EXPECT_EQ(changed(refuse), "refused");
  EXPECT_EQ(changed([&](FleetSight& sight) {
              refuse(sight);
              sight.texts.at("/velo/v1/config/edge/base").modified = 47;
            }),
            "behind")
      << "it has refused something else";
  EXPECT_EQ(changed([](FleetSight& sight) {
              sight.agents["a1"].state["inForce"] = nullptr;
              sight.agents["a1"].state["result"] = "waiting";
            }),
            "waiting");
  // Whatever others write as a status.
  for (const char* state :
       {"null", "{}", R"({"inForce": 7, "ports": {"a": 1}, "mistakes": "x", "groups": [1]})"}) {
    FleetSight sight = fleet();
    sight.agents["a1"].state = Json::parse(state);
    EXPECT_FALSE(Agent::fleetStatusText(Agent::fleetStatusDocument(sight), false, 0).empty()) << state;
    EXPECT_FALSE(Agent::fleetDiffText(Agent::fleetDiffDocument(sight)).empty()) << state;
  }
}

Json plan(FleetPlan wanted, Agent::Leave leave = {}) {
  Json document = Agent::planDocument(wanted, fleet(), leave);
  const auto why = Agent::whyNoPlan(document);
  EXPECT_FALSE(Agent::planText(document, false).empty());
  document["applied"] = false;
  document["revision"] = nullptr;
  document["refused"] = why ? Json(*why) : Json(nullptr);
  document["rollout"] = nullptr;
  EXPECT_EQ(TestSupport::whyNotOf("fleet-apply.json", document), "");
  return document;
}

TEST(FleetPlan, TellsWhatItDoesToWhom) {
  Json told = plan({"edge", {{"base", filter}, {"new", "ip access-list N\n"}}});
  EXPECT_EQ(told.at("texts"), Json::parse(R"({"added": ["new"], "changed": [], "removed": []})"));
  ASSERT_EQ(told.at("effects").size(), 2u) << "a2 has another group besides";
  EXPECT_EQ(told.at("effects")[0].at("agents"), Json({"a1"}));
  EXPECT_EQ(told.at("effects")[0].at("difference").at("summary"), "+1 list");
  EXPECT_EQ(told.at("refused"), nullptr);

  told = plan({"edge", {{"base", filter}}});
  EXPECT_EQ(told.at("texts"), Json::parse(R"({"added": [], "changed": [], "removed": []})"));

  told = plan({"lab", {}});
  EXPECT_EQ(told.at("texts"), Json::parse(R"({"added": [], "changed": [], "removed": ["more"]})"));
  EXPECT_EQ(told.at("effects")[0].at("agents"), Json({"a2"}));
  EXPECT_EQ(told.at("effects")[1].at("agents"), Json({"a3"})) << "who is gone has it when it comes back";
}

TEST(FleetPlan, TellsWhichPacketsMeetAnotherVerdict) {
  std::string other = filter;
  other.replace(other.find("eq 10"), 5, "eq 20");
  const Json told = plan({"edge", {{"base", other}}, true});
  const Json& packets = told.at("effects")[0].at("packets");
  EXPECT_EQ(packets.at("same"), false);
  EXPECT_THAT(packets.dump(), HasSubstr("\"name\":\"X\""));
  EXPECT_EQ(plan({"edge", {{"base", filter}}, true}).at("effects")[0].at("packets").at("same"), true);
}

TEST(FleetPlan, IsRefusedForMistakesAndOpenings) {
  EXPECT_EQ(plan({"edge", {{"base", "nonsense\n"}}}).at("refused").get<std::string>().substr(0, 9),
            "base:1:1:");
  const FleetPlan opening{"edge", {}};
  EXPECT_THAT(plan(opening).at("refused").get<std::string>(),
              HasSubstr("a1: interface eth1 loses its last ip list"));
  EXPECT_EQ(plan(opening, {.openings = true}).at("refused"), nullptr);
  FleetPlan many{"edge", {{"base", filter}}};
  for (int i = 0; i < 101; ++i) many.texts["n" + std::to_string(i)] = "";
  EXPECT_EQ(plan(many).at("refused"), "more than 100 texts change at once");
}

/// Who refuses what it is to have: by whose texts, as a rollout of `edge` sees it.
TEST(RolloutView, TellsTextsOfOthersFromThoseOfTheRollout) {
  using Stands = Agent::RolloutAgent::Stands;
  const struct {
    const char* sentence;
    const char* changed;
    const char* mistake;
    Stands wanted;
  } cases[] = {
      {"new texts of the group", "/velo/v1/config/edge/base", "/velo/v1/config/edge/base:1:1: no",
       Stands::refused},
      {"new texts of another group", "/velo/v1/config/lab/more", "/velo/v1/config/lab/more:1:1: no",
       Stands::hindered},
      {"it contradicts what was there before", "/velo/v1/config/edge/base",
       "/velo/v1/config/lab/more:1:1: no", Stands::refused},
      {"an opening, whose texts are not told", "/velo/v1/config/lab/more",
       "interface eth1 loses its last list", Stands::refused},
  };
  for (const auto& one : cases) {
    FleetSight sight = fleet();
    sight.texts.at(one.changed).modified = 45;
    auto& state = sight.agents["a2"].state;
    state["wanted"] = {{"revision", 45}, {"version", sight.contentOf("a2").version}};
    state["result"] = "refused";
    state["mistakes"] = {one.mistake};
    EXPECT_EQ(rolloutView(sight, "edge").agents.at("a2").stands, one.wanted) << one.sentence;
  }
}

/// What is changed is changed only where nobody else has written, were it another key.
TEST(FleetPlan, SeesWhatOthersWriteMeanwhile) {
  const std::string place = "/velo/v1/config/edge/";
  const FleetPlan change{"edge", {{"base", "new"}}};
  const struct {
    const char* sentence;
    std::map<std::string, std::string> written;
    bool isCarriedOut;
  } cases[] = {
      {"nothing", {}, true},
      {"the text", {{place + "base", "theirs"}}, false},
      {"its end", {{place + "base", ""}}, false},
      {"a text before it", {{place + "a", "theirs"}}, false},
      {"a text behind it", {{place + "z", "theirs"}}, false},
      {"a text between the folders", {{place + "r", "theirs"}}, false},
      {"no text", {{place + "rollout/driver", "theirs"}, {place + "question/1", "theirs"}}, true},
      {"a text of another group", {{"/velo/v1/config/edgf/base", "theirs"}}, true},
      {"the change by this way", {{Agent::auditKey("edge"), "theirs"}}, false},
  };
  for (const auto& one : cases) {
    TestSupport::FakeStore store;
    store.write({{place + "base", "old"}});
    auto answer = store.read({{.key = "/velo/v1/config/", .isPrefix = true}, {}, {}});
    const FleetSight sight = FleetSight::of(answer);
    Agent::RolloutView view = rolloutView(sight, "edge");
    Agent::Rollout rollout;
    rollout.steps = {{100, true}};
    TestSupport::FakeStore other = store;
    if (!one.written.empty()) other.write(one.written);
    EXPECT_EQ(other.txn(rolloutBegin(change, sight, begunRollout(rollout, view), 0)), one.isCarriedOut)
        << one.sentence;
  }
}

TEST(FleetAudit, IsReadAsItWasWritten) {
  const Agent::FleetAudit audit{"apply", "root@host", "because \"x\"", 12.5, "1 text changed"};
  EXPECT_EQ(Agent::FleetAudit::of(audit.json()).json(), audit.json());
  for (const char* none : {"", "x", "[]", R"({"time": "now", "who": 1})"})
    EXPECT_EQ(Agent::FleetAudit::of(none).who, "");
}

}  // namespace
