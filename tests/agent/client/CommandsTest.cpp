#include <agent/show/Shows.h>
#include <gmock/gmock.h>
#include <poll.h>

#include <filesystem>
#include <future>

#include "../support/CaptureBytes.h"
#include "../support/PseudoTerminal.h"
#include "../support/RunningAgent.h"

// The real program, command by command, with an agent in this process that it asks.

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

class CommandsTest : public testing::Test {
 protected:
  using Arguments = std::vector<std::string>;

  void SetUp() override {
    writeFile(acl_,
              std::string_view(
                  "ip access-list A\n 10 permit udp any any eq 3\ninterface eth1\n ip access-group A in\n"));
    agent_.start(
        "ip access-list A\n 10 permit udp any any eq 1\n 20 permit udp any any eq 2\n"
        "interface eth1\n ip access-group A in\n",
        nullptr, unhurriedLimits());
    agent_.apply("ip access-list A\n 10 permit udp any any eq 1\ninterface eth1\n ip access-group A in\n");
  }
  Arguments asking(Arguments command) const {
    command.insert(command.end(), {"--control", agent_.socketPath()});
    return command;
  }
  /// Runs a command while the agent turns.
  Ran run(const Arguments& command) {
    auto ran = std::async(std::launch::async, [this, &command] { return runVelo(asking(command)); });
    while (ran.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) agent_.turns(5);
    return ran.get();
  }
  /// What a command writes on a terminal. Frames arrive meanwhile, for commands that wait for some.
  std::string onTerminal(const Arguments& command, const std::map<std::string, std::string>& environment) {
    PseudoTerminal terminal(command, {40, 100}, environment);
    while (!terminal.ended()) {
      agent_.receive("eth1", udpTo(99));
      agent_.turns(5);
      terminal.receive();
      poll(nullptr, 0, 2);
    }
    terminal.receive();
    EXPECT_EQ(terminal.status(), 0) << terminal.text();
    return terminal.raw();
  }

  TempDir dir_;
  const std::string acl_ = dir_ / "a.acl";
  RunningAgent agent_;
};

TEST_F(CommandsTest, ColoursAreForTerminalsThatHaveThemAndUsersWhoWantThem) {
  const std::string pcap = dir_ / "a.pcap";
  writeFile(pcap, pcapBytes({{1, 0, udpTo(99), 0}}));
  for (const Arguments& command : {
           asking({"show", "access-lists"}),
           asking({"show", "history", "2"}),
           asking({"history"}),
           asking({"apply", "--dry-run", acl_}),
           asking({"edit", "--dry-run", "A", "20 permit icmp any any"}),
           asking({"rollback", "--dry-run"}),
           asking({"explain", "--port", "eth1", "--in", "udp 192.0.2.1:1 > 192.0.2.2:99"}),
           asking({"tail", "--count", "1"}),
           {"replay", "--config", acl_, "--port", "eth1=" + pcap},
       }) {
    const auto coloured = [&](const std::map<std::string, std::string>& environment) {
      return onTerminal(command, environment).find('\x1b') != std::string::npos;
    };
    EXPECT_TRUE(coloured({{"TERM", "xterm"}})) << command[0];
    EXPECT_FALSE(coloured({{"TERM", "xterm"}, {"NO_COLOR", "1"}})) << command[0];
    EXPECT_FALSE(coloured({{"TERM", "dumb"}})) << command[0];
  }
}

