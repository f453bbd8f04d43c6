#include <agent/show/ListOrder.h>
#include <agent/show/ListRow.h>
#include <agent/show/Shows.h>
#include <gmock/gmock.h>

#include <sstream>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using Agent::RuleOrder;
using testing::HasSubstr;

/// The names of lists with the numbers of their rules, in the order of a document: "A 10 20, B 10".
std::string namesOf(const Json& document) {
  std::string text;
  for (const Json& list : document.at("lists")) {
    text += (text.empty() ? "" : ", ") + list.at("name").get<std::string>();
    for (const Json& rule : list.at("rules")) text += " " + std::to_string(rule.at("sequence").get<int>());
  }
  for (const Json& list : document.at("undefined"))
    text += ", " + list.at("name").get<std::string>() + " undefined";
  return text;
}

class ListShowTest : public testing::Test {
 protected:
  void SetUp() override {
    const std::map<std::string, std::string> files = {
        {"branch.acl",
         "ip access-list BRANCH\n 10 permit udp any any eq 53\n 20 permit ip any any\n"
         "interface eth4\n ip access-group BRANCH in\n"}};
    agent_.start(
        "ip access-list A\n 10 permit udp any any eq 53\n 20 permit udp any any eq 54\n 30 deny udp any any "
        "eq 55\n"
        "ip access-list FREE\n 10 permit ip any any\n"
        "mac access-list L2\n 10 permit any any\n"
        "interface eth1\n ip access-group A in\n ipv6 access-group GONE in\n"
        "interface po1\n mac access-group L2 in\nport-channel po1 members eth2 eth3\n",
        &files);
    agent_.patch("eth1", "po1");
    receive(53, 3);
    agent_.advance(10);
    receive(55, 1);
    agent_.receive("eth4", udpTo(99));
    agent_.receive("eth4", udpTo(98));
    agent_.receive("eth4", udpTo(97));
    agent_.receive("eth4", udpTo(96));
  }
  void receive(uint16_t port, int times) {
    for (int i = 0; i < times; ++i) agent_.receive("eth1", udpTo(port));
  }
  Json show(Json options = Json::object()) {
    options["do"] = "show";
    options["what"] = "access-lists";
    return agent_.ask(options);
  }
  static std::string wrong(const Json& answer) {
    return answer.at("error").at("code").get<std::string>() + ": " +
           answer.at("error").at("text").get<std::string>();
  }

  RunningAgent agent_;
};

TEST_F(ListShowTest, RulesAndListsAreSelected) {
  struct Row {
    const char* why;
    Json options;
    const char* names;
  };
  for (const Row& row : {
           Row{"everything", Json::object(), "A 10 20 30, BRANCH 10 20, FREE 10, L2 10, GONE undefined"},
           Row{"what has matched", {{"hit", true}}, "A 10 30, BRANCH 20, GONE undefined"},
           Row{"what has not", {{"unused", true}}, "A 20, BRANCH 10, FREE 10, L2 10, GONE undefined"},
           Row{"neither, said so",
               {{"unused", false}, {"hit", false}},
               "A 10 20 30, BRANCH 10 20, FREE 10, L2 10, GONE undefined"},
           Row{"of an interface", {{"interface", "eth1"}}, "A 10 20 30, GONE undefined"},
           Row{"of a port-channel", {{"interface", "po1"}}, "L2 10"},
           Row{"of its member, whose frames meet the same lists", {{"interface", "eth3"}}, "L2 10"},
           Row{"of an interface without lists", {{"interface", "eth9"}}, ""},
           Row{"of the command line", {{"source", "cli"}}, "A 10 20 30, FREE 10, L2 10"},
           Row{"of a file", {{"source", "branch.acl"}}, "BRANCH 10 20"},
           Row{"all at once",
               {{"source", "cli"}, {"interface", "eth1"}, {"unused", true}, {"name", "A"}},
               "A 20"},
       }) {
    if (row.options.value("interface", "") == "eth9") agent_.forwarder().portIs("eth9");
    EXPECT_EQ(namesOf(show(row.options)), row.names) << row.why;
  }
}

TEST_F(ListShowTest, AListWhoseEndHasDroppedSomethingWasHit) {
  agent_.receive("eth1", udpTo(77));
  agent_.ask({{"do", "clear"}});
  agent_.receive("eth1", udpTo(77));
  EXPECT_EQ(namesOf(show({{"hit", true}})), "A, GONE undefined") << "above the line that was drawn";
}

