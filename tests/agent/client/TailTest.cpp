#include <agent/client/TailText.h>
#include <agent/core/Document.h>
#include <gmock/gmock.h>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using testing::ElementsAre;
using testing::HasSubstr;

class TailTest : public testing::Test {
 protected:
  void SetUp() override {
    agent_.start(
        "ip access-list FROM-ALICE\n 10 deny udp any any eq 10\n 20 permit udp any any eq 20\n"
        " 30 permit udp any any eq 30\n"
        "ip access-list TO-BOB\n 10 deny udp any any eq 30\n 20 permit ip any any\n"
        "mac access-list LAYER2\n 5 permit any any\n"
        "interface eth1\n ip access-group FROM-ALICE in\n"
        "interface eth2\n ip access-group TO-BOB out\n",
        nullptr, unhurriedLimits());
    agent_.bridge({"eth1", "eth2", "eth3"});
  }
  std::string refusal(Json request, bool mayChange = true) {
    request["do"] = "tail";
    const Json answer = agent_.ask(request, agent_.session(), mayChange);
    return answer.contains("error") ? answer.at("error").at("text").get<std::string>() : "none";
  }
  Json frames() { return agent_.ask({{"do", "frames"}}); }
  const Agent::Tails& tails() { return agent_.plane().tails(); }

  RunningAgent agent_;
};

TEST_F(TailTest, TellsOfFramesSinceTheLastRequest) {
  EXPECT_EQ(agent_.ask({{"do", "tail"}, {"list", "FROM-ALICE"}}), Json({{"following", true}}));
  agent_.receive("eth1", udpTo(10));
  agent_.receive("eth3", udpTo(20));
  agent_.receive("eth1", udpTo(99));
  const Json first = frames();
  ASSERT_EQ(first.at("frames").size(), 2u);
  EXPECT_EQ(first.at("frames").at(0).at("sentence"),
            "dropped on its way in by rule 10 of FROM-ALICE on eth1");
  EXPECT_EQ(first.at("frames").at(1).at("sentence"),
            "dropped on its way in because no rule of FROM-ALICE on eth1 matches");
  EXPECT_EQ(first.at("passedOver"), 0);
  agent_.receive("eth1", udpTo(20));
  EXPECT_EQ(frames().at("frames").size(), 1u);
}

TEST_F(TailTest, MistakesNameWhatIsNearest) {
  struct Row {
    Json request;
    const char* refusal;
  };
  for (const Row& row : {
           Row{{{"list", "FROM-ALCIE"}}, "there is no list FROM-ALCIE (did you mean FROM-ALICE?)"},
           Row{{{"list", "NOTHING-LIKE-IT"}}, "there is no list NOTHING-LIKE-IT"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "15"}},
               "FROM-ALICE has no rule 15 (did you mean 10 or 20?)"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "5"}}, "FROM-ALICE has no rule 5 (did you mean 10?)"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "99"}}, "FROM-ALICE has no rule 99 (did you mean 30?)"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "0"}}, "FROM-ALICE has no rule 0 (did you mean 10?)"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "first"}}, "rule is the number of a rule, or implicit"},
           Row{{{"rule", "10"}}, "a rule is one of a list, and none is named"},
           Row{{{"octets", 16385}}, "octets is at most 16384"},
           Row{{{"list", "LAYER2"}, {"rule", "5"}}, "none"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "implicit"}}, "none"},
           Row{{{"list", "FROM-ALICE"}, {"rule", "30"}, {"drops", true}, {"octets", 16384}}, "none"},
       }) {
    EXPECT_EQ(refusal(row.request), row.refusal) << row.request;
  }
  EXPECT_THAT(refusal(Json::object(), false), HasSubstr("tail is for root"))
      << "what is on the wire is not for everybody";
}

TEST_F(TailTest, AMistakeLeavesWhatWasFollowed) {
  EXPECT_EQ(refusal({{"list", "FROM-ALICE"}}), "none");
  EXPECT_NE(refusal({{"list", "GONE"}}), "none");
  agent_.receive("eth1", udpTo(10));
  EXPECT_EQ(frames().at("frames").size(), 1u);
  EXPECT_EQ(refusal({{"drops", true}}), "none");
  agent_.receive("eth3", udpTo(20));
  agent_.receive("eth1", udpTo(10));
  EXPECT_EQ(frames().at("frames").size(), 1u) << "the later request holds";
  EXPECT_EQ(tails().size(), 1u);
}