TEST_F(CommandsTest, ARefusalIsADocumentToo) {
  const std::string bad = dir_ / "bad.acl", odd = dir_ / "odd.acl";
  writeFile(bad, std::string_view("ip access-list A\n permit\n 10 deny any\n"));
  writeFile(odd, std::string_view("ip access-list A\n 10 permit ip 192.0.2.1/24 any\n"));
  struct Row {
    Arguments command;
    const char* undone;
    const char* refused;
    size_t mistakes;
    bool warnings = false;
  };
  for (const Row& row : {
           Row{{"apply", bad}, "applied", "nothing was applied", 2},
           Row{{"apply", dir_ / "none.acl"}, "applied", "nothing was applied", 1},
           Row{{"apply", "--strict", odd}, "applied", "nothing was applied: ", 0, true},
           Row{{"edit", "A", "no 999"}, "applied", "nothing was applied", 1},
           Row{{"edit", "A", "no 10\nno 10"}, "applied", "a command is one line", 0},
           Row{{"edit", "B", "no 10"}, "applied", "nothing was applied", 1},
           Row{{"rollback", "99"}, "applied", "there is no change 99", 0},
           Row{{"confirm"}, "confirmed", "no change waits to be confirmed", 0},
       }) {
    Arguments command = row.command;
    command.push_back("--json");
    const Ran ran = run(command);
    EXPECT_EQ(ran.status, 2) << row.command[0];
    EXPECT_EQ(ran.err, "") << row.command[0];
    const Json document = Json::parse(ran.out, nullptr, false);
    ASSERT_TRUE(document.is_object()) << row.command[0] << ": " << ran.out;
    EXPECT_TRUE(document.contains("version")) << document;
    EXPECT_EQ(document.value(row.undone, true), false) << document;
    EXPECT_THAT(document.at("refused").get<std::string>(), HasSubstr(row.refused));
    EXPECT_EQ(document.at("mistakes").size(), row.mistakes) << document;
    EXPECT_EQ(!document.at("warnings").empty(), row.warnings) << document;
    EXPECT_NE(run(row.command).err, "") << "without --json it is told as text";
  }
}

TEST_F(CommandsTest, NothingToTellIsADocumentWithTheVersion) {
  const Ran ran = run({"trace", "--off", "--json"});
  EXPECT_EQ(ran.status, 0) << ran.err;
  EXPECT_TRUE(Json::parse(ran.out).contains("version")) << ran.out;
}

TEST_F(CommandsTest, EveryDocumentHasTheVersion) {
  const std::string pcap = dir_ / "a.pcap", frame = "udp 192.0.2.1:1 > 192.0.2.2:99";
  writeFile(pcap, pcapBytes({{1, 0, udpTo(99), 0}}));
  agent_.receive("eth1", udpTo(99));
  std::vector<Arguments> commands = {
      asking({"apply", acl_}),
      asking({"edit", "A", "20 permit icmp any any"}),
      asking({"rollback"}),
      asking({"save", dir_ / "saved"}),
      asking({"history"}),
      asking({"confirm"}),
      asking({"clear", "counters"}),
      asking({"trace", "--off"}),
      asking({"explain", "--port", "eth1", "--in", frame}),
      {"explain", "--config", acl_, "--port", "eth1", "--in", frame},
      {"check", acl_},
      {"log-messages"},
      {"replay", "--config", acl_, "--port", "eth1=" + pcap},
  };
  for (const Agent::Show& show : Agent::shows()) commands.push_back(asking({"show", std::string(show.name)}));
  for (Arguments& command : commands) {
    command.push_back("--json");
    auto ran = std::async(std::launch::async, [&command] { return runVelo(command); });
    while (ran.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) agent_.turns(5);
    const std::string out = ran.get().out;
    const Json document = Json::parse(out, nullptr, false);
    ASSERT_TRUE(document.is_object()) << command[0] << ": " << out;
    EXPECT_EQ(document.begin().key(), "version") << command[0] << " " << command[1];
  }
  // These go on until they are told to end.
  for (const Arguments& command :
       {asking({"tail", "--count", "1", "--json"}), asking({"show", "drops", "--watch", "0.2", "--json"})}) {
    PseudoTerminal terminal(command, {40, 400}, {});
    while (terminal.raw().find('\n') == std::string::npos && !terminal.ended()) {
      agent_.receive("eth1", udpTo(99));
      agent_.turns(5);
      terminal.receive();
      poll(nullptr, 0, 2);
    }
    terminal.receive();
    EXPECT_THAT(terminal.raw(), testing::StartsWith("{\"version\":")) << command[0];
  }
}

