#include <agent/core/Version.h>
#include <agent/metrics/Gathering.h>
#include <gmock/gmock.h>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using Agent::RuleChoice;

constexpr const char* twoRules =
    "ip access-list A\n"
    " 10 permit udp any any eq 10\n"
    " 20 deny udp any any eq 20\n"
    "interface eth1\n"
    " ip access-group A in\n";

class MetricsTest : public testing::Test {
 protected:
  /// All values that are gathered now, by name and the values of the labels: "velo_port_up eth1".
  std::map<std::string, double> values(RuleChoice choice = RuleChoice::all,
                                       size_t most = Agent::mostRuleMetrics) {
    Agent::Gathering gathering(watched(), choice, most, ledger_);
    while (gathering.next()) {
    }
    std::map<std::string, double> found;
    const Agent::Samples samples = gathering.take();
    for (size_t row = 0; row < samples.size(); ++row) {
      for (const Agent::Sample& sample : samples[row]) {
        std::string name(Agent::metrics()[row].name);
        for (const std::string& label : sample.labels) name += label.empty() ? "" : " " + label;
        EXPECT_TRUE(found.emplace(name, sample.value).second) << name << " is there twice";
      }
    }
    return found;
  }
  const Agent::Watched& watched() {
    if (!watched_)
      watched_.emplace(
          Agent::Watched{agent_.plane().operations().world(), agent_.loop(), changes_, writes_, nullptr});
    return *watched_;
  }
  /// The series that begin so, with their values.
  static std::string startingWith(const std::string& prefix, const std::map<std::string, double>& values) {
    std::string text;
    for (const auto& [name, value] : values) {
      if (name.starts_with(prefix)) text += fmt::format("{}={}\n", name.substr(prefix.size()), value);
    }
    return text;
  }
  void receive(uint16_t port, int times) {
    for (int i = 0; i < times; ++i) agent_.receive("eth1", udpTo(port));
  }

  RunningAgent agent_;
  Agent::Ledger ledger_{100};
  Agent::ChangeCounts changes_;
  std::function<Agent::StateWriter::Writes()> writes_;
  std::optional<Agent::Watched> watched_;
};

TEST_F(MetricsTest, RulesTellPacketsAndOctetsWhereTheyAreMet) {
  agent_.start(twoRules);
  agent_.patch("eth1", "eth2");
  receive(10, 3);
  receive(20, 2);
  receive(30, 4);
  const auto found = values();
  EXPECT_EQ(startingWith("velo_rule_packets_total ", found), "A ip 10 in=3\nA ip 20 in=2\n");
  const size_t octets = udpTo(10).size();
  EXPECT_EQ(startingWith("velo_rule_bytes_total ", found),
            fmt::format("A ip 10 in={}\nA ip 20 in={}\n", 3 * octets, 2 * octets));
  EXPECT_EQ(startingWith("velo_implicit_drop_packets_total ", found), "A ip in=4\n");
  EXPECT_EQ(startingWith("velo_implicit_drop_bytes_total ", found), fmt::format("A ip in={}\n", 4 * octets));
  EXPECT_EQ(startingWith("velo_list_rules ", found), "A ip=2\n");
  EXPECT_EQ(startingWith("velo_list_bindings ", found), "A ip=1\n");
  EXPECT_EQ(startingWith("velo_list_source_info ", found), "A ip cli=1\n");
  EXPECT_EQ(startingWith("velo_list_lookup_ready ", found), "A ip=1\n");
  EXPECT_GT(found.at("velo_list_lookup_bytes A ip"), 0);
  EXPECT_GT(found.at("velo_list_lookup_compile_seconds A ip"), 0);
  EXPECT_EQ(startingWith("velo_port_dropped_frames_total eth1 ", found), "in=6\nout=0\n");
  EXPECT_THAT(startingWith("velo_drops_total ", found),
              testing::HasSubstr("Drop Velo::Acl dropping pkt=2\n"));
}

