#include <agent/show/Report.h>
#include <agent/show/Shows.h>

#include <gmock/gmock.h>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;

class ShowTest : public testing::Test {
 protected:
  std::string text(const char* what, const std::string& name = {}) {
    return Agent::showOf(what)->text(agent_.show(what, name), {false, RunningAgent::startTime + 100});
  }
  RunningAgent agent_;
};

constexpr const char* someLists =
    "ip access-list A\n remark first\n 10 permit udp any any eq 53\n 20 deny ip any any mirror session S\n"
    " remark at the end\n"
    "ip access-list FREE\n permit ip any any\n"
    "mac access-list L2\n permit any any\n"
    "interface eth1\n ip access-group A in\n ip access-group MISSING out\n mac access-group L2 in\n"
    "mirror session S destination eth9\nport-channel po1 members eth2 eth3\n";

TEST_F(ShowTest, EveryRowAnswersAndReads) {
  agent_.start(someLists);
  agent_.receive("eth1", udpTo(53));
  for (const Agent::Show& show : Agent::shows()) {
    const Json document = agent_.show(std::string(show.name).c_str());
    EXPECT_TRUE(document.is_object() && !document.contains("error")) << show.name << document;
    EXPECT_FALSE(show.text(document, {true, 0.0}).empty()) << show.name;
    EXPECT_FALSE(show.help.empty()) << show.name;
  }
  EXPECT_EQ(agent_.show("everything").at("error").at("code"), "unknown-show");
  EXPECT_EQ(agent_.show("drops", "A").at("error").at("code"), "bad-request") << "drops are of no list";
}

TEST_F(ShowTest, ListsPortsDropsAndStatusHaveTheShapesOfAReplay) {
  agent_.start(someLists);
  for (int i = 0; i < 3; ++i) agent_.receive("eth1", udpTo(53));
  agent_.receive("eth1", udpTo(99));
  agent_.advance(2);
  const Json replay = Agent::reportDocument(Agent::makeReport(agent_.core(), agent_.forwarder()),
                                            agent_.core().inForce().status());
  Json shown = agent_.show("access-lists");
  for (Json& list : shown["lists"]) {
    EXPECT_TRUE(list.at("published").get<bool>());
    list.erase("published");
    list.erase("remarks");
  }
  EXPECT_EQ(Json::parse(shown.at("lists").dump()), Json::parse(replay.at("lists").dump()));
  EXPECT_EQ(shown.at("undefined"), replay.at("undefined"));
  EXPECT_EQ(agent_.show("drops").at("drops"), replay.at("drops"));
  // Members of an object have no order.
  const auto byPath = [](const Json& document) {
    const Json flat = document.flatten();
    std::map<std::string, Json> values;
    for (const auto& [path, value] : flat.items()) values[path] = value;
    return values;
  };
  EXPECT_EQ(byPath(agent_.show("status").at("status")), byPath(replay.at("status")));
  Json ports = agent_.show("ports").at("ports");
  for (auto& [name, port] : ports.items()) port.erase("nowhere"), port.erase("mirrorSessions");
  EXPECT_EQ(ports, replay.at("ports"));
  EXPECT_EQ(agent_.show("capabilities").at("capabilities").at("dpAclSupported"), true);
}

TEST_F(ShowTest, ListsReadAsTheyWereTyped) {
  agent_.start(someLists);
  agent_.receive("eth1", udpTo(53));
  const std::string shown = text("access-lists");
  for (const char* part : {
           "ip access-list A  (eth1 in)  from cli\n",
           "           remark first\n        10 permit udp any any eq 53                       1         0   "
           "     42            1 min 40 s ago\n",
           "           remark at the end\n           (what matches no rule",  // trailing, in front of the
                                                                              // drop
           "ip access-list FREE  (bound nowhere)",
           "ip access-list MISSING is bound (eth1 out) but not defined: everything passes it\n",
       }) {
    EXPECT_THAT(shown, HasSubstr(part));
  }
  const std::string one = text("access-lists", "L2");
  EXPECT_THAT(one, HasSubstr("mac access-list L2"));
  EXPECT_EQ(one.find("access-list A"), std::string::npos) << "of that name alone";
}

TEST_F(ShowTest, TheStatusReadsAsATable) {
  agent_.start(
      "ip access-list A\n 10 permit ip any any\nip access-list FREE\n"
      "interface eth2\n ip access-group A out\ninterface eth1\n ip access-group A out\n ip access-group A "
      "in\n");
  EXPECT_EQ(text("status"),
            "started 1 min 40 s ago\n\n"
            "cli                  2 lists, 1 rule, 3 bindings, applied 1 min 40 s ago\n\n"
            "type  list  rules  packets  bound\n"
            "ip    A         1        0  eth1 in, eth1 out, eth2 out\n"
            "ip    FREE      0        0  nowhere\n");
}

