#include <agent/show/Shows.h>
#include <malloc.h>

#include "../../support/Sanitizers.h"
#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;

class OperationsTest : public testing::Test {
 protected:
  /// Matches on receipt of a rule.
  uint64_t matches(const char* list, uint32_t sequence) {
    const Json shown = agent_.show("access-lists", list);
    for (const Json& one : shown.at("lists")) {
      for (const Json& rule : one.at("rules")) {
        if (rule.at("sequence") == sequence) return rule.at("matches").at("in").get<uint64_t>();
      }
    }
    return ~uint64_t{0};
  }
  std::string codeOf(const Json& answer) {
    return answer.contains("error") ? answer.at("error").at("code").get<std::string>() : "";
  }
  RunningAgent agent_;
};

TEST_F(OperationsTest, WhatCannotBeDoneIsRefusedWithACode) {
  agent_.start(
      "ip access-list A\n permit ip any any\ninterface eth1\n ip access-group BOUND in\n"
      "port-channel po1 members eth1\n");
  struct Row {
    const char* why;
    Json request;
    bool mayChange;
    const char* code;
  };
  for (const Row& row : {
           Row{"no operation", Json::object(), true, "bad-request"},
           Row{"an operation that is no text", {{"do", 5}}, true, "bad-request"},
           Row{"an operation that there is not", {{"do", "shutdown"}}, true, "unknown-operation"},
           Row{"a show that there is not", {{"do", "show"}, {"what", "secrets"}}, true, "unknown-show"},
           Row{"showing is for everybody", {{"do", "show"}, {"what", "drops"}}, false, ""},
           Row{"explaining is, too",
               {{"do", "explain"}, {"port", "eth1"}, {"frame", "arp 192.0.2.1 > 192.0.2.2"}},
               false,
               ""},
           Row{"clearing is not", {{"do", "clear"}}, false, "not-allowed"},
           Row{"tracing is not", {{"do", "trace"}, {"off", true}}, false, "not-allowed"},
           Row{"texts take memory", {{"do", "text"}, {"name", "a"}, {"text", ""}}, false, "not-allowed"},
           Row{"applying is not", {{"do", "apply"}}, false, "not-allowed"},
           Row{"applying without a text would take everything away", {{"do", "apply"}}, true, "bad-request"},
           Row{"a text without a name", {{"do", "text"}, {"text", "x"}}, true, "bad-request"},
           Row{"a list that there is not", {{"do", "clear"}, {"name", "NONE"}}, true, "not-found"},
           Row{"nor to be shown",
               {{"do", "show"}, {"what", "access-lists"}, {"name", "NONE"}},
               true,
               "not-found"},
           Row{"nor its counters",
               {{"do", "show"}, {"what", "counters"}, {"name", "NONE"}},
               true,
               "not-found"},
           Row{"names of lists have a case",
               {{"do", "show"}, {"what", "access-lists"}, {"name", "a"}},
               true,
               "not-found"},
           Row{"a list that is bound without being defined is something to show",
               {{"do", "show"}, {"what", "access-lists"}, {"name", "BOUND"}},
               true,
               ""},
           Row{"a port that there is not: nothing would ever come in there",
               {{"do", "explain"}, {"port", "eth7"}, {"frame", "arp 192.0.2.1 > 192.0.2.2"}},
               true,
               "not-found"},
           Row{"a port-channel is no way in either, its members are",
               {{"do", "explain"}, {"port", "po1"}, {"frame", "arp 192.0.2.1 > 192.0.2.2"}},
               true,
               "not-found"},
           Row{"a frame without a port", {{"do", "explain"}, {"frame", "00"}}, true, "bad-request"},
           Row{"a port without a frame", {{"do", "explain"}, {"port", "eth1"}}, true, "bad-request"},
           Row{"a file of the agent's own",
               {{"do", "explain"}, {"port", "eth1"}, {"frame", "/etc/passwd"}},
               true,
               "bad-request"},
           Row{"a trace without a level", {{"do", "trace"}, {"facility", "Velo::Acl"}}, true, "bad-request"},
       }) {
    Agent::Session session(agent_.plane().operations());
    EXPECT_EQ(codeOf(agent_.ask(row.request, session, row.mayChange)), row.code) << row.why;
  }
}