TEST_F(MetricsTest, RulesThatGetOtherNumbersOrAreReplacedMakeNoCounterJump) {
  agent_.start(twoRules);
  receive(10, 100);
  receive(20, 5);
  values();
  // What was 10 is 20 now, what was 20 is 30.
  ASSERT_FALSE(agent_
                   .apply("ip access-list A\n 20 permit udp any any eq 10\n 30 deny udp any any eq 20\n"
                          "interface eth1\n ip access-group A in\n")
                   .contains("error"));
  receive(10, 1);
  receive(20, 2);
  EXPECT_EQ(startingWith("velo_rule_packets_total ", values()), "A ip 20 in=6\nA ip 30 in=2\n");
  ASSERT_FALSE(agent_
                   .apply("ip access-list A\n 20 permit udp any any eq 77\n 30 deny udp any any eq 20\n"
                          "interface eth1\n ip access-group A in\n")
                   .contains("error"));
  agent_.turns();
  receive(77, 3);
  EXPECT_EQ(startingWith("velo_rule_packets_total ", values()), "A ip 20 in=9\nA ip 30 in=2\n");
}

TEST_F(MetricsTest, ClearingCountersMakesNoneJump) {
  agent_.start(twoRules);
  receive(10, 3);
  values();
  ASSERT_FALSE(agent_.ask({{"do", "clear"}}).contains("error"));
  EXPECT_EQ(values().at("velo_rule_packets_total A ip 10 in"), 3);
}

TEST_F(MetricsTest, WhichRulesAreToldCanBeChosenAndIsLimited) {
  agent_.start(
      "ip access-list A\n 10 permit udp any any eq 10\n 20 deny udp any any eq 20\n"
      "ip access-list B\n 10 permit ip any any\n 20 deny ip any any\n"
      "interface eth1\n ip access-group A in\n ip access-group B out\n");
  receive(20, 1);
  const std::string all = "A ip 10 in=0\nA ip 20 in=1\nB ip 10 out=0\nB ip 20 out=0\n";
  EXPECT_EQ(startingWith("velo_rule_packets_total ", values()), all);
  EXPECT_EQ(values().at("velo_rules_left_out"), 0);
  EXPECT_EQ(startingWith("velo_rule_packets_total ", values(RuleChoice::hit)), "A ip 20 in=1\n");
  EXPECT_EQ(startingWith("velo_rule_packets_total ", values(RuleChoice::none)), "");
  EXPECT_EQ(startingWith("velo_list_rules ", values(RuleChoice::none)), "A ip=2\nB ip=2\n");
  const auto some = values(RuleChoice::all, 3);
  EXPECT_EQ(startingWith("velo_rule_packets_total ", some), "A ip 10 in=0\nA ip 20 in=1\nB ip 10 out=0\n");
  EXPECT_EQ(some.at("velo_rules_left_out"), 1);
}

TEST_F(MetricsTest, PortsTellWhatTheirDevicesDid) {
  Agent::PortState state;
  state.name = "eth1";
  state.device = "ens3";
  state.present = state.up = true;
  state.rxFrames = 1, state.rxBytes = 2, state.txFrames = 3, state.txBytes = 4;
  state.kernelDrops = 5, state.rxTooLarge = 6, state.tooLarge = 7, state.sendFailed = 8, state.nowhere = 9;
  state.rxErrors = 10;
  Agent::PortState gone;
  gone.name = gone.device = "eth2";
  agent_.portStatesAre({state, gone});
  agent_.start("");
  const auto found = values();
  EXPECT_EQ(startingWith("velo_port_received_frames_total ", found), "eth1=1\neth2=0\n");
  EXPECT_EQ(startingWith("velo_port_received_bytes_total eth1", found), "=2\n");
  EXPECT_EQ(startingWith("velo_port_sent_frames_total eth1", found), "=3\n");
  EXPECT_EQ(startingWith("velo_port_sent_bytes_total eth1", found), "=4\n");
  EXPECT_EQ(
      startingWith("velo_port_lost_frames_total eth1 ", found),
      "damaged=10\nkernel_drops=5\nnowhere_to_go=9\nreceived_too_large=6\nsend_failed=8\ntoo_large_to_send=7\n");
  EXPECT_EQ(startingWith("velo_port_up ", found), "eth1=1\neth2=0\n");
  EXPECT_EQ(startingWith("velo_port_info ", found), "eth1 ens3=1\neth2 eth2=1\n");
}

TEST_F(MetricsTest, MirroredCopiesAreToldByPort) {
  agent_.start(
      "ip access-list A\n 10 permit ip any any mirror session S\n"
      "interface eth1\n ip access-group A in\nmirror session S destination eth9\n");
  receive(10, 3);
  EXPECT_EQ(values().at("velo_port_mirrored_copies_total eth9"), 3);
}