TEST_F(CommandsTest, SaysToSaveOnlyWhereThatHelps) {
  const std::string differs = "(a restart would not be the same: what is in force is not what ";
  const auto edited = [this](Arguments more = {}) {
    static int port = 100;
    Arguments command = {"edit", "A", fmt::format("20 permit udp any any eq {}", ++port)};
    command.insert(command.end(), more.begin(), more.end());
    return run(command).out;
  };
  EXPECT_THAT(edited(), HasSubstr("start.acl says; velo save)\n"));
  EXPECT_THAT(edited({"--save"}), Not(HasSubstr("a restart")));
  EXPECT_THAT(edited({"--confirm", "60"}), Not(HasSubstr("a restart would")));
  EXPECT_EQ(run({"confirm"}).status, 0);
  const Ran saved = run({"save"});
  EXPECT_THAT(saved.out, testing::MatchesRegex("saved in [^\n]*start.acl\n"));
  EXPECT_THAT(edited(), HasSubstr(differs));
}

TEST(Save, ThatCannotBeCarriedOutKeepsTheChangeFromBeing) {
  RunningAgent several;
  several.furtherConfigs = {"more.acl"};
  several.start("ip access-list A\n 10 permit udp any any eq 1\n", nullptr, unhurriedLimits());
  const std::vector<std::string> command = {"edit",   "A",         "20 permit udp any any eq 2",
                                            "--save", "--control", several.socketPath()};
  auto ran = std::async(std::launch::async, [&] { return runVelo(command); });
  while (ran.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) several.turns(5);
  const Ran refused = ran.get();
  EXPECT_EQ(refused.status, 2);
  EXPECT_THAT(refused.err, HasSubstr("the agent was given several files: leave --save out, and save with"));
  EXPECT_EQ(several.plane()
                .configuration()
                .sources()
                .find(Agent::commandLineName)
                ->lists.begin()
                ->second.rules.size(),
            1u);
}

TEST_F(CommandsTest, AMistypedShowIsToldWithTheNearest) {
  EXPECT_THAT(runVelo({"show", "conters"}).err, HasSubstr("(did you mean counters?)"));
  EXPECT_EQ(runVelo({"show", "conters"}).status, 2);
}

TEST_F(CommandsTest, SavesOnlyWhatIsThereToStayAndInAFile) {
  const std::string target = dir_ / "saved.acl";
  const auto refused = [&](const std::string& file, const std::string& why) {
    const Ran ran = run({"save", file});
    EXPECT_EQ(ran.status, 2) << file;
    EXPECT_EQ(ran.err, "velo: " + why + "\n");
    EXPECT_FALSE(std::filesystem::exists(file)) << file;
  };
  refused("-", "- is no file to save in (velo show configuration --source cli prints the text)");
  agent_.ask({{"do", "text"}, {"name", "t"}, {"text", "ip access-list A\n 10 permit udp any any eq 7\n"}});
  ASSERT_EQ(agent_.ask({{"do", "apply"}, {"confirm", 60}, {"allowOpen", true}}).at("applied"), true);
  refused(target,
          "a change waits to be confirmed, and is taken back in 60 s: velo confirm, or velo rollback");
  EXPECT_EQ(run({"confirm"}).status, 0);
  EXPECT_THAT(agent_.log(), testing::Contains(HasSubstr("cli not saved in " + target + " by uid ")));
  EXPECT_EQ(run({"save", target}).status, 0);
  EXPECT_THAT(agent_.log(), testing::Contains(HasSubstr("cli saved in " + target + " by uid ")));
  EXPECT_THAT(readFile(target), HasSubstr("10 permit udp any any eq 7"));
}

}  // namespace
