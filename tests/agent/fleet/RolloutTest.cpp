#include <agent/fleet/FleetDrops.h>
#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetPlace.h>
#include <agent/fleet/Rollout.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace {

using Agent::EtcdEntry;
using Agent::FleetDrops;
using Agent::FleetPlace;
using Agent::Rollout;
using Agent::RolloutAgent;
using Agent::RolloutView;
using Stands = Agent::RolloutAgent::Stands;

RolloutView tenAgents() {
  RolloutView view;
  for (int i = 0; i < 10; ++i) view.agents[fmt::format("a{}", i)] = {true, Stands::inForce, 4.0, 4.0};
  view.texts = "t";
  return view;
}

Rollout begun(const char* steps, const RolloutView& view) {
  Rollout rollout;
  std::string wrong;
  rollout.id = "x";
  rollout.steps = *Agent::readSteps(steps, &wrong);
  rollout.dropsFactor = 2;
  return begunRollout(rollout, view);
}

std::vector<std::string> turnOf(const Rollout& rollout, const RolloutView& view) {
  std::vector<std::string> names;
  for (const auto& [name, agent] : view.agents) {
    if (rollout.isTurn(name)) names.push_back(name);
  }
  return names;
}

TEST(Rollout, ReadsStepsAndConditions) {
  const std::pair<const char*, const char*> steps[] = {{"1,10%,50%,100%", "1 10% 50% 100%"},
                                                       {"1", "1 100%"},
                                                       {"100%", "100%"},
                                                       {"", ""},
                                                       {"0", ""},
                                                       {"0%", ""},
                                                       {"101%", ""},
                                                       {"1,", ""},
                                                       {"-1", ""},
                                                       {"1 ", ""},
                                                       {"%", ""},
                                                       {"99999999999999999999", ""}};
  for (const auto& [text, wanted] : steps) {
    std::string wrong;
    std::vector<std::string> read;
    if (const auto all = Agent::readSteps(text, &wrong)) {
      for (const auto& step : *all) read.push_back(step.text());
    }
    EXPECT_EQ(fmt::format("{}", fmt::join(read, " ")), wanted) << text;
    EXPECT_EQ(wrong.empty(), !read.empty()) << text;
  }
  EXPECT_EQ(Agent::readStopIf("drops rate > 2x"), 2.0);
  EXPECT_EQ(Agent::readStopIf("drops rate > 1.5x"), 1.5);
  for (const char* none : {"", "drops rate > x", "drops rate > 2", "drops rate > 0x", "drops rate > -1x",
                           "drops rate > nanx", "drops > 2x"})
    EXPECT_EQ(Agent::readStopIf(none), std::nullopt) << none;
}

TEST(Rollout, AStepIsANumberOfAgentsOrAPartOfThem) {
  const auto count = [](const char* step, uint64_t agents) {
    return Agent::RolloutStep::from(step)->of(agents);
  };
  EXPECT_EQ(count("3", 10), 3u);
  EXPECT_EQ(count("10%", 10), 1u);
  EXPECT_EQ(count("10%", 11), 2u) << "up to the next";
  EXPECT_EQ(count("1%", 3), 1u) << "one at least";
  EXPECT_EQ(count("100%", 7), 7u);
}

TEST(Rollout, WhoIsGoneIsNoCanary) {
  RolloutView view = tenAgents();
  const std::string first = turnOf(begun("1", view), view).front();
  view.agents.at(first).isThere = false;
  const auto turn = turnOf(begun("1", view), view);
  EXPECT_EQ(turn.size(), 2u) << "one that tries the texts, and who is gone, for when it comes back";
  EXPECT_NE(std::find(turn.begin(), turn.end(), first), turn.end());
}

TEST(Rollout, ItsKeySaysAllOfIt) {
  const RolloutView view = tenAgents();
  Rollout rollout = begun("1,50%", view);
  rollout.who = "root@host";
  rollout.why = "a \"reason\"";
  rollout.gone = std::vector<std::string>{"a1", "a2"};
  const auto read = Rollout::of(rollout.json());
  ASSERT_TRUE(read);
  EXPECT_EQ(read->json(), rollout.json());
  EXPECT_EQ(turnOf(*read, view), turnOf(rollout, view));
  for (const char* none : {"", "null", "{}", "[]", "nonsense", R"({"id": 7})"})
    EXPECT_FALSE(Rollout::of(none)) << none;
  // With a member of another kind or out of its bounds it is none.
  for (const auto& [is, other] : {std::pair{R"("phase":"running")", R"("phase":"walking")"},
                                  {R"("step":0)", R"("step":3)"},
                                  {R"("step":0)", R"("step":-1)"},
                                  {R"("steps":["1","50%","100%"])", R"("steps":[])"},
                                  {R"("met":false)", R"("met":0)"}}) {
    std::string text = rollout.json();
    const size_t at = text.find(is);
    ASSERT_NE(at, std::string::npos) << is;
    EXPECT_FALSE(Rollout::of(text.replace(at, std::string(is).size(), other))) << other;
  }
}