TEST_F(MetricsTest, TheConfigurationTellsItsSourcesAndHowChangesEnded) {
  const std::map<std::string, std::string> dir = {{"more.acl", "ip access-list B\n 10 permit ip any any\n"}};
  agent_.start(twoRules, &dir);
  auto found = values();
  EXPECT_EQ(startingWith("velo_configuration_source_rules ", found), "cli=2\nmore.acl=1\n");
  EXPECT_EQ(startingWith("velo_configuration_source_lists ", found), "cli=1\nmore.acl=1\n");
  EXPECT_EQ(startingWith("velo_configuration_source_bindings ", found), "cli=1\nmore.acl=0\n");
  EXPECT_EQ(startingWith("velo_list_source_info ", found), "A ip cli=1\nB ip more.acl=1\n");
  EXPECT_EQ(found.at("velo_configuration_last_change_timestamp_seconds"), RunningAgent::startTime);
  EXPECT_EQ(found.at("velo_configuration_openings"), 0);
  bool looked = false;
  agent_.plane().configuration().lookAtFiles([&looked] { looked = true; });
  agent_.turnsUntil([&looked] { return looked; });
  EXPECT_EQ(values().at("velo_configuration_saved"), 1);
  agent_.advance(100);
  ASSERT_FALSE(agent_.apply("interface eth1\n ip access-group A in\n").contains("error"));
  found = values();
  EXPECT_GE(found.at("velo_configuration_last_change_timestamp_seconds"), RunningAgent::startTime + 100);
  EXPECT_EQ(found.at("velo_configuration_openings"), 1);
  EXPECT_EQ(found.at("velo_configuration_saved"), 0);
  EXPECT_EQ(found.at("velo_configuration_restart_refused"), 0);
}

TEST_F(MetricsTest, ChangesAreCountedByWhatTheLogIsTold) {
  agent_.start("");
  using Agent::LogEvent;
  changes_.note(
      LogEvent{Agent::Severity::notice, "x", {{"VELO_EVENT", "change"}, {"VELO_RESULT", "applied"}}}, 5);
  changes_.note(LogEvent{Agent::Severity::notice, "x", {{"VELO_EVENT", "begin"}}}, 6);
  EXPECT_EQ(values().at("velo_configuration_last_failure_timestamp_seconds"), 0);
  changes_.note(LogEvent{Agent::Severity::warning, "x", {{"VELO_EVENT", "file"}, {"VELO_RESULT", "refused"}}},
                7);
  const auto found = values();
  EXPECT_EQ(startingWith("velo_configuration_changes_total ", found), "applied=1\nrefused=1\n");
  EXPECT_EQ(found.at("velo_configuration_last_failure_timestamp_seconds"), 7);
}

TEST_F(MetricsTest, WritesOfTheStateAreToldWhenThereAreAny) {
  agent_.start("");
  EXPECT_EQ(startingWith("velo_state_", values()), "");
  watched_.reset();
  writes_ = [] { return Agent::StateWriter::Writes{3, 1, 1700}; };
  EXPECT_EQ(startingWith("velo_state_", values()),
            "last_write_timestamp_seconds=1700\nwrites_total done=3\nwrites_total failed=1\n");
}

TEST_F(MetricsTest, TheAgentTellsItsLoopAndWhatItIs) {
  agent_.start("");
  const auto found = values();
  EXPECT_GT(found.at("velo_loop_turns_total"), 0);
  EXPECT_GE(found.at("velo_loop_tasks"), 1);
  EXPECT_THAT(startingWith("velo_task_work_total ", found), testing::HasSubstr("Configuration="));
  EXPECT_EQ(found.at("velo_start_time_seconds"), RunningAgent::startTime);
  EXPECT_THAT(startingWith("velo_build_info ", found),
              testing::StartsWith(std::string(Agent::version()) + " "));
}

TEST_F(MetricsTest, EveryRowIsToldOfSomething) {
  Agent::PortState port;
  port.name = port.device = "eth1";
  agent_.portStatesAre({port});
  writes_ = [] { return Agent::StateWriter::Writes(); };
  agent_.start(twoRules);
  receive(20, 1);
  const auto found = values();
  for (const auto& metric : Agent::metrics())
    EXPECT_NE(startingWith(std::string(metric.name), found), "") << metric.name;
}

}  // namespace
