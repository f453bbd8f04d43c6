#include <gmock/gmock.h>
#include <poll.h>

#include <chrono>
#include <csignal>

#include "../support/PseudoTerminal.h"
#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;

/// The real program on a terminal, and an agent in this process that it asks.
class WatchTest : public testing::Test {
 protected:
  static constexpr PseudoTerminal::Size small{12, 60};

  void SetUp() override {
    std::string config;
    for (const char* list : {"A", "B", "C"}) {
      config += fmt::format("ip access-list {}\n", list);
      for (int rule = 1; rule <= 6; ++rule)
        config += fmt::format(" {} permit udp any any eq {}\n", 10 * rule, rule);
    }
    agent_->start(config + "interface eth1\n ip access-group A in\n", nullptr, unhurriedLimits());
    agent_->receive("eth1", udpTo(3));
  }
  std::vector<std::string> arguments(std::vector<std::string> more = {}) const {
    std::vector<std::string> all = {"show", "access-lists", "--control", agent_->socketPath()};
    all.insert(all.end(), more.begin(), more.end());
    return all;
  }
  /// Lets the agent and the program go on until something is so, for as long as that may take.
  bool until(PseudoTerminal& terminal, const std::function<bool()>& so) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (std::chrono::steady_clock::now() < end) {
      if (agent_) agent_->turns(5);
      terminal.receive();
      if (so()) return true;
      poll(nullptr, 0, 5);
    }
    ADD_FAILURE() << "it does not come; the screen has\n" << terminal.text();
    return false;
  }
  bool untilText(PseudoTerminal& terminal, const std::string& text) {
    return until(terminal, [&] { return terminal.text().find(text) != std::string::npos; });
  }
  bool untilEnd(PseudoTerminal& terminal) {
    return until(terminal, [&] { return terminal.ended(); });
  }

  std::unique_ptr<RunningAgent> agent_ = std::make_unique<RunningAgent>();
};

TEST_F(WatchTest, ShowsTheListsAsAFullScreenWithKeys) {
  PseudoTerminal terminal(arguments({"--watch", "0.2"}), small);
  ASSERT_TRUE(untilText(terminal, "q quit"));
  EXPECT_TRUE(terminal.full());
  EXPECT_FALSE(terminal.echoes());
  const auto rows = terminal.rows();
  EXPECT_THAT(rows[0], HasSubstr(" UTC  access-lists"));
  EXPECT_EQ(rows[1], "ip access-list A  (eth1 in)  from cli");
  EXPECT_THAT(rows[11], StartsWith("s sort: number  u unused  n next list  q quit  1-10 of "));
  terminal.type("n");
  ASSERT_TRUE(
      until(terminal, [&] { return terminal.rows()[1] == "ip access-list B  (bound nowhere)  from cli"; }));
  terminal.type("\x1b[B");
  ASSERT_TRUE(until(terminal, [&] { return terminal.rows()[1] == "   10 permit udp any any eq 1"; }));

  agent_->apply(
      "ip access-list 0-FIRST\n 10 permit ip any any\n 20 permit ip any any\n 30 permit ip any any\n"
      "ip access-list B\n 10 permit udp any any eq 1\n 20 deny ip any any\n 30 permit ip any any\n"
      " 40 permit ip any any\n 50 permit ip any any\n 60 permit ip any any\n");
  ASSERT_TRUE(untilText(terminal, "deny ip any any"));
  EXPECT_EQ(terminal.rows()[1], "   10 permit udp any any eq 1") << "it keeps its place in the list";

  terminal.type("q");
  ASSERT_TRUE(untilEnd(terminal));
  EXPECT_EQ(terminal.status(), 0);
  EXPECT_FALSE(terminal.full()) << "the screen is as it was";
  EXPECT_TRUE(terminal.echoes());
}

TEST_F(WatchTest, KeysSortAndSelect) {
  PseudoTerminal terminal(arguments({"A", "--watch", "60"}), small);
  ASSERT_TRUE(untilText(terminal, "s sort: number"));
  EXPECT_EQ(terminal.rows()[2], "   10 permit udp any any eq 1");
  terminal.type("s");
  ASSERT_TRUE(untilText(terminal, "s sort: hits"));
  EXPECT_EQ(terminal.rows()[2], "   30 permit udp any any eq 3") << "at once, not in a minute";
  terminal.type("s");
  ASSERT_TRUE(untilText(terminal, "s sort: last"));
  terminal.type("s");
  ASSERT_TRUE(untilText(terminal, "s sort: number"));
  terminal.type("u");
  ASSERT_TRUE(untilText(terminal, "u all rules"));
  EXPECT_THAT(terminal.text(), Not(HasSubstr("eq 3")));
  EXPECT_THAT(terminal.text(), HasSubstr("eq 4"));
  terminal.type("u");
  ASSERT_TRUE(untilText(terminal, "eq 3"));
  terminal.signal(SIGTERM);
  ASSERT_TRUE(untilEnd(terminal));
  EXPECT_EQ(terminal.status(), -SIGTERM);
  EXPECT_FALSE(terminal.full()) << "a signal leaves no screen behind";
  EXPECT_TRUE(terminal.echoes());
}

