#include <agent/metrics/Exposer.h>
#include <agent/metrics/Metrics.h>
#include <agent/metrics/Scrapes.h>
#include <arpa/inet.h>
#include <gmock/gmock.h>
#include <sys/socket.h>
#include <unistd.h>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

#include <atomic>
#include <chrono>
#include <thread>

// Threads ask, the loop answers.

namespace {

using namespace TestSupport;
using testing::HasSubstr;

/// What a server on this machine answers to a request for /metrics; empty when it does not.
std::string httpGet(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  std::string text;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) == 0) {
    const std::string_view request = "GET /metrics HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n\r\n";
    char part[4096];
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
      for (ssize_t got; (got = recv(fd, part, sizeof(part), 0)) > 0;)
        text.append(part, static_cast<size_t>(got));
    }
  }
  close(fd);
  return text;
}

class ScrapeTest : public testing::Test {
 protected:
  ScrapeTest() {
    agent_.start("ip access-list A\n 10 permit udp any any eq 10\ninterface eth1\n ip access-group A in\n");
    watched_.emplace(Agent::Watched{agent_.plane().operations().world(), agent_.loop(), changes_});
  }
  /// What a thread gets, while the loop turns.
  template <class Ask>
  auto asked(const Ask& ask) {
    decltype(ask()) result;
    std::atomic<bool> done = false;
    std::thread thread([&] {
      result = ask();
      done = true;
    });
    agent_.turnsUntil([&] { return done.load(); });
    thread.join();
    return result;
  }
  static double packets(const std::shared_ptr<const Agent::Samples>& samples) {
    return samples ? samples->front().front().value : -1;
  }

  RunningAgent agent_;
  Agent::ChangeCounts changes_;
  std::optional<Agent::Watched> watched_;
};

TEST_F(ScrapeTest, AThreadGetsWhatIsCountedByNow) {
  Agent::Scrapes scrapes(agent_.loop(), *watched_, Agent::RuleChoice::all);
  agent_.receive("eth1", udpTo(10));
  EXPECT_EQ(packets(asked([&] { return scrapes.take(); })), 1);
  agent_.receive("eth1", udpTo(10));
  EXPECT_EQ(packets(asked([&] { return scrapes.take(); })), 1) << "within a second the same is told";
  agent_.advance(2);
  EXPECT_EQ(packets(asked([&] { return scrapes.take(); })), 2);
}

TEST_F(ScrapeTest, NobodyWaitsBeyondTheEnd) {
  Agent::Scrapes scrapes(agent_.loop(), *watched_, Agent::RuleChoice::all);
  const auto begin = std::chrono::steady_clock::now();
  std::thread thread([&] { EXPECT_EQ(scrapes.take(), nullptr); });
  scrapes.stop();
  thread.join();
  // Whoever asks waits ten seconds for an answer.
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
}

TEST_F(ScrapeTest, ALongListTakesSeveralSlices) {
  std::string text = "ip access-list A\n";
  for (int i = 1; i <= 3000; ++i) text += fmt::format(" {} permit udp any any eq {}\n", i, i);
  ASSERT_FALSE(agent_.apply(text + "interface eth1\n ip access-group A in\n").contains("error"));
  Agent::Ledger ledger(100000);
  Agent::Gathering gathering(*watched_, Agent::RuleChoice::all, 10000, ledger);
  int pieces = 1;
  while (gathering.next()) ++pieces;
  EXPECT_GT(pieces, 90) << "a piece is some tens of rules";
  EXPECT_EQ(gathering.take().front().size(), 3000u);
}

TEST_F(ScrapeTest, TheServerTellsItInTheTextOfPrometheus) {
  agent_.receive("eth1", udpTo(10));
  Agent::Metrics metrics(agent_.loop(), *watched_, {.address = "127.0.0.1:0"});
  ASSERT_EQ(metrics.listen(), std::nullopt);
  const std::string place = metrics.place();
  const int port = std::stoi(place.substr(place.rfind(':') + 1));
  const std::string text = asked([&] { return httpGet(port); });
  EXPECT_THAT(text, HasSubstr("200 OK"));
  EXPECT_THAT(text, HasSubstr("# TYPE velo_rule_packets_total counter\n"));
  EXPECT_THAT(text, HasSubstr(R"(velo_rule_packets_total{list="A",kind="ip",rule="10",direction="in"} 1)"));
  EXPECT_THAT(text, HasSubstr("# HELP velo_loop_turns_total Turns of the event loop.\n"));
}

TEST_F(ScrapeTest, APlaceThatIsTakenIsNamed) {
  Agent::Metrics first(agent_.loop(), *watched_, {.address = "127.0.0.1:0"});
  ASSERT_EQ(first.listen(), std::nullopt);
  const std::string place = first.place();
  const std::string address = place.substr(7, place.rfind('/') - 7);
  Agent::Metrics second(agent_.loop(), *watched_, {.address = address});
  EXPECT_EQ(second.listen(), "nothing can listen at " + address);
}

/// A test of what another program says of a text; skipped where there is no such program.
class PromtoolTest : public ScrapeTest {};

TEST_F(PromtoolTest, FindsNothingWrongWithTheMetrics) {
  if (std::system("command -v promtool >/dev/null") != 0) GTEST_SKIP() << "there is no promtool";
  Agent::Metrics metrics(agent_.loop(), *watched_, {.address = "127.0.0.1:0"});
  ASSERT_EQ(metrics.listen(), std::nullopt);
  const std::string place = metrics.place();
  const int port = std::stoi(place.substr(place.rfind(':') + 1));
  const std::string answer = asked([&] { return httpGet(port); });
  const TempDir temp;
  writeFile(temp / "metrics", answer.substr(answer.find("# HELP velo_")));
  const std::string command = fmt::format("promtool check metrics <{0} >{0}.said 2>&1", temp / "metrics");
  EXPECT_EQ(std::system(command.c_str()), 0) << readFile(temp / "metrics.said");
  EXPECT_EQ(readFile(temp / "metrics.said"), "");
}

TEST_F(PromtoolTest, FindsTheAlertsToFireWhenTheyShould) {
  if (std::system("command -v promtool >/dev/null") != 0) GTEST_SKIP() << "there is no promtool";
  const TempDir temp;
  const std::string command =
      fmt::format("cd {}/tests/agent/metrics && promtool test rules alerts_test.yml >{} 2>&1",
                  VELO_SOURCE_DIR, temp / "said");
  EXPECT_EQ(std::system(command.c_str()), 0) << readFile(temp / "said");
}

}  // namespace
