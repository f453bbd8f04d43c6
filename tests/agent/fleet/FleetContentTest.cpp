#include <agent/change/FleetContent.h>
#include <agent/config/Writer.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "../support/RunningAgent.h"

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace TestSupport;
using Agent::FleetContent;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

using Texts = std::vector<FleetContent::Text>;

Agent::MadeModel read(Texts texts) { return Agent::readFleet({1, "v", std::move(texts)}, {}); }

TEST(FleetContent, IsOneConfigurationOfWhichTheFirstTextCountsMost) {
  struct Case {
    const char* sentence;
    Texts texts;
    const char* says;
  };
  const Case cases[] = {
      {"nothing is an empty configuration", {}, ""},
      {"of a list in two texts the first one counts, and nothing is mixed",
       {{"a", "ip access-list X\n 10 permit udp any any\n"},
        {"b", "ip access-list X\n 20 deny ip any any\n"}},
       "ip access-list X\n  10 permit udp any any\n"},
      {"a text does not go on where the one before ended",
       {{"a", "ip access-list X\n 10 permit ip any any\n"}, {"b", "ip access-list Y\n 10 deny ip any any\n"}},
       "ip access-list X\n  10 permit ip any any\nip access-list Y\n  10 deny ip any any\n"},
      {"bindings, too",
       {{"a", "interface eth1\n ip access-group A in\n"},
        {"b", "interface eth1\n ip access-group B in\n ip access-group B out\n"}},
       "interface eth1\n  ip access-group A in\n  ip access-group B out\n"},
      {"object-groups that are the same do not disturb each other",
       {{"a", "object-group network G\n host 10.0.0.1\nip access-list X\n 10 permit ip object-group G any\n"},
        {"b", "object-group network G\n host 10.0.0.1\n"}},
       "object-group network G\n  host 10.0.0.1\nip access-list X\n  10 permit ip object-group G any\n"},
  };
  for (const auto& [sentence, texts, says] : cases) {
    const auto made = read(texts);
    EXPECT_THAT(made.mistakes, IsEmpty()) << sentence;
    ASSERT_TRUE(made.model) << sentence;
    const auto wanted = Config::read({{"wanted", says}});
    ASSERT_TRUE(wanted.model) << sentence << wanted.mistakes.front().str();
    EXPECT_EQ(Config::textOf(*made.model), Config::textOf(*wanted.model)) << sentence;
  }
}

TEST(FleetContent, TellsEveryMistakeWithItsKey) {
  auto made =
      read({{"/k/a", "ip access-list X\n permit\n"}, {"/k/b", "ip access-list Y\n"}, {"/k/c", "nonsense\n"}});
  EXPECT_FALSE(made.model);
  EXPECT_THAT(made.mistakes, ElementsAre(HasSubstr("/k/a:2:"), HasSubstr("/k/c:1:1: found \"nonsense\"")));
  made = read({{"/k/a", "object-group network G\n host 10.0.0.1\n"},
               {"/k/b", "object-group network G\n host 10.0.0.2\n"}});
  EXPECT_THAT(made.mistakes, ElementsAre("/k/b: object-group G is another one in /k/a"));
  made = read({{"/k/a", "port-channel p members eth1\n"}, {"/k/b", "port-channel q members eth1\n"}});
  EXPECT_FALSE(made.model);
  EXPECT_THAT(made.mistakes, ElementsAre(HasSubstr("eth1")));
  made = Agent::readFleet({1, "v", {}, {"/k/: more than 1000 texts"}}, {});
  EXPECT_THAT(made.mistakes, ElementsAre("/k/: more than 1000 texts"));
  made = Agent::readFleet({1, "v", {{"/k/a", std::string(100, '\n')}}}, {.file = 99});
  EXPECT_THAT(made.mistakes, ElementsAre(HasSubstr("/k/a: is larger than")));
}