TEST_F(WatchTest, RatesComeWithTheSecondPicture) {
  PseudoTerminal terminal(arguments({"A", "--watch", "0.2"}), {30, 120});
  ASSERT_TRUE(untilText(terminal, "byte/s"));
  ASSERT_TRUE(until(terminal, [&] {
    agent_->receive("eth1", udpTo(2));
    for (const std::string& row : terminal.rows()) {
      if (row.find("20 permit") != row.npos) return row.find(" 0  ") == row.npos;
    }
    return false;
  }));
  terminal.signal(SIGINT);
  ASSERT_TRUE(untilEnd(terminal));
}

TEST_F(WatchTest, ItFollowsTheSizeOfTheTerminal) {
  PseudoTerminal terminal(arguments({"A", "--watch", "60"}), {12, 100});
  ASSERT_TRUE(untilText(terminal, "last match"));
  terminal.sizeIs({12, 40});
  ASSERT_TRUE(untilText(terminal, "in 1, out 0, bytes 42"));
  EXPECT_THAT(terminal.text(), Not(HasSubstr("last match")));
  terminal.type("q");
  ASSERT_TRUE(untilEnd(terminal));
}

TEST_F(WatchTest, AnyOtherShowIsWatchedToo) {
  PseudoTerminal terminal({"show", "drops", "--watch", "0.2", "--control", agent_->socketPath()}, small);
  ASSERT_TRUE(untilText(terminal, "nothing was dropped"));
  EXPECT_EQ(terminal.rows()[11], "q quit  1-1 of 1");
  agent_->receive("eth1", udpTo(99));
  ASSERT_TRUE(untilText(terminal, "1  No match on intf"));
  terminal.type("q");
  ASSERT_TRUE(untilEnd(terminal));
}

TEST_F(WatchTest, ColoursAreForTerminalsThatHaveThemAndUsersWhoWantThem) {
  struct Row {
    const char* why;
    std::map<std::string, std::string> environment;
    bool full, coloured;
  };
  for (const Row& row : {
           Row{"usually", {{"TERM", "xterm"}}, true, true},
           Row{"without colours, a full screen all the same",
               {{"TERM", "xterm"}, {"NO_COLOR", "1"}},
               true,
               false},
           Row{"an empty NO_COLOR says nothing", {{"TERM", "xterm"}, {"NO_COLOR", ""}}, true, true},
           Row{"a terminal that knows no sequences", {{"TERM", "dumb"}}, false, false},
           Row{"a terminal of which nothing is known", {}, false, false},
       }) {
    const auto coloured = [](const std::string& text) {
      return text.find("\x1b[1m") != text.npos || text.find("\x1b[2m") != text.npos;
    };
    PseudoTerminal once(arguments(), {40, 100}, row.environment);
    ASSERT_TRUE(untilEnd(once));
    once.receive();
    EXPECT_EQ(coloured(once.raw()), row.coloured) << row.why;
    EXPECT_THAT(once.text(), HasSubstr("ip access-list A")) << row.why;
    PseudoTerminal watch(arguments({"A", "--watch", "0.2"}), {40, 100}, row.environment);
    ASSERT_TRUE(until(watch, [&] { return watch.raw().find("byte/s") != std::string::npos; })) << row.why;
    EXPECT_EQ(watch.full(), row.full) << row.why;
    EXPECT_EQ(coloured(watch.raw()), row.coloured) << row.why;
    EXPECT_EQ(watch.raw().find('\x1b') != std::string::npos, row.full) << row.why;
    watch.signal(SIGTERM);
    ASSERT_TRUE(untilEnd(watch));
  }
}

TEST_F(WatchTest, WhenTheAgentGoesItSaysSoOnTheScreenFromBefore) {
  PseudoTerminal terminal(arguments({"--watch", "0.2"}), small);
  ASSERT_TRUE(untilText(terminal, "q quit"));
  agent_.reset();
  ASSERT_TRUE(untilEnd(terminal));
  terminal.receive();
  EXPECT_EQ(terminal.status(), 1);
  EXPECT_FALSE(terminal.full());
  EXPECT_THAT(terminal.text(), HasSubstr("velo: ")) << "why it has ended";
  EXPECT_TRUE(terminal.echoes());
}

TEST_F(WatchTest, ARefusalIsSeen) {
  PseudoTerminal refused({"show", "access-lists", "NONE", "--watch", "--control", agent_->socketPath()},
                         small);
  ASSERT_TRUE(untilEnd(refused));
  refused.receive();
  EXPECT_EQ(refused.status(), 2);
  EXPECT_THAT(refused.text(), HasSubstr("velo: there is no list NONE"));
  EXPECT_EQ(refused.raw().find("\x1b[?1049h"), std::string::npos);
}

}  // namespace