TEST_F(ListShowTest, WhatCannotBeSelectedIsRefused) {
  EXPECT_EQ(wrong(show({{"hit", true}, {"unused", true}})),
            "bad-request: a rule cannot have matched and be unused");
  EXPECT_EQ(wrong(show({{"interface", "eht1"}})),
            "not-found: there is no interface eht1 (did you mean eth1?)");
  EXPECT_EQ(wrong(show({{"source", "brunch.acl"}})),
            "not-found: there is no source brunch.acl (did you mean branch.acl?)");
  EXPECT_EQ(wrong(agent_.ask({{"do", "show"}, {"what", "drops"}, {"unused", true}})),
            "bad-request: drops takes no selection of rules");
}

TEST_F(ListShowTest, BytesAreCountedBesidePackets) {
  const auto size = udpTo(53).size();
  const Json rules = show({{"name", "A"}}).at("lists").at(0).at("rules");
  EXPECT_EQ(rules.at(0).at("matches"), Json({{"in", 3}, {"out", 0}}));
  EXPECT_EQ(rules.at(0).at("bytes"), Json({{"in", 3 * size}, {"out", 0}}));
  EXPECT_EQ(rules.at(1).at("bytes"), Json({{"in", 0}, {"out", 0}}));
  agent_.ask({{"do", "clear"}, {"name", "A"}});
  receive(53, 1);
  EXPECT_EQ(show({{"name", "A"}}).at("lists").at(0).at("rules").at(0).at("bytes").at("in"), size)
      << "those since the counters were cleared";
}

TEST_F(ListShowTest, RulesAreSortedInTheirListsAndTheFirstOfAllAreKept) {
  struct Row {
    const char* why;
    RuleOrder order;
    std::optional<size_t> top;
    const char* names;
  };
  for (const Row& row : {
           Row{"as they are tried", RuleOrder::number, {}, "A 10 20 30, BRANCH 10 20, FREE 10, L2 10"},
           Row{"the most packets first, lists by their first rules",
               RuleOrder::hits,
               {},
               "BRANCH 20 10, A 10 30 20, FREE 10, L2 10"},
           Row{"the last match first", RuleOrder::last, {}, "A 30 10 20, BRANCH 20 10, FREE 10, L2 10"},
           Row{"the first two of all lists", RuleOrder::hits, 2, "BRANCH 20, A 10"},
           Row{"the first three", RuleOrder::hits, 3, "BRANCH 20, A 10 30"},
           Row{"the lowest numbers of all lists", RuleOrder::number, 3, "A 10, BRANCH 10, FREE 10"},
           Row{"more than there are", RuleOrder::last, 100, "A 30 10 20, BRANCH 20 10, FREE 10, L2 10"},
       }) {
    Json document = show();
    document["undefined"] = Json::array();
    Agent::arrangeLists(document, row.order, row.top);
    EXPECT_EQ(namesOf(document), row.names) << row.why;
  }
}

/// The rates of a rule in a document: "packets bytes", "none" without.
std::string rateOf(const Json& counted) {
  if (counted.at("rate").is_null()) return "none";
  return fmt::format("{} {}", counted.at("rate").at("packets").get<double>(),
                     counted.at("rate").at("bytes").get<double>());
}

TEST_F(ListShowTest, RatesAreThoseOfTheLastSeconds) {
  Agent::RuleRates rates;
  const auto at = [&](double now) {
    Json document = show({{"name", "A"}});
    rates.add(document, now);
    return document.at("lists").at(0);
  };
  const auto ofFirst = [&](double now) { return rateOf(at(now).at("rules").at(0)); };
  const auto size = static_cast<double>(udpTo(53).size());
  EXPECT_EQ(ofFirst(100), "none") << "there is nothing to compare with yet";
  receive(53, 10);
  EXPECT_EQ(ofFirst(102), fmt::format("5 {}", 5 * size));
  EXPECT_EQ(rateOf(at(102.5).at("implicitDrop")), "0 0");
  receive(77, 6);
  EXPECT_EQ(rateOf(at(103).at("implicitDrop")), fmt::format("2 {}", 2 * size)) << "in three seconds";
  EXPECT_EQ(ofFirst(104), fmt::format("{} {}", 2.5, 2.5 * size)) << "10 in four seconds";
  for (double now = 105; now < 112; ++now) ofFirst(now);
  EXPECT_EQ(ofFirst(112), "0 0") << "what was long ago does not count";
  agent_.ask({{"do", "clear"}});
  EXPECT_EQ(ofFirst(113), "none") << "counters that went back have no rate";
  for (double now = 114; now < 120; ++now) ofFirst(now);
  receive(53, 12);
  EXPECT_EQ(ofFirst(120), fmt::format("2 {}", 2 * size)) << "over six seconds, one more than the window";
}