TEST(Rollout, GoesFromStepToStepWhenAllHaveItAndTheWaitIsOver) {
  const RolloutView view = tenAgents();
  Rollout rollout = begun("1,10%,50%", view);
  std::vector<size_t> turns;
  for (int moves = 0; rollout.isActive() && moves < 20; ++moves) {
    turns.push_back(turnOf(rollout, view).size());
    auto after = nextRollout(rollout, view, 0);
    ASSERT_TRUE(after && after->met) << "all have it at once";
    EXPECT_EQ(nextRollout(*after, view, 59.9), std::nullopt);
    rollout = *nextRollout(*after, view, 60);
  }
  EXPECT_THAT(turns, testing::ElementsAre(1, 5, 10)) << "a step that is nobody's turn is left out";
  EXPECT_EQ(rollout.phase, Rollout::Phase::done);
  EXPECT_THAT(turnOf(rollout, view), testing::IsEmpty()) << "the new texts are the only ones";
}

/// What becomes of a rollout whose second step is under way, with five of ten agents.
TEST(Rollout, GoesBackWhenItDoesHarm) {
  const auto one = [](RolloutView& view, const Rollout& rollout) -> RolloutAgent& {
    return view.agents.at(turnOf(rollout, view).front());
  };
  const auto other = [](RolloutView& view, const Rollout& rollout) -> RolloutAgent& {
    return std::find_if(view.agents.begin(), view.agents.end(),
                        [&](const auto& agent) { return !rollout.isTurn(agent.first); })
        ->second;
  };
  using Change = std::function<void(RolloutView&, Rollout&)>;
  const struct {
    const char* sentence;
    Change change;
    double seconds;
    const char* wanted;
  } cases[] = {
      {"nothing is wrong", [](RolloutView&, Rollout&) {}, 0, ""},
      {"one has refused it", [&](RolloutView& v, Rollout& r) { one(v, r).stands = Stands::refused; }, 0,
       "has refused it"},
      {"one has refused it, which is allowed",
       [&](RolloutView& v, Rollout& r) { one(v, r).stands = Stands::refused, r.maxFailures = 1; }, 0, ""},
      {"one that has no turn has refused something",
       [&](RolloutView& v, Rollout& r) { other(v, r).stands = Stands::refused; }, 0, ""},
      {"one is gone", [&](RolloutView& v, Rollout& r) { one(v, r).isThere = false; }, 0, "is gone"},
      {"one is gone that was so before",
       [&](RolloutView& v, Rollout& r) {
         one(v, r).isThere = false, r.gone = std::vector{turnOf(r, v).front()};
       },
       0, ""},
      {"too many were gone to remember",
       [&](RolloutView& v, Rollout& r) { one(v, r).isThere = false, r.gone.reset(); }, 0, ""},
      {"one takes its time", [&](RolloutView& v, Rollout& r) { one(v, r).stands = Stands::behind; }, 59, ""},
      {"one takes too long",
       [&](RolloutView& v, Rollout& r) { one(v, r).stands = Stands::behind, one(v, r).behindFor = 60; }, 60,
       "does not tell that it has it"},
      {"one has come a second ago",
       [&](RolloutView& v, Rollout& r) { one(v, r).stands = Stands::behind, one(v, r).behindFor = 1; }, 60,
       ""},
      {"one cannot take it because of other texts",
       [&](RolloutView& v, Rollout& r) { one(v, r).stands = Stands::hindered; }, 60, ""},
      {"one has come back and is caught up",
       [&](RolloutView& v, Rollout& r) {
         one(v, r).stands = Stands::behind, one(v, r).behindFor = 60;
         r.gone = std::vector{turnOf(r, v).front()};
       },
       60, ""},
      {"as many drops as are allowed", [&](RolloutView& v, Rollout& r) { one(v, r).since = 24; }, 0, ""},
      {"more drops", [&](RolloutView& v, Rollout& r) { one(v, r).since = 24.5; }, 0,
       "40.5 frames a second are dropped, 20.0 before"},
      {"more drops, and nobody asked",
       [&](RolloutView& v, Rollout& r) { one(v, r).since = 1e6, r.dropsFactor = 0; }, 0, ""},
      {"more drops where it is not in force", [&](RolloutView& v, Rollout& r) { other(v, r).since = 1e6; }, 0,
       ""},
      {"the texts are others", [](RolloutView& v, Rollout&) { v.texts = "u"; }, 0,
       "somebody else has changed the texts"},
  };
  for (const auto& one_ : cases) {
    RolloutView view = tenAgents();
    Rollout rollout = begun("50%", view);
    one_.change(view, rollout);
    for (const bool met : {false, true}) {
      rollout.met = met;
      const auto after = nextRollout(rollout, view, one_.seconds);
      const bool isBack = after && after->phase == Rollout::Phase::back;
      EXPECT_THAT(isBack ? after->result : "", testing::HasSubstr(one_.wanted)) << one_.sentence;
      EXPECT_EQ(isBack, *one_.wanted != 0) << one_.sentence;
    }
    // While it is paused nothing becomes of it by itself.
    EXPECT_EQ(nextRollout(*pausedRollout(rollout), view, 1e6), std::nullopt) << one_.sentence;
  }
}