TEST_F(OperationsTest, WhatIsNotAsDeclaredIsRefusedByNameAndDoesNothing) {
  agent_.start("ip access-list A\n 10 permit ip any any\ninterface eth1\n ip access-group A in\n");
  agent_.receive("eth1", udpTo(53));
  const std::string text = "ip access-list B\n 10 permit ip any any\n";
  ASSERT_FALSE(agent_.ask({{"do", "text"}, {"name", "b"}, {"text", text}}).contains("error"));
  struct Row {
    const char* why;
    Json request;
    const char* named;  ///< the member that the refusal is about
  };
  for (const Row& row : {
           Row{"a text that says true", {{"do", "apply"}, {"dryRun", "true"}}, "dryRun"},
           Row{"a number for yes", {{"do", "apply"}, {"dryRun", 1}}, "dryRun"},
           Row{"another spelling", {{"do", "apply"}, {"dryrun", true}}, "dryrun"},
           Row{"a list that is a number", {{"do", "clear"}, {"name", 5}}, "name"},
           Row{"a list without a name", {{"do", "clear"}, {"name", ""}}, "name"},
           Row{"a list that is null", {{"do", "clear"}, {"name", nullptr}}, "name"},
           Row{"another word for it", {{"do", "clear"}, {"list", "A"}}, "list"},
           Row{"a text in place of octets",
               {{"do", "explain"}, {"port", "eth1"}, {"frame", "00"}, {"wireLength", "60"}},
               "wireLength"},
           Row{"more octets than a frame can have",
               {{"do", "explain"}, {"port", "eth1"}, {"frame", "00"}, {"wireLength", uint64_t{1} << 32}},
               "wireLength"},
           Row{"a length of a frame that is a text",
               {{"do", "explain"},
                {"port", "eth1"},
                {"frame", "arp 192.0.2.1 > 192.0.2.2"},
                {"wireLength", 60}},
               "wireLength"},
           Row{"a frame that is a number", {{"do", "explain"}, {"port", "eth1"}, {"frame", 0}}, "frame"},
           Row{"no frame", {{"do", "explain"}, {"port", "eth1"}}, "frame"},
           Row{"no port", {{"do", "explain"}, {"frame", "00"}}, "port"},
           Row{"nothing to show", {{"do", "show"}}, "what"},
           Row{"everything to show", {{"do", "show"}, {"what", true}}, "what"},
           Row{"a name where none is taken", {{"do", "show"}, {"what", "drops"}, {"name", "A"}}, "name"},
           Row{"a text without text", {{"do", "text"}, {"name", "b"}}, "text"},
           Row{"a text without a name", {{"do", "text"}, {"name", ""}, {"text", "x"}}, "name"},
           Row{"a trace of nothing", {{"do", "trace"}}, "facility"},
           Row{"two traces at once",
               {{"do", "trace"}, {"facility", "Velo::Acl/0"}, {"off", true}},
               "facility"},
           Row{"on of nothing", {{"do", "trace"}, {"off", true}, {"on", true}}, "on"},
           Row{"what to do is no text", {{"do", true}}, "do"},
       }) {
    const Json answer = agent_.ask(row.request);
    EXPECT_EQ(codeOf(answer), "bad-request") << row.why;
    EXPECT_NE(answer.dump().find(row.named), std::string::npos) << row.why << ": " << answer;
    EXPECT_EQ(agent_.show("access-lists").at("lists").at(0).at("name"), "A") << row.why;
    EXPECT_EQ(matches("A", 10), 1u) << row.why;
    EXPECT_EQ(agent_.plane().operations().heldOctets(), text.size() + sizeof(Config::Source) + 1)
        << row.why << ": the text is kept";
  }
  EXPECT_EQ(codeOf(agent_.ask({{"do", "apply"}, {"dryRun", true}})), "") << "as it should have been said";
  EXPECT_EQ(agent_.show("access-lists").at("lists").at(0).at("name"), "A");
}

TEST_F(OperationsTest, AListThatThereIsNotIsToldWithTheNamesThatComeNear) {
  agent_.start("ip access-list EDGE\ninterface eth1\n ip access-group UNDEFINED in\n");
  const auto told = [this](const Json& request) { return agent_.ask(request).at("error").at("text"); };
  EXPECT_EQ(told({{"do", "show"}, {"what", "access-lists"}, {"name", "EGDE"}}),
            "there is no list EGDE (did you mean EDGE?)");
  EXPECT_EQ(told({{"do", "clear"}, {"name", "UNDEFIND"}}),
            "there is no list UNDEFIND (did you mean UNDEFINED?)");
  EXPECT_EQ(told({{"do", "clear"}, {"name", "NOTHING-LIKE-IT"}}), "there is no list NOTHING-LIKE-IT");
}

TEST_F(OperationsTest, APortThatThereIsNotIsToldWithTheNamesThatComeNear) {
  agent_.start("port-channel po1 members uplink downlink\n");
  const auto told = [this](const char* port) {
    return agent_.ask({{"do", "explain"}, {"port", port}, {"frame", "arp 192.0.2.1 > 192.0.2.2"}})
        .at("error")
        .at("text");
  };
  EXPECT_EQ(told("uplnk"), "there is no port uplnk (did you mean uplink?)");
  EXPECT_EQ(told("eth7"), "there is no port eth7");
}