TEST_F(TailTest, FramesAreForWhoHasAskedForThem) {
  EXPECT_THAT(frames().at("error").at("text").get<std::string>(), HasSubstr("who has asked for tail"));
}

TEST_F(TailTest, SoManyClientsCanLookAndNoMore) {
  std::vector<std::unique_ptr<SocketClient>> clients;
  for (size_t i = 0; i < Agent::Tails::most; ++i) {
    clients.push_back(std::make_unique<SocketClient>(agent_));
    clients.back()->send("{\"do\":\"tail\"}\n");
    EXPECT_THAT(clients.back()->line(), HasSubstr("\"ok\":true"));
  }
  EXPECT_EQ(refusal(Json::object()), "8 clients look at frames already");
  clients.front()->send("{\"do\":\"tail\",\"drops\":true}\n");
  EXPECT_THAT(clients.front()->line(), HasSubstr("\"ok\":true")) << "its own place is its own";
  clients.pop_back();
  agent_.turns();
  EXPECT_EQ(refusal(Json::object()), "none");
}

TEST_F(TailTest, TheAnswerWaitsForAFrame) {
  SocketClient client(agent_);
  client.send("{\"do\":\"tail\"}\n");
  EXPECT_NE(client.line(), "");
  client.send("{\"do\":\"frames\",\"id\":7}\n");
  agent_.turns();
  client.receive();
  EXPECT_EQ(client.arrived(), "");
  // Longer than a client may be silent.
  for (int i = 0; i < 50; ++i) agent_.advance(2);
  EXPECT_FALSE(client.closed());
  agent_.receive("eth1", udpTo(10));
  const std::string line = client.line();
  EXPECT_THAT(line, HasSubstr("\"id\":7,\"ok\":true,"));
  EXPECT_THAT(line, HasSubstr("\"frames\":[{\"time\":1.0,\"port\":\"eth1\",\"verdict\":\"drop\""));
}

TEST_F(TailTest, WhoGoesWhileItWaitsIsForgotten) {
  {
    SocketClient waiting(agent_), silent(agent_);
    for (SocketClient* client : {&waiting, &silent}) {
      client->send("{\"do\":\"tail\"}\n");
      EXPECT_NE(client->line(), "");
    }
    waiting.send("{\"do\":\"frames\"}\n");
    agent_.turns();
    EXPECT_EQ(tails().size(), 2u);
    EXPECT_TRUE(agent_.forwarder().hasObserver());
  }
  agent_.turns();
  EXPECT_EQ(tails().size(), 0u);
  EXPECT_FALSE(agent_.forwarder().hasObserver());
}

TEST_F(TailTest, NobodyWaitsForAClientThatDoesNotRead) {
  SocketClient deaf(agent_);
  deaf.send("{\"do\":\"tail\",\"octets\":1000}\n");
  EXPECT_NE(deaf.line(), "");
  deaf.send("{\"do\":\"frames\"}\n{\"do\":\"frames\"}\n");
  Bytes frame = udpTo(20);
  frame.resize(1000);
  uint64_t received = 0;
  for (int round = 0; round < 50; ++round) {
    for (int i = 0; i < 200; ++i, ++received) agent_.receive("eth3", frame);
    agent_.turns(20);
    EXPECT_LT(agent_.plane().server().heldOctets(), 256u * 1024);
  }
  // All that were received are told of, or passed over.
  uint64_t told = 0, passedOver = 0;
  const auto count = [&](const std::string& line) {
    const Json document = Json::parse(line).at("document");
    for (const Json& each : document.at("frames")) {
      ++told;
      passedOver += each.at("passedOver").get<uint64_t>();
    }
    passedOver += document.at("passedOver").get<uint64_t>();
  };
  count(deaf.line());
  count(deaf.line());
  while (told + passedOver < received) {
    deaf.send("{\"do\":\"frames\"}\n");
    const std::string line = deaf.line();
    ASSERT_NE(line, "") << told << " told, " << passedOver << " passed over";
    count(line);
  }
  EXPECT_EQ(told + passedOver, received);
  EXPECT_GT(told, 256u);
  EXPECT_GT(passedOver, 1000u);
}