TEST(FleetContent, NoticesStandWhereTheirTextsAre) {
  const auto made = read(
      {{"/k/a", "\nip access-list X\n 10 permit ip any any\n 20 permit ip any any mirror session S\n"},
       {"/k/b",
        "ip access-list X\n 10 deny ip any any mirror session T\n\ninterface eth1\n ip access-group X in\n"}});
  ASSERT_TRUE(made.model);
  const auto& notices = made.model->notices;
  const Config::ListKey x{Acl::AclType::ip, "X"};
  const auto shown = [](const Agent::Place& place) { return fmt::format("{}:{}", place.file, place.line); };
  EXPECT_EQ(shown(notices.placeOf(notices.lists, x)), "/k/a:2");
  EXPECT_EQ(shown(notices.placeOf(notices.rules, std::pair(x, uint32_t{20}))), "/k/a:4");
  EXPECT_EQ(notices.placeOf(notices.rules, std::pair(x, uint32_t{10})).file, "")
      << "the rule of this number in the other text is not in force";
  EXPECT_EQ(shown(notices.placeOf(notices.bindings, {Acl::AclType::ip, Acl::AclDirection::in, "eth1"})),
            "/k/b:5");
}

/// An agent whose configuration the fleet changes.
class FleetChangesTest : public testing::Test {
 protected:
  using Outcome = Agent::FleetChanges::Outcome;

  void start(const char* text, const std::map<std::string, std::string>* files = nullptr) {
    agent_.leaveIs({});
    agent_.portsAre({"eth1"});
    agent_.start(text, files);
    configuration().fleetToldIs([this](const Outcome& outcome) { told_.push_back(outcome); });
  }
  Agent::Configuration& configuration() { return agent_.plane().configuration(); }
  void content(int64_t revision, Texts texts) {
    configuration().fleetIs(
        std::make_shared<const FleetContent>(FleetContent{revision, "v", std::move(texts)}));
  }
  void settle() {
    agent_.turnsUntil([this] { return !configuration().busy(); });
  }
  /// What became of content: its revision, and why it is not in force.
  std::string became(int64_t revision, Texts texts) {
    told_.clear();
    content(revision, std::move(texts));
    settle();
    if (told_.size() != 1) return fmt::format("told {} times", told_.size());
    return fmt::format("{}: {}", told_[0].content->revision, fmt::join(told_[0].wrong, "; "));
  }
  bool passes(uint16_t port) { return agent_.receive("eth1", udpTo(port)).passed(); }
  Json bad() { return agent_.show("status").at("configuration").at("bad"); }

  RunningAgent agent_;
  std::vector<Outcome> told_;
};

constexpr const char* filtering =
    "ip access-list X\n 10 permit udp any any eq 10\ninterface eth1\n ip access-group X in\n";

TEST_F(FleetChangesTest, ComeIntoForceWholeOrNotAtAll) {
  start("");
  EXPECT_EQ(became(5, {{"/a", "ip access-list X\n 10 permit udp any any eq 10\n"},
                       {"/b", "interface eth1\n ip access-group X in\n"}}),
            "5: ");
  EXPECT_TRUE(passes(10));
  EXPECT_FALSE(passes(20));
  EXPECT_EQ(agent_.show("access-lists", "X").at("lists").at(0).at("source"), "fleet");
  // One of the texts has a mistake: the other one is not taken either.
  EXPECT_EQ(became(6, {{"/a", "ip access-list X\n 10 permit udp any any eq 20\n"}, {"/b", "interface\n"}}),
            "6: /b:1:10: found the end of the line, expected the name of an interface");
  EXPECT_TRUE(passes(10));
  EXPECT_EQ(configuration().fleet().inForce()->revision, 5);
  EXPECT_EQ(bad().at(0).at("name"), "fleet");
  EXPECT_EQ(bad().at(0).at("kept"), true);
  // And the next one is taken as if that had not been.
  EXPECT_EQ(became(7, {{"/a", filtering}}), "7: ");
  EXPECT_EQ(bad(), Json::array());
}

TEST_F(FleetChangesTest, AnOpeningIsRefusedUntilItIsNoneAnyMore) {
  start("");
  ASSERT_EQ(became(5, {{"/a", filtering}}), "5: ");
  EXPECT_THAT(became(6, {}), HasSubstr("6: interface eth1"));
  EXPECT_FALSE(told_[0].openings.empty());
  EXPECT_FALSE(passes(20)) << "what was in force stays";
  // The command line filters there, too, from now on.
  told_.clear();
  ASSERT_EQ(
      agent_.apply("ip access-list C\n 10 permit udp any any eq 30\ninterface eth1\n ip access-group C in\n")
          .at("applied"),
      true);
  settle();
  ASSERT_EQ(told_.size(), 1u) << "it is tried again by itself";
  EXPECT_THAT(told_[0].wrong, IsEmpty());
  EXPECT_EQ(configuration().fleet().inForce()->revision, 6);
  EXPECT_TRUE(passes(30));
}