TEST_F(OperationsTest, TextsAreAccountedForAndBounded) {
  agent_.start("");
  auto& operations = agent_.plane().operations();
  const std::string text(1 << 20, '!');
  {
    Agent::Session one(operations), two(operations);
    EXPECT_EQ(agent_.ask({{"do", "text"}, {"name", "a"}, {"text", text}}, one, true).at("octets"),
              text.size());
    constexpr size_t ofName = sizeof(Config::Source) + 1;
    EXPECT_EQ(operations.heldOctets(), text.size() + ofName);
    for (int i = 0; i < 62; ++i) agent_.ask({{"do", "text"}, {"name", "a"}, {"text", text}}, two, true);
    EXPECT_EQ(operations.heldOctets(), 63 * text.size() + 2 * ofName);
    EXPECT_EQ(codeOf(agent_.ask({{"do", "text"}, {"name", "a"}, {"text", text}}, one, true)), "too-large")
        << "what others hold counts";
    EXPECT_EQ(operations.heldOctets(), 62 * text.size() + ofName)
        << "whoever asked for too much has nothing left";
  }
  EXPECT_EQ(operations.heldOctets(), 0u);
  // As many octets again, which take long to watch.
  if (!sanitizers) {
    Agent::Session names(operations);
    int taken = 0;
    for (Json answer; taken < 2000; ++taken) {
      answer =
          agent_.ask({{"do", "text"}, {"name", fmt::format("{:060000}", taken)}, {"text", ""}}, names, true);
      if (codeOf(answer) == "too-large") break;
      ASSERT_EQ(answer.at("octets"), 0u);
    }
    EXPECT_EQ(taken, (64 << 20) / (60000 + static_cast<int>(sizeof(Config::Source)))) << "names count, too";
  }
  EXPECT_EQ(operations.heldOctets(), 0u) << "with a session its texts go";
}

#ifdef __GLIBC__
TEST_F(OperationsTest, NamesOfPortsThatThereAreNotAreNotKept) {
  agent_.start("interface eth1\n");
  const auto heap = [] { return mallinfo2().uordblks; };
  const auto ask = [this](int number) {
    return agent_.ask({{"do", "explain"},
                       {"port", fmt::format("{:010000}", number)},
                       {"frame", "arp 192.0.2.1 > 192.0.2.2"}});
  };
  ask(1);
  const size_t before = heap();
  for (int i = 2; i < 1002; ++i) ASSERT_EQ(codeOf(ask(i)), "not-found");
  EXPECT_LT(heap(), before + (1 << 20));
}
#endif

TEST_F(OperationsTest, SeveralTextsAreOneConfigurationInTheirOrder) {
  agent_.start("");
  agent_.ask({{"do", "text"}, {"name", "a"}, {"text", "ip access-list A\n 10 per"}});
  agent_.ask({{"do", "text"}, {"name", "a"}, {"text", "mit ip any any\n"}});
  agent_.ask({{"do", "text"}, {"name", "b"}, {"text", " 20 deny udp any an\n"}});
  const Json wrong = agent_.ask({{"do", "apply"}});
  EXPECT_EQ(codeOf(wrong), "mistakes");
  EXPECT_EQ(wrong.at("error").at("mistakes").at(0).get<std::string>().substr(0, 7), "b:1:18:") << wrong;
  EXPECT_TRUE(agent_.show("access-lists").at("lists").empty()) << "whole or not at all";
  EXPECT_EQ(codeOf(agent_.ask({{"do", "apply"}})), "bad-request") << "the texts are used up";
}