TEST_F(ShowTest, TheSummaryOfTheStatusReadsLikeTheWhole) {
  std::string config = "ip access-list A\n";
  for (int i = 1; i <= 3000; ++i) config += fmt::format(" {} permit udp any any eq {}\n", i, i);
  agent_.start(config + "ip access-list B\ninterface eth1\n ip access-group A in\n");
  for (int i = 0; i < 3; ++i) agent_.receive("eth1", udpTo(53));
  agent_.receive("eth1", udpTo(9999));
  agent_.advance(10);
  const Json whole = agent_.show("status");
  const Json summary = agent_.ask({{"do", "show"}, {"what", "status"}, {"summary", true}});
  const auto text = [](const Json& document) { return Agent::showOf("status")->text(document, {}); };
  EXPECT_EQ(text(summary), text(whole));
  EXPECT_THAT(text(summary), HasSubstr("ip    A      3000        4  eth1 in\n"));
  EXPECT_LT(summary.dump().size(), 3000u);
  EXPECT_FALSE(summary.at("status").at("status").at("ip").at("acl").at("A").contains("ruleStatus"));
  EXPECT_EQ(agent_.ask({{"do", "show"}, {"what", "ports"}, {"summary", true}}).at("error").at("text"),
            "ports has no summary");
}

TEST_F(ShowTest, NoLineOfTheStatusIsLongerThanTheScreenIsWide) {
  std::string config = "ip access-list A\n 10 permit ip 192.0.2.1/24 any mirror session NONE\n";
  for (int i = 1; i < 20; ++i)
    config += fmt::format("interface eth{}\n ip access-group A in\n shutdown\n", i);
  agent_.start(config);
  agent_.apply(config + "interface eth20\n ip access-group A-LIST-OF-ANOTHER-NAME-THAT-IS-NOT-DEFINED in\n");
  const Json document = agent_.show("status");
  const auto longest = [&document](std::optional<size_t> width) {
    Agent::TextStyle style{false, RunningAgent::startTime + 100, width};
    std::istringstream lines(Agent::showOf("status")->text(document, style));
    size_t most = 0;
    for (std::string line; std::getline(lines, line);) most = std::max(most, line.size());
    return most;
  };
  EXPECT_GT(longest(std::nullopt), 100u);
  EXPECT_LE(longest(80), 80u);
  const std::string whole = Agent::showOf("status")->text(document, {false, {}, 80});
  for (int i = 1; i < 20; ++i) EXPECT_THAT(whole, HasSubstr(fmt::format("eth{} in", i)));
}

TEST_F(ShowTest, APortWithoutADeviceIsTold) {
  const std::string shown = Agent::showOf("ports")->text(Json::parse(R"({"cleared":null,"ports":{
        "eth1":{"received":1,"sent":2,"dropped":{"in":0,"out":0},"mirrored":0,"live":{"device":"ens1",
          "present":true,"up":true,"mtu":1500,"wrong":null,"received":{"frames":1},"sent":{"frames":2},"lost":{}}},
        "eth9":{"received":0,"sent":3,"dropped":{"in":0,"out":0},"mirrored":3}}})"),
                                                         {});
  EXPECT_THAT(shown, HasSubstr("eth1        ens1    up    1500          1           2  nothing\n"
                               "eth9 has no device: what leaves there is lost\n"));
}

TEST_F(ShowTest, TimesAgoAreTold) {
  struct Row {
    double seconds;
    const char* text;
  };
  for (const Row& row : {Row{0, "0 s ago"}, Row{-5, "0 s ago"}, Row{12.9, "12 s ago"},
                         Row{75, "1 min 15 s ago"}, Row{7260, "2 h 1 min ago"}, Row{90000, "1 d 1 h ago"}}) {
    EXPECT_EQ(Agent::timeText(1000 - row.seconds, 1000), row.text);
  }
}

TEST_F(ShowTest, InterfacesTellWhereListsComeFrom) {
  const std::map<std::string, std::string> files = {
      {"branch.acl", "interface eth1\n ip access-group B in\ninterface eth5\n ip access-group A in\n"}};
  agent_.start(someLists, &files);
  const Json document = agent_.show("interfaces");
  const Json& eth1 = document.at("interfaces").at("eth1").at("bindings");
  ASSERT_EQ(eth1.size(), 3u);
  EXPECT_EQ(eth1.at(0).at("list"), "A");
  EXPECT_EQ(eth1.at(0).at("source"), "cli") << "the command line's is in force";
  EXPECT_EQ(eth1.at(0).at("overridden"), Json({"branch.acl"}));
  EXPECT_EQ(document.at("interfaces").at("eth5").at("bindings").at(0).at("source"), "branch.acl");
  EXPECT_EQ(document.at("interfaces").at("eth3").at("portChannel"), "po1");
  EXPECT_THAT(text("interfaces"), HasSubstr("MISSING (not defined: everything passes it)"));
}