/// When all whose turn it is have it, or have had the time, the step is watched; an agent that cannot take it
/// because of other texts is waited for.
TEST(Rollout, WaitsForWhoHasItsOwnTime) {
  const struct {
    const char* sentence;
    Stands stands;
    double behindFor, seconds;
    bool isMet;
  } cases[] = {
      {"all have it", Stands::inForce, 0, 0, true},
      {"one is behind", Stands::behind, 30, 30, false},
      {"one is behind that came late", Stands::behind, 1, 60, true},
      {"one is hindered", Stands::hindered, 0, 0, false},
      {"one is hindered for long", Stands::hindered, 0, 6000, false},
  };
  for (const auto& one : cases) {
    RolloutView view = tenAgents();
    Rollout rollout = begun("50%", view);
    auto& agent = view.agents.at(turnOf(rollout, view).front());
    agent.stands = one.stands;
    agent.behindFor = one.behindFor;
    const auto after = nextRollout(rollout, view, one.seconds);
    EXPECT_EQ(after && after->met, one.isMet) << one.sentence;
    EXPECT_TRUE(!after || after->isActive()) << one.sentence;
  }
}

TEST(Rollout, AFleetThatDroppedNothingMayDropALittle) {
  RolloutView view = tenAgents();
  for (auto& [name, agent] : view.agents) agent.before = 0, agent.since = 0.2;
  EXPECT_EQ(nextRollout(begun("100%", view), view, 0)->phase, Rollout::Phase::running);
  for (auto& [name, agent] : view.agents) agent.since = 0.3;
  EXPECT_EQ(nextRollout(begun("100%", view), view, 0)->phase, Rollout::Phase::back);
}

TEST(Rollout, IsPausedResumedAndAborted) {
  Rollout rollout = begun("50%", tenAgents());
  rollout.met = true;
  const auto paused = pausedRollout(rollout);
  ASSERT_TRUE(paused);
  EXPECT_EQ(turnOf(*paused, tenAgents()), turnOf(rollout, tenAgents())) << "who has the texts keeps them";
  EXPECT_FALSE(pausedRollout(*paused));
  EXPECT_FALSE(resumedRollout(*paused, tenAgents())->met) << "the step is watched anew";
  EXPECT_FALSE(resumedRollout(rollout, tenAgents()));
  // Who went while it was paused is not held against the new texts.
  RolloutView view = tenAgents();
  const std::string first = turnOf(rollout, view).front();
  view.agents.at(first).isThere = false;
  EXPECT_EQ(resumedRollout(*paused, view)->gone, std::vector{first});
  const auto back = abortedRollout(*paused, "me");
  ASSERT_TRUE(back);
  EXPECT_THAT(turnOf(*back, tenAgents()), testing::IsEmpty());
  EXPECT_FALSE(abortedRollout(*back, "me"));
}