TEST_F(OperationsTest, ClearedCountersCountFromThereOn) {
  agent_.start(
      "ip access-list A\n 10 permit udp any any eq 53\n 20 deny ip any any\nip access-list B\n 10 permit ip "
      "any any\n"
      "interface eth1\n ip access-group A in\ninterface eth2\n ip access-group B in\n");
  for (int i = 0; i < 5; ++i) agent_.receive("eth1", udpTo(53));
  for (int i = 0; i < 3; ++i) agent_.receive("eth2", udpTo(53));
  agent_.receive("eth1", udpTo(99));
  agent_.advance(2);
  const Json statusBefore = agent_.show("status").at("status");

  EXPECT_FALSE(agent_.ask({{"do", "clear"}, {"name", "A"}}).contains("error"));
  EXPECT_EQ(matches("A", 10), 0u);
  EXPECT_EQ(matches("B", 10), 3u) << "only the list that was named";
  EXPECT_EQ(agent_.show("access-lists", "A").at("lists").at(0).at("cleared"), RunningAgent::startTime + 2);
  EXPECT_FALSE(agent_.show("access-lists", "B").at("lists").at(0).contains("cleared"));
  EXPECT_FALSE(agent_.show("drops").at("drops").empty()) << "drops are of no list";
  agent_.receive("eth1", udpTo(53));
  EXPECT_EQ(matches("A", 10), 1u);

  EXPECT_FALSE(agent_.ask({{"do", "clear"}}).contains("error"));
  EXPECT_EQ(matches("A", 10), 0u);
  EXPECT_EQ(matches("B", 10), 0u);
  EXPECT_TRUE(agent_.show("drops").at("drops").empty());
  EXPECT_EQ(agent_.show("ports").at("ports").at("eth1").at("received"), 0);
  EXPECT_EQ(agent_.show("ports").at("ports").at("eth1").at("nowhere"), 0) << "it has no other end";
  EXPECT_EQ(agent_.show("drops").at("cleared"), RunningAgent::startTime + 2);
  const Json counters = agent_.show("counters");
  for (const Json& counter : counters.at("counters")) EXPECT_EQ(counter.at("packets"), 0);
  EXPECT_EQ(agent_.core()
                .inForce()
                .status()
                ->status(Acl::AclType::ip)
                ->acl("B")
                ->ruleStatus()
                .begin()
                .value()
                .packets,
            3u)
      << "the status is not touched";
}

TEST_F(OperationsTest, CountersOfRulesThatAreGoneGoWithThem) {
  const std::map<std::string, std::string> files = {
      {"other", "ip access-list A\n 10 permit ip any any\ninterface eth1\n ip access-group A in\n"}};
  const std::string bound = "interface eth1\n ip access-group A in\n";
  agent_.start("", &files);
  const auto apply = [&](const std::string& text) {
    agent_.turnsUntil([&] { return !agent_.plane().configuration().busy(); });
    const Json done = agent_.apply(text);
    EXPECT_FALSE(done.contains("error")) << done;
    for (int i = 0; i < 3; ++i) agent_.advance(1.1);
  };
  agent_.receive("eth1", udpTo(53));  // meets the rule of the file
  apply("ip access-list A\n 10 permit udp any any eq 53\n 20 deny udp any any eq 99\n" + bound);
  for (int i = 0; i < 5; ++i) agent_.receive("eth1", udpTo(53));
  for (int i = 0; i < 3; ++i) agent_.receive("eth1", udpTo(99));
  agent_.receive("eth1", udpTo(7));  // the implicit drop
  agent_.advance(2);
  const auto counted = [&] { return agent_.show("counters").at("counters").size(); };
  const auto published = [&] {
    return agent_.show("status").at("status").at("status").at("ip").at("acl").at("A").at("ruleStatus").size();
  };
  EXPECT_EQ(counted(), 4u);

  apply("ip access-list A\n 10 permit udp any any eq 53\n 20 permit udp any any eq 99\n" + bound);
  EXPECT_EQ(counted(), 3u) << "that of the rule which was replaced is gone";
  EXPECT_EQ(matches("A", 10), 5u);
  EXPECT_EQ(agent_.show("access-lists", "A").at("lists").at(0).at("implicitDrop").at("matches").at("in"), 1);
  // The rule of the file, which is not in force, is published by its counter.
  EXPECT_EQ(published(), 3u);

  apply("ip access-list B\n");
  EXPECT_EQ(matches("A", 10), 1u) << "a rule that is in force again goes on from where it was";
  EXPECT_EQ(published(), 1u);

  // Of a rule that went while the counters were being copied.
  agent_.core().inForce().counters().front()->counterCollectionIs(
      {Acl::AclDirection::in, Acl::AclType::ip, "A", Kiv::UniqueId(77)});
  agent_.advance(1.1);
  EXPECT_EQ(published(), 2u);
  apply("ip access-list B\n 10 permit ip any any\n");
  EXPECT_EQ(published(), 1u);
}

TEST_F(OperationsTest, ARuleThatIsMadeAgainDoesNotInheritTheLine) {
  const char* with = "ip access-list A\n 10 permit udp any any\ninterface eth1\n ip access-group A in\n";
  agent_.start(with);
  for (int i = 0; i < 5; ++i) agent_.receive("eth1", udpTo(53));
  agent_.ask({{"do", "clear"}});
  agent_.apply("ip access-list A\n 20 permit ip any any\ninterface eth1\n ip access-group A in\n");
  agent_.apply(with);
  for (int i = 0; i < 2; ++i) agent_.receive("eth1", udpTo(53));
  EXPECT_EQ(matches("A", 10), 2u) << "five less would be nonsense, and so would be the five";
}

}  // namespace
