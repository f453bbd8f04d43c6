#include <agent/client/ControlClient.h>
#include <agent/control/ServerSocket.h>
#include <agent/core/Version.h>
#include <sys/stat.h>

#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

#include <filesystem>

namespace {

using namespace TestSupport;
using testing::HasSubstr;

class ControlServerTest : public testing::Test {
 protected:
  RunningAgent agent_;
};

TEST_F(ControlServerTest, AnswersALineWithALine) {
  agent_.start("ip access-list A\n permit ip any any\n", nullptr, unhurriedLimits());
  SocketClient client(agent_);
  client.send("{\"do\":\"show\",\"what\":\"drops\",\"id\":7}\n");
  EXPECT_EQ(client.line(),
            fmt::format(R"({{"id":7,"ok":true,"version":"{}","document":{{"cleared":null,"drops":{{}}}}}})",
                        Agent::version()));
  client.send("{\"do\":\"nothing\",\"id\":\"x\"}\n");
  EXPECT_EQ(
      client.line(),
      fmt::format(
          R"({{"id":"x","ok":false,"version":"{}","error":{{"code":"unknown-operation","text":"\"nothing\" is no operation"}}}})",
          Agent::version()));
  EXPECT_FALSE(client.closed()) << "a request that cannot be done is still a request";
}

TEST_F(ControlServerTest, RequestsMayComeInPiecesAndTogether) {
  agent_.start("", nullptr, unhurriedLimits());
  SocketClient client(agent_);
  client.send("{\"do\":\"show\",");
  agent_.turns();
  client.send("\"what\":\"drops\",\"id\":1}\n{\"do\":\"show\",\"what\":\"ports\",\"id\":2}\n{\"do\":\"sh");
  EXPECT_THAT(client.line(), HasSubstr("\"id\":1,\"ok\":true"));
  EXPECT_THAT(client.line(), HasSubstr("\"id\":2,\"ok\":true"));
  client.send("ow\",\"what\":\"tasks\",\"id\":3}\n");
  EXPECT_THAT(client.line(), HasSubstr("\"id\":3,\"ok\":true"));
}

TEST_F(ControlServerTest, WhatIsNoRequestIsAnsweredAndClosed) {
  agent_.start("", nullptr, unhurriedLimits());
  SocketClient garbage(agent_), large(agent_);
  garbage.send("GET / HTTP/1.1\r\n");
  EXPECT_THAT(garbage.line(), HasSubstr("\"bad-request\""));
  EXPECT_TRUE(garbage.closed());
  const std::string piece(16 * 1024, 'x');
  for (int i = 0; i < 5; ++i) {
    large.send(piece);
    agent_.turns();
  }
  EXPECT_THAT(large.line(), HasSubstr("\"too-large\""));
  EXPECT_TRUE(large.closed());
}

TEST_F(ControlServerTest, ALargeAnswerIsMadeAsItIsTaken) {
  std::string text = "ip access-list A\n";
  for (int i = 0; i < 20000; ++i)
    text += " permit udp any any eq 53 ttl eq " + std::to_string(i % 256) + "\n";
  agent_.start(text, nullptr, unhurriedLimits());
  SocketClient client(agent_);
  client.send("{\"do\":\"show\",\"what\":\"access-lists\"}\n");
  agent_.turns(2000);
  EXPECT_LT(agent_.plane().server().heldOctets(), 256u * 1024) << "a client that takes nothing holds little";
  std::string line = client.line();
  EXPECT_GT(line.size(), 2'000'000u);
  const Json answer = Json::parse(line);
  EXPECT_EQ(answer.at("document").at("lists").at(0).at("rules").size(), 20000u);
}

TEST_F(ControlServerTest, ADearFirstRequestIsNotPaidByThoseWhoComeIn) {
  std::string text;
  for (int i = 0; i < 1000; ++i) {
    text +=
        fmt::format("ip access-list L{0}\n permit ip any any\ninterface e{0}\n ip access-group L{0} in\n", i);
  }
  agent_.start(text, nullptr, unhurriedLimits());
  for (int i = 0; i < 5; ++i) {
    SocketClient client(agent_);
    client.send("{\"do\":\"show\",\"what\":\"interfaces\"}\n");
    EXPECT_THAT(client.line(), HasSubstr("\"ok\":true"));
  }
  const auto& server = agent_.plane().server();
  EXPECT_LT(server.strangerSeconds(), server.clientSeconds() / 2);
}