/// By which texts an agent may open something.
TEST(FleetPlace, SaysWhichTextsMayOpen) {
  std::map<std::string, EtcdEntry> entries;
  const auto put = [&entries](const std::string& key, const std::string& value, int64_t modified) {
    entries[key] = {key, value, modified, 1};
  };
  const std::string place = "/velo/v1/config/g/";
  put(place + "t", "old", 3);
  const auto word = [&]() -> std::string {
    const FleetPlace known(entries, place);
    const auto may = known.mayOpen(known.textsOf("a"));
    return may ? may->place + " " + may->from : "";
  };
  EXPECT_EQ(word(), "");
  put(Agent::mayOpenKey(place), FleetPlace::digestOfTexts({{"t", "old"}}), 4);
  EXPECT_EQ(word(), place + " ");
  put(place + "t", "other", 5);
  EXPECT_EQ(word(), "") << "the word was for other texts";
  put(place + "t", "old", 6);
  put(place + "u", "", 6);
  EXPECT_EQ(word(), "") << "or for fewer";
  // In place of texts of a rollout, and no others.
  const std::string digest = FleetPlace::digestOfTexts({{"t", "old"}, {"u", ""}});
  put(Agent::mayOpenBackKey(place), "0123456789abcdef " + digest, 7);
  EXPECT_EQ(word(), place + " " + Agent::rolloutTextsPrefix(place));
  put(place + "t", "new", 8);
  EXPECT_EQ(word(), "") << "the texts are others since";
}

TEST(FleetDrops, TellsWhatWasDroppedBeforeAndSince) {
  FleetDrops drops;
  const auto rates = [&drops](double now, const char* version = "v") {
    const auto read = FleetDrops::ratesIn(drops.value(now, ""), version);
    return fmt::format("{} {}", read.before.value_or(-1), read.since.value_or(-1));
  };
  for (int i = 0; i <= 20; ++i) drops.add(5 * i, static_cast<uint64_t>(10 * i));
  EXPECT_EQ(drops.value(100, ""), "") << "there has been no change";
  drops.changed(100, "v", "");
  EXPECT_EQ(rates(100), "2 0");
  drops.add(105, 230);
  EXPECT_EQ(rates(105), "2 6");
  EXPECT_EQ(rates(105, "w"), "-1 -1") << "of other content nothing is known";
  drops.changed(106, "v", "");
  EXPECT_EQ(rates(110), "2 3") << "the same content is no change";
  const std::string last = drops.value(690, "");
  drops.add(701, 1000);
  EXPECT_EQ(drops.value(701, ""), last) << "nobody looks any more";
  EXPECT_NE(drops.value(701, "x"), last) << "but while it tries something, somebody does";
  for (const char* none :
       {"", "[]", R"({"version": "v"})", R"({"version": "v", "before": [1], "since": ["a", {}]})"}) {
    const auto read = FleetDrops::ratesIn(none, "v");
    EXPECT_FALSE(read.before || read.since) << none;
  }
}

/// Twenty frames a second are dropped for ten minutes, then none: the last minute counts, however long a
/// rollout takes.
TEST(FleetDrops, TellsOfTheLastMinute) {
  FleetDrops drops;
  uint64_t dropped = 0;
  for (int now = 0; now <= 60; now += 5) drops.add(now, dropped);
  drops.changed(60, "v", "rollout");
  const auto since = [&drops](double now) {
    return FleetDrops::ratesIn(drops.value(now, "rollout"), "v").since.value_or(-1);
  };
  for (int now = 65; now <= 660; now += 5) drops.add(now, dropped += 100);
  EXPECT_DOUBLE_EQ(since(660), 20);
  for (int now = 665; now <= 690; now += 5) drops.add(now, dropped);
  EXPECT_DOUBLE_EQ(since(690), 10) << "half a minute of them";
  for (int now = 695; now <= 720; now += 5) drops.add(now, dropped);
  EXPECT_DOUBLE_EQ(since(720), 0);
  for (int now = 725; now <= 3000; now += 5) drops.add(now, dropped += 50);
  EXPECT_DOUBLE_EQ(since(3000), 10) << "also when it takes an hour";
}

/// New texts of a rollout drop more; behind them another group's texts change, which is no way to hide that.
TEST(FleetDrops, RemembersWhatWasBeforeARollout) {
  for (const auto& [tried, before] : {std::pair{"rollout", 2.0}, {"another", 12.0}, {"", 12.0}}) {
    FleetDrops drops;
    for (int i = 0; i <= 12; ++i) drops.add(5 * i, static_cast<uint64_t>(10 * i));
    drops.changed(60, "v", "rollout");
    for (int i = 1; i <= 12; ++i) drops.add(60 + 5 * i, static_cast<uint64_t>(120 + 60 * i));
    drops.changed(120, "w", tried);
    EXPECT_DOUBLE_EQ(FleetDrops::ratesIn(drops.value(120, tried), "w").before.value_or(-1), before) << tried;
  }
}

}  // namespace