TEST_F(TailTest, AChangeOfTheListsGoesOn) {
  agent_.ask({{"do", "tail"}, {"list", "FROM-ALICE"}, {"rule", "20"}});
  agent_.receive("eth1", udpTo(20));
  EXPECT_EQ(frames().at("frames").size(), 1u);
  agent_.apply(
      "ip access-list FROM-ALICE\n 20 permit udp any any eq 40\ninterface eth1\n ip access-group "
      "FROM-ALICE in\n");
  agent_.receive("eth1", udpTo(20));
  agent_.receive("eth1", udpTo(40));
  const Json told = frames();
  ASSERT_EQ(told.at("frames").size(), 1u) << told;
  EXPECT_THAT(told.at("frames").at(0).at("packet").get<std::string>(), HasSubstr(":40, "));
}

TEST_F(TailTest, ALineHasTimePortVerdictRulesAndPacket) {
  agent_.ask({{"do", "tail"}});
  for (const uint16_t port : {10, 20, 30, 99}) agent_.receive("eth1", udpTo(port));
  agent_.receive("eth3", udpTo(30));
  agent_.receive("eth2", udpTo(1));
  agent_.receive("eth2", Bytes(13));
  Agent::TailText text(false);
  std::string lines;
  const Json told = frames();
  for (const Json& frame : told.at("frames")) lines += text.lines(frame);
  EXPECT_EQ(
      lines,
      "00:00:01.000000  eth1  drop  FROM-ALICE 10         udp 192.0.2.1:1024 > 198.51.100.7:10, 42 octets\n"
      "00:00:01.000000  eth1  pass  FROM-ALICE 20, TO-BOB 20  udp 192.0.2.1:1024 > 198.51.100.7:20, 42 "
      "octets\n"
      "00:00:01.000000  eth1  pass  FROM-ALICE 30, not eth2: TO-BOB 10  udp 192.0.2.1:1024 > "
      "198.51.100.7:30, 42 octets\n"
      "00:00:01.000000  eth1  drop  FROM-ALICE implicit                 udp 192.0.2.1:1024 > "
      "198.51.100.7:99, 42 octets\n"
      "00:00:01.000000  eth3  pass  not eth2: TO-BOB 10                 udp 192.0.2.1:1024 > "
      "198.51.100.7:30, 42 octets\n"
      "00:00:01.000000  eth2  pass  -                                   udp 192.0.2.1:1024 > "
      "198.51.100.7:1, 42 octets\n"
      "00:00:01.000000  eth2  drop  (ethernet header cut short)         cut off, 13 octets, malformed: "
      "ethernet header cut short\n");
  Json frame = told.at("frames").at(0);
  frame["passedOver"] = 3;
  EXPECT_THAT(Agent::TailText(true).lines(frame),
              HasSubstr("... 3 packets passed over\n00:00:01.000000  eth1  \x1b[31mdrop\x1b[0m  FROM-ALICE "
                        "10         udp "));
  EXPECT_EQ(Agent::TailText::passedOver(1), "... 1 packet passed over\n");
  EXPECT_EQ(Agent::TailText::passedOver(0), "");
}

TEST_F(TailTest, ADropOnTheWayOutNamesTheListOfThePort) {
  agent_.patch("eth5", "eth6");
  agent_.apply(
      "ip access-list FROM-ALICE\n 5 permit ip any any\n"
      "ip access-list TO-BOB\n 10 deny udp any any eq 30\n 20 permit ip any any\n"
      "interface eth5\n ip access-group FROM-ALICE in\ninterface eth6\n ip access-group TO-BOB out\n");
  agent_.ask({{"do", "tail"}, {"drops", true}});
  agent_.receive("eth5", udpTo(30));
  EXPECT_THAT(Agent::TailText(false).lines(frames().at("frames").at(0)),
              HasSubstr("  eth5  drop  TO-BOB 10             udp "));
}

}  // namespace