TEST_F(FleetChangesTest, AnOpeningIsTakenWhereSomebodyHasSaidSo) {
  start("");
  const char* other = "ip access-list O\n 10 permit udp any any eq 1\n";
  const auto taken = [this](const char* sentence, Texts from, Texts to,
                            std::vector<FleetContent::MayOpen> may) {
    // From one content to the other, by a word for some of the places.
    EXPECT_EQ(became(1, std::move(from)), "1: ") << sentence;
    told_.clear();
    FleetContent content{2, "v", std::move(to)};
    content.mayOpen = std::move(may);
    configuration().fleetIs(std::make_shared<const FleetContent>(std::move(content)));
    settle();
    const bool isTaken = told_.size() == 1 && told_[0].wrong.empty();
    return isTaken;
  };
  const Texts before = {{"/one/a", filtering}, {"/two/b", other}};
  const Texts after = {{"/two/b", other}};
  EXPECT_FALSE(taken("nobody has said so", before, after, {}));
  EXPECT_FALSE(taken("the word is for another place", before, after, {{"/two/", ""}}));
  EXPECT_TRUE(taken("the word is for this one", before, after, {{"/one/", ""}}));
  EXPECT_FALSE(taken("something else has changed besides", before, {{"/two/b", ""}}, {{"/one/", ""}}));
  EXPECT_FALSE(taken("only from other texts than these", before, after, {{"/one/", "/one/new/"}}));
  EXPECT_TRUE(
      taken("from those that were on their way", {{"/one/new/a", filtering}}, {}, {{"/one/", "/one/new/"}}));
}

TEST_F(FleetChangesTest, CountLessThanTheCommandLineAndTheDirectory) {
  const std::map<std::string, std::string> files = {
      {"zzz", "ip access-list D\n 10 permit udp any any eq 1\n"}};
  start("ip access-list C\n 10 permit udp any any eq 1\n", &files);
  const char* text =
      "ip access-list C\n 10 deny ip any any\nip access-list D\n 10 deny ip any any\nip access-list F\n 10 permit ip any any\n";
  EXPECT_EQ(became(2, {{"/a", text}}), "2: ");
  const auto source = [this](const char* list) {
    return agent_.show("access-lists", list).at("lists").at(0).at("source");
  };
  EXPECT_EQ(source("C"), "cli");
  EXPECT_EQ(source("D"), "zzz");
  EXPECT_EQ(source("F"), "fleet");
}

TEST_F(FleetChangesTest, OnlyTheLastCountsOfSeveralThatWait) {
  start("");
  content(1, {{"/a", filtering}});
  content(2, {{"/a", "nonsense\n"}});
  content(3, {{"/a", filtering}});
  settle();
  ASSERT_FALSE(told_.empty());
  EXPECT_EQ(told_.back().content->revision, 3);
  EXPECT_EQ(configuration().fleet().inForce()->revision, 3);
}

TEST_F(FleetChangesTest, AreRememberedAndTold) {
  start("");
  ASSERT_EQ(became(5, {{"/a", filtering}}), "5: ");
  const Json last = agent_.show("history").at("changes").back();
  EXPECT_EQ(last.at("what"), "fleet");
  EXPECT_EQ(last.at("source"), "fleet");
  EXPECT_EQ(last.at("who"), "the fleet, revision 5");
  EXPECT_THAT(agent_.log(), testing::Contains(HasSubstr("fleet changed by the fleet, revision 5: +1 list")));
  became(6, {{"/a", "x\n"}});
  EXPECT_THAT(agent_.log(), testing::Contains(HasSubstr("/a:1:1: found \"x\"")));
  became(7, {{"/a", "x\n"}});
  EXPECT_THAT(agent_.log(), IsEmpty()) << "what stays wrong is told once";
}

TEST_F(FleetChangesTest, AFileCannotHaveTheirName) {
  const std::map<std::string, std::string> files = {{"one", ""}};
  start("", &files);
  agent_.putFile("fleet", "ip access-list X\n");
  agent_.advance(1.1);
  agent_.turnsUntil([this] { return !bad().empty(); });
  EXPECT_THAT(bad().at(0).at("mistakes").at(0).get<std::string>(),
              HasSubstr("the name of the fleet's configuration"));
}

}  // namespace