TEST_F(ShowTest, InterfacesHaveTheirNotesOfTheFirstSourceThatHasSome) {
  const std::map<std::string, std::string> dir = {
      {"branch.acl", "interface eth1\n description of the branch\n shutdown\ninterface eth7\n shutdown\n"}};
  agent_.start("interface eth1\n description to the partners\ninterface eth2\n no shutdown\n", &dir);
  const Json document = agent_.show("interfaces");
  const Json& all = document.at("interfaces");
  EXPECT_EQ(all.at("eth1").dump(), R"({"bindings":[],"description":"to the partners"})");
  EXPECT_EQ(all.at("eth7").dump(), R"({"bindings":[],"shutdown":true})");
  EXPECT_FALSE(all.contains("eth2"));
  EXPECT_THAT(text("interfaces"), HasSubstr("\neth1: to the partners\n"
                                            "eth7: shutdown is kept and has no effect: traffic goes on\n"));
}

TEST_F(ShowTest, AListThatGoesWhileItIsShownLeavesWholeJson) {
  std::string many;
  for (int list = 0; list < 3; ++list) {
    many += "ip access-list L" + std::to_string(list) + "\n";
    for (int i = 0; i < 2000; ++i) many += " permit udp any any eq " + std::to_string(i) + "\n";
  }
  agent_.start(many);
  for (const char* what : {"access-lists", "status", "counters"}) {
    Agent::Session session(agent_.plane().operations());
    std::string wrong;
    const auto request = Agent::Request::read(Agent::lineOf({{"do", "show"}, {"what", what}}), &wrong);
    std::unique_ptr<Agent::Document> document;
    agent_.plane().operations().handle(*request, session, true,
                                       [&](Agent::Answer answer) { document = std::move(answer.document); });
    agent_.turnsUntil([&] { return document != nullptr; });
    ASSERT_TRUE(document);
    std::string shown;
    bool more = document->next(shown);
    EXPECT_TRUE(more || std::string(what) == "counters") << what << " is made in pieces";
    EXPECT_LT(shown.size(), 32u * 1024) << what << ": a piece is small";
    agent_.apply("ip access-list L2\n permit ip any any\n");
    agent_.turns();
    while (more) more = document->next(shown);
    EXPECT_TRUE(Json::accept(shown)) << what;
    agent_.apply(many);
    agent_.turns();
  }
}

TEST_F(ShowTest, TheProcessesThatHaveThePortsAreShown) {
  agent_.workersAre({{.number = 1, .pid = 4711, .serving = true, .starts = 1, .totals = {9, 540, 7, 2}},
                     {.number = 2, .pid = 0, .serving = false, .starts = 3, .totals = {}},
                     {.number = 3, .pid = 4713, .serving = false, .starts = 2, .totals = {}}});
  agent_.start(someLists);
  EXPECT_EQ(text("workers"),
            "worker   pid  state      starts  frames  passed  dropped\n"
            "     1  4711  serving         1       9       7        2\n"
            "     2     -  gone            3       0       0        0\n"
            "     3  4713  beginning       2       0       0        0\n");
  EXPECT_EQ(agent_.ask({{"do", "tail"}}).at("error").at("code"), "not-here");
}

TEST_F(ShowTest, AnAgentMayHaveItsPortsItself) {
  agent_.start(someLists);
  EXPECT_EQ(text("workers"), "the agent has its ports itself (velo run had no --workers)\n");
}

TEST_F(ShowTest, TracesAndTasksAreShown) {
  agent_.start(someLists);
  EXPECT_FALSE(agent_.ask({{"do", "trace"}, {"facility", "Velo::Acl/0"}}).contains("error"));
  agent_.receive("eth1", udpTo(53));
  EXPECT_FALSE(agent_.ask({{"do", "trace"}, {"off", true}}).contains("error"));
  EXPECT_THAT(text("trace"), HasSubstr("Matched acl A"));
  EXPECT_EQ(agent_.ask({{"do", "trace"}, {"facility", "Velo::Acl"}}).at("error").at("code"), "bad-request");
  EXPECT_THAT(text("tasks"), HasSubstr("Configuration"));
}

}  // namespace