TEST_F(ListShowTest, RatesReadAsColumns) {
  Agent::RuleRates rates;
  Json first = show({{"name", "A"}});
  rates.add(first, 1);
  receive(53, 3000);
  Json second = show({{"name", "A"}});
  rates.add(second, 3);
  const std::string text = Agent::listsText(second, {false, RunningAgent::startTime + 10});
  EXPECT_THAT(text, HasSubstr("       in       out     bytes     pkt/s    byte/s  last match\n"));
  EXPECT_THAT(text, HasSubstr("     3003         0    126126     1.50k     63.0k  0 s ago\n"));
  EXPECT_THAT(text, HasSubstr("        0         0         0         0         0  -\n"));
}

TEST(ListRow, RatesAreRounded) {
  struct Row {
    double rate;
    const char* text;
  };
  for (const Row& row : {Row{0, "0"}, Row{0.2, "1"}, Row{12.3, "13"}, Row{999, "999"}, Row{999.4, "999"},
                         Row{1000, "1.00k"}, Row{12345, "12.3k"}, Row{999499, "999k"}, Row{999600, "1.00M"},
                         Row{1.5e10, "15.0G"}, Row{2e19, "20.0E"}}) {
    EXPECT_EQ(Agent::rateText(row.rate), row.text) << row.rate;
  }
}

TEST(ListRow, TextsAreBrokenAtBlanks) {
  using Lines = std::vector<std::string>;
  EXPECT_EQ(Agent::wrapped("one two three", 20), Lines{"one two three"});
  EXPECT_EQ(Agent::wrapped("one two three", 9), (Lines{"one two", "   three"}));
  EXPECT_EQ(Agent::wrapped("one two three", 7), (Lines{"one two", "   thre", "   e"}));
  EXPECT_EQ(Agent::wrapped("      indented words here", 18), (Lines{"      indented", "   words here"}));
  EXPECT_EQ(Agent::wrapped("", 5), Lines{""});
}

TEST_F(ListShowTest, NoLineIsLongerThanTheScreenIsWide) {
  std::string ports = " 4294967295 permit tcp 192.0.2.0/24 198.51.100.0/24 eq";
  for (int i = 0; i < 10; ++i) ports += " 6553" + std::to_string(i % 6);
  agent_.apply("ip access-list A-LIST-WITH-QUITE-A-LONG-NAME-OF-FORTY-FIVE\n remark " +
               std::string(100, 'r') + " end\n" + ports +
               " log\n 20 permit udp any any eq 53 mirror session S\n"
               "interface eth1\n ip access-group A-LIST-WITH-QUITE-A-LONG-NAME-OF-FORTY-FIVE in\n ipv6 "
               "access-group GONE out\n"
               "interface eth2\n ip access-group A-LIST-WITH-QUITE-A-LONG-NAME-OF-FORTY-FIVE in\n"
               "mirror session S destination eth9\n");
  agent_.turns();
  for (int i = 0; i < 2000; ++i) agent_.receive("eth1", udpTo(53));
  const Json document = show();
  for (const size_t width : {40u, 60u, 72u, 80u, 100u, 132u, 200u}) {
    const std::string text = Agent::listsText(document, {false, RunningAgent::startTime + 100, width});
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      EXPECT_LE(line.size(), width) << line;
    }
    std::string words;
    std::istringstream parts(text);
    for (std::string word; parts >> word;) words += word + " ";
    for (const char* part :
         {"4294967295 permit tcp 192.0.2.0/24 ", "65530 65531 ", "20 permit udp any any eq 53 ",
          "mirror session S ", " 2000", "(eth1 in, eth2 in)", "from cli"})
      EXPECT_THAT(words, HasSubstr(part)) << width;
  }
}

TEST_F(ListShowTest, OfANarrowScreenCountsStandBelowTheRule) {
  const std::string text = Agent::listsText(show({{"name", "A"}}), {false, RunningAgent::startTime + 13, 50});
  EXPECT_EQ(text,
            "ip access-list A  (eth1 in)  from cli\n"
            "   10 permit udp any any eq 53\n"
            "         in 3, out 0, bytes 126, 13 s ago\n"
            "   20 permit udp any any eq 54\n"
            "         in 0, out 0, bytes 0, never\n"
            "   30 deny udp any any eq 55\n"
            "         in 1, out 0, bytes 42, 3 s ago\n"
            "      (what matches no rule is dropped)\n"
            "         in 0, out 0, bytes 0, never\n"
            "\n");
  const auto row = [this](size_t width) {
    const std::string all =
        Agent::listsText(show({{"name", "A"}}), {false, RunningAgent::startTime + 13, width});
    const size_t at = all.find("   10 ");
    return all.substr(at, all.find('\n', at) - at);
  };
  EXPECT_EQ(row(60), "   10 permit udp any any eq 53       3   0   126  13 s ago");
  EXPECT_EQ(row(80), "   10 permit udp any any eq 53                3   0   126  13 s ago");
}

}  // namespace