TEST_F(ControlServerTest, WhoIsSilentOrSlowIsClosedAfterATime) {
  agent_.start("ip access-list A\n", nullptr, unhurriedLimits());
  SocketClient silent(agent_), half(agent_), deaf(agent_), good(agent_);
  half.send("{\"do\":");
  for (int i = 0; i < 400; ++i) deaf.send("{\"do\":\"show\",\"what\":\"capabilities\"}\n");
  agent_.turns(5000);
  const auto ask = [&] {
    good.send("{\"do\":\"show\",\"what\":\"drops\"}\n");
    EXPECT_NE(good.line(), "");
  };
  ask();
  EXPECT_EQ(agent_.plane().server().clientCount(), 4u);
  for (int i = 0; i < 6; ++i) agent_.advance(2);
  ask();
  EXPECT_FALSE(silent.closed()) << "silence is allowed for a minute";
  EXPECT_TRUE(half.closed()) << "half a line for ten seconds";
  EXPECT_EQ(agent_.plane().server().clientCount(), 2u) << "an answer has to be taken within ten seconds, too";
  for (int i = 0; i < 28; ++i) {
    agent_.advance(2);
    ask();
  }
  EXPECT_TRUE(silent.closed());
  EXPECT_FALSE(good.closed()) << "whoever asks stays";
}

TEST_F(ControlServerTest, WhoTakesSomeOfAnAnswerHasTimeForTheNextOfIt) {
  std::string text = "ip access-list A\n";
  for (int i = 0; i < 20000; ++i) text += fmt::format(" permit udp any any eq 53 ttl eq {}\n", i % 256);
  agent_.start(text, nullptr, unhurriedLimits());
  const auto& server = agent_.plane().server();
  SocketClient client(agent_);
  client.send("{\"do\":\"show\",\"what\":\"access-lists\"}\n");
  agent_.turns(500);
  for (int i = 0; i < 4; ++i) {
    client.receive();
    agent_.turns(500);
    agent_.advance(8);
    ASSERT_EQ(server.clientCount(), 1u) << "after " << 8 * (i + 1) << " s";
  }
  ASSERT_EQ(client.arrived().find('\n'), std::string::npos) << "there is more";
  agent_.advance(1.1);
  EXPECT_EQ(server.clientCount(), 1u) << "nothing for 9.1 s";
  agent_.advance(1.1);
  EXPECT_EQ(server.clientCount(), 0u) << "nothing for 10.2 s";
}

TEST_F(ControlServerTest, TheTimeThatAnAnswerTakesIsNotTheClients) {
  const auto list = [](int number, const char* action) {
    std::string text = fmt::format("ip access-list A{}\n", number);
    for (int port = 1; port <= 2000; ++port) text += fmt::format(" {} udp any any eq {}\n", action, port);
    return text;
  };
  std::string before;
  for (int i = 0; i < 6; ++i) before += list(i, "permit");
  agent_.start(before, nullptr, unhurriedLimits());
  const auto& server = agent_.plane().server();
  SocketClient client(agent_);
  for (int i = 0; i < 6; ++i) {
    client.send(
        Agent::lineOf({{"do", "text"}, {"name", fmt::format("{}.acl", i)}, {"text", list(i, "deny")}}) +
        "\n");
    ASSERT_THAT(client.line(), HasSubstr("\"ok\":true"));
  }
  client.send("{\"do\":\"apply\",\"dryRun\":true}\n");
  const auto& configuration = agent_.plane().configuration();
  agent_.turnsUntil([&] { return configuration.busy(); });
  agent_.pass(100);
  agent_.turnsUntil([&] { return !configuration.busy(); });
  agent_.turns(500);
  agent_.advance(9);
  client.receive();
  ASSERT_EQ(client.arrived().find('\n'), std::string::npos) << "there is more";
  EXPECT_EQ(server.clientCount(), 1u) << "it was not kept waiting for nine seconds yet";
}

