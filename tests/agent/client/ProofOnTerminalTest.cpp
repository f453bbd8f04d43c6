#include <gmock/gmock.h>
#include <poll.h>
#include <sys/resource.h>

#include <chrono>
#include <functional>

#include "../../support/Dice.h"
#include "../support/CaptureBytes.h"
#include "../support/PseudoTerminal.h"
#include "../support/Run.h"

// What people see while the real program proves something that takes long.

namespace {

using namespace TestSupport;
using testing::HasSubstr;
using testing::Not;

/// Whose wildcards have nothing in common: no computer has seen all of it.
std::string hardList() {
  Dice dice(1);
  std::string text = "ip access-list HARD\n";
  const auto octets = [&dice] {
    return fmt::format("{}.{}.{}.{}", dice.below(256), dice.below(256), dice.below(256), dice.below(256));
  };
  for (int i = 1; i <= 3000; ++i)
    text += fmt::format(" {} permit ip {} {} {} {}\n", i, octets(), octets(), octets(), octets());
  return text;
}

class ProofOnTerminalTest : public testing::Test {
 protected:
  ProofOnTerminalTest() { writeFile(path_, hardList()); }

  std::vector<std::string> search() const {
    return {"find", "permit", "HARD", "--all", "--config", path_, "--proof-seconds", "2.5"};
  }
  static void until(PseudoTerminal& terminal, const std::function<bool()>& so) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(60);
    while (!so()) {
      ASSERT_LT(std::chrono::steady_clock::now(), end) << terminal.text();
      terminal.receive();
      poll(nullptr, 0, 5);
    }
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "hard.acl";
};

TEST_F(ProofOnTerminalTest, TellsHowFarItHasComeAndGivesWay) {
  PseudoTerminal terminal(search(), {6, 100});
  until(terminal, [&] { return terminal.text().find("proving: ") != std::string::npos; });
  EXPECT_THAT(terminal.text(), testing::ContainsRegex("proving: [12] s, [0-9]+ MiB, [0-9]+ of 3000 rules"));
  EXPECT_GT(terminal.niceness(), getpriority(PRIO_PROCESS, 0)) << "packets of an agent come first";
  until(terminal, [&] { return terminal.ended(); });
  terminal.receive();
  EXPECT_THAT(terminal.text(), HasSubstr("not checked: ip packets: it takes more than 2.5 seconds"));
  EXPECT_THAT(terminal.text(), Not(HasSubstr("proving"))) << "the line goes when the answer comes";
  EXPECT_EQ(terminal.status(), 2);
}

TEST_F(ProofOnTerminalTest, SaysNothingElsewhere) {
  const Ran ran = runVelo(search());
  EXPECT_EQ(ran.err, "");
  EXPECT_EQ(ran.out, "not checked: ip packets: it takes more than 2.5 seconds\n");
}

}  // namespace
