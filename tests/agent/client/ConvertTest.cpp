#include <gmock/gmock.h>

#include <future>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

// Documents of other models in the place of texts, and written, by the real program.

namespace {

using namespace TestSupport;
using testing::HasSubstr;

constexpr std::string_view openConfigDocument =
    R"({"openconfig-acl:acl": {"acl-sets": {"acl-set": [{"name": "A", "type": "ACL_IPV4", "config": {"name": "A", "type": "ACL_IPV4"},
  "acl-entries": {"acl-entry": [{"sequence-id": 10, "config": {"sequence-id": 10}, "actions": {"config": {"forwarding-action": "ACCEPT"}}}]}}]}}})";

TEST(Convert, ReadsAnyModelAndWritesAnother) {
  const TempDir dir;
  writeFile(dir / "a.json", openConfigDocument);
  const Ran text = runVelo({"convert", "--to", "text", dir / "a.json"});
  EXPECT_EQ(text.status, 0) << text.err;
  EXPECT_EQ(text.out, "ip access-list A\n   10 permit ip any any\n");
  writeFile(dir / "b.json", runVelo({"convert", "--to", "sonic", dir / "a.json"}).out);
  EXPECT_EQ(runVelo({"convert", "--to", "text", dir / "b.json"}).out, text.out);

  writeFile(dir / "c.acl",
            std::string_view("ip access-list A\n 10 deny ip any any fragments\n 20 permit ip any any\n"));
  const Ran refused = runVelo({"convert", "--to", "sonic", "--lossy", dir / "c.acl"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.out, "");
  EXPECT_THAT(
      refused.err,
      HasSubstr("ip access-list A rule 10 (deny ip any any fragments): sonic cannot say later fragments"));

  writeFile(dir / "d.json", std::string_view("{\"openconfig-acl:acl\": {\n\"x\": 1}}"));
  const Ran wrong = runVelo({"convert", "--to", "text", dir / "d.json"});
  EXPECT_EQ(wrong.status, 2);
  EXPECT_THAT(wrong.err, HasSubstr("d.json:2:1: found the unknown /openconfig-acl:acl/x, expected"));
  EXPECT_EQ(runVelo({"convert", "--to", "toml", dir / "a.json"}).status, 2);
}

TEST(Convert, DocumentsAreChecked) {
  const TempDir dir;
  writeFile(dir / "a.json", openConfigDocument);
  const Ran checked = runVelo({"check", dir / "a.json"});
  EXPECT_EQ(checked.status, 0) << checked.err;
  EXPECT_THAT(checked.out, HasSubstr("no mistake: 1 list, 1 rule, 0 bindings"));
}

TEST(Convert, AnAgentTakesAndShowsDocuments) {
  const TempDir dir;
  writeFile(dir / "a.json", openConfigDocument);
  RunningAgent agent;
  agent.start("ip access-list A\n 10 permit udp any any eq 1\n", nullptr, unhurriedLimits());
  const auto run = [&](std::vector<std::string> command) {
    command.insert(command.end(), {"--control", agent.socketPath()});
    auto ran = std::async(std::launch::async, [&command] { return runVelo(command); });
    while (ran.wait_for(std::chrono::milliseconds(1)) != std::future_status::ready) agent.turns(5);
    return ran.get();
  };
  const Ran applied = run({"apply", dir / "a.json"});
  EXPECT_EQ(applied.status, 0) << applied.err;
  EXPECT_THAT(run({"show", "configuration"}).out, HasSubstr("10 permit ip any any"));
  const Ran shown = run({"show", "configuration", "--format", "openconfig"});
  EXPECT_EQ(shown.status, 0) << shown.err;
  writeFile(dir / "b.json", shown.out);
  EXPECT_EQ(runVelo({"convert", "--to", "text", dir / "b.json"}).out,
            "ip access-list A\n   10 permit ip any any\n");
}

}  // namespace