TEST_F(ControlServerTest, FurtherClientsTakeThePlaceOfTheQuietest) {
  Agent::ControlLimits limits = unhurriedLimits();
  limits.clients = 3;
  agent_.start("", nullptr, limits);
  SocketClient good(agent_);
  good.send("{\"do\":\"show\",\"what\":\"drops\"}\n");
  EXPECT_NE(good.line(), "");
  std::vector<std::unique_ptr<SocketClient>> silent;
  for (int i = 0; i < 20; ++i) {
    agent_.advance(0.01);
    silent.push_back(std::make_unique<SocketClient>(agent_));
    agent_.turns();
  }
  EXPECT_EQ(agent_.plane().server().clientCount(), 3u);
  EXPECT_TRUE(silent.front()->closed());
  EXPECT_FALSE(silent.back()->closed());
  EXPECT_FALSE(good.closed()) << "who has asked before is not pushed out by those who have not";
}

TEST_F(ControlServerTest, AppliesWhatTheProgramSends) {
  agent_.start("", nullptr, unhurriedLimits());
  SocketClient client(agent_);
  std::string text = "ip access-list A\n remark caf\xc3\xa9\n";
  for (int i = 0; i < 3000; ++i) text += " permit udp any any eq 53\n";
  int pieces = 0;
  for (const Json& request : Agent::textRequests("a.acl", text)) {
    client.send(Agent::lineOf(request) + "\n");
    EXPECT_THAT(client.line(), HasSubstr("\"ok\":true"));
    ++pieces;
  }
  EXPECT_GT(pieces, 5) << "a line is not long enough for all";
  client.send("{\"do\":\"apply\"}\n");
  EXPECT_THAT(client.line(), HasSubstr("\"applied\":true"));
  EXPECT_EQ(agent_.show("access-lists").at("lists").at(0).at("rules").size(), 3000u);
}

TEST_F(ControlServerTest, AClientThatGoesBeforeItsAnswerIsForgotten) {
  agent_.start("", nullptr, unhurriedLimits());
  for (int i = 0; i < 5; ++i) {
    SocketClient client(agent_);
    client.send("{\"do\":\"text\",\"name\":\"a\",\"text\":\"ip access-list A\\n\"}\n{\"do\":\"apply\"}\n");
    agent_.turns(3);
  }
  agent_.turnsUntil(
      [&] { return agent_.plane().server().clientCount() == 0 && !agent_.plane().configuration().busy(); });
  EXPECT_EQ(agent_.plane().operations().heldOctets(), 0u);
}

TEST_F(ControlServerTest, TheSocketIsForOwnerAndGroup) {
  agent_.start("");
  struct stat file {};
  ASSERT_EQ(stat(agent_.socketPath().c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0777, 0660u);
}

TEST(ServerSocket, ReplacesAStaleFileOnly) {
  const TempDir dir;
  const std::string path = dir / "deep/socket";
  {
    Agent::ServerSocket first, second;
    EXPECT_FALSE(first.listen(path));
    const auto wrong = second.listen(path);
    ASSERT_TRUE(wrong);
    EXPECT_THAT(*wrong, HasSubstr("another agent listens there"));
    EXPECT_TRUE(std::filesystem::exists(path)) << "the other's file stays";
    std::filesystem::rename(path, dir / "moved");
  }
  EXPECT_TRUE(std::filesystem::exists(dir / "moved")) << "only its own file at its own place is removed";
  std::filesystem::rename(dir / "moved", path);
  {
    Agent::ServerSocket again;
    const auto wrong = again.listen(path);
    EXPECT_FALSE(wrong) << *wrong;
  }
  EXPECT_FALSE(std::filesystem::exists(path)) << "removed at the end";
  writeFile(dir / "file", "text");
  Agent::ServerSocket file, longName;
  EXPECT_THAT(*file.listen(dir / "file"), HasSubstr("is no socket"));
  EXPECT_THAT(*longName.listen(dir / std::string(200, 'x')), HasSubstr("too long"));
}

}  // namespace
