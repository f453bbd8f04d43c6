#include <Zeb/LogHandle.h>
#include <agent/observe/MatchLog.h>
#include <gmock/gmock.h>

#include "../support/AllocationCount.h"
#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

#include <memory>
#include <optional>

namespace {

using Agent::LogEvent;
using Agent::MatchLog;
using Agent::MatchLogOptions;
using Agent::Severity;
using testing::ElementsAre;
using testing::IsEmpty;
using TestSupport::Bytes;
using TestSupport::frame;
using TestSupport::RunningAgent;
using TestSupport::udpTo;

using Lines = std::vector<std::string>;

/// An agent with a log of its matches, whose lines are taken as they are told.
class LoggedAgent {
 public:
  /// `dir`: files of a configuration directory; null: there is none.
  explicit LoggedAgent(const std::string& configuration, const MatchLogOptions& options = {},
                       const std::map<std::string, std::string>* dir = nullptr)
      : options_(options) {
    agent_.start(configuration, dir);
    begin();
  }
  void begin() {
    log_.emplace(agent_.core(), agent_.forwarder(), agent_.loop(), options_, [this](const auto& make) {
      for (LogEvent& event : make()) events_.push_back(std::move(event));
    });
  }

  /// Hands over a frame and lets the loop turn; the lines that were told meanwhile.
  Lines receive(const char* port, const Bytes& bytes) {
    agent_.receive(port, bytes);
    agent_.turns();
    return take();
  }
  Lines advance(double seconds) {
    agent_.advance(seconds);
    return take();
  }
  Lines end() {
    log_.reset();
    return take();
  }
  Lines apply(const std::string& configuration) {
    agent_.apply(configuration);
    agent_.advance(2);  // counters of rules that are gone are deleted behind the change
    return take();
  }
  Lines take() {
    Lines texts;
    for (const LogEvent& event : events_) texts.push_back(event.text);
    events_.clear();
    return texts;
  }
  const std::vector<LogEvent>& events() const { return events_; }

  RunningAgent& agent() { return agent_; }
  MatchLog& log() { return *log_; }

 private:
  const MatchLogOptions options_;
  RunningAgent agent_;
  std::vector<LogEvent> events_;
  std::optional<MatchLog> log_;
};

TEST(MatchLogTest, TellsEachKindOfListAndVerdict) {
  struct Row {
    const char* rule;   // of the list L, which is bound in at eth1
    const char* group;  // its kind
    Bytes bytes;
    const char* told;  // the line; null: none
    const char* why;
  };
  const auto tcp6 = frame().eth().ip6("2001:db8::1", "2001:db8::2").tcp(1024, 80);
  const Row rows[] = {
      {"10 permit tcp any any log", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").tcp(1024, 80),
       "ACL_IPACCESS: list L rule 10 permitted tcp 10.0.0.1(1024) -> 10.0.1.1(80) on eth1 in, 1 packet",
       "what is permitted"},
      {"20 deny udp any any log", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").udp(53, 5353),
       "ACL_IPACCESS2: list L rule 20 denied udp 10.0.0.1(53) -> 10.0.1.1(5353) on eth1 in, 1 packet",
       "what is denied has a message of its own"},
      {"10 permit tcp any any", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").tcp(1024, 80), nullptr,
       "a rule without log tells nothing"},
      {"10 permit tcp any any log", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").udp(1024, 80), nullptr,
       "nor does what no rule matches"},
      {"10 permit ip any any log", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").icmp(8, 0),
       "ACL_IPACCESS: list L rule 10 permitted icmp 10.0.0.1 -> 10.0.1.1 type 8 code 0 on eth1 in, 1 packet",
       "ICMP has a type and a code in place of ports"},
      {"10 permit ip any any log", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").sctp(7, 9),
       "ACL_IPACCESS: list L rule 10 permitted sctp 10.0.0.1(7) -> 10.0.1.1(9) on eth1 in, 1 packet", "SCTP"},
      {"10 permit ip any any log", "ip",
       frame().eth().ip4("10.0.0.1", "10.0.1.1").fragment(185, true).protocol(17).payload(64),
       "ACL_IPACCESS: list L rule 10 permitted udp 10.0.0.1 -> 10.0.1.1 later fragment on eth1 in, 1 packet",
       "a later fragment has no ports"},
      {"10 permit ip any any log", "ip",
       frame().eth().ip4("10.0.0.1", "10.0.1.1").fragment(0, true).udp(1, 2).payload(64),
       "ACL_IPACCESS: list L rule 10 permitted udp 10.0.0.1(1) -> 10.0.1.1(2) on eth1 in, 1 packet",
       "the first one has"},
      {"10 permit ip any any log", "ip", frame().eth().ip4("10.0.0.1", "10.0.1.1").protocol(200).payload(8),
       "ACL_IPACCESS: list L rule 10 permitted 200 10.0.0.1 -> 10.0.1.1 on eth1 in, 1 packet",
       "a protocol without a name"},
      {"10 permit tcp any any log", "ipv6", tcp6,
       "ACL_IP6ACCESS: list L rule 10 permitted tcp 2001:db8::1(1024) -> 2001:db8::2(80) on eth1 in, 1 "
       "packet",
       "IPv6"},
      {"10 deny tcp any any log", "ipv6", tcp6,
       "ACL_IP6ACCESS: list L rule 10 denied tcp 2001:db8::1(1024) -> 2001:db8::2(80) on eth1 in, 1 packet",
       "denied IPv6 has the same message"},
      {"10 permit ipv6 any any log", "ipv6", frame().eth().ip6("2001:db8::1", "2001:db8::2").icmp6(128),
       "ACL_IP6ACCESS: list L rule 10 permitted icmpv6 2001:db8::1 -> 2001:db8::2 type 128 code 0 on eth1 "
       "in, 1 packet",
       "ICMPv6"},
      {"10 permit any any log", "mac", frame().eth().ip4("10.0.0.1", "10.0.1.1").tcp(1024, 80),
       "ACL_MACACCESS: list L rule 10 permitted 0x0800 02:00:00:00:00:01 -> 02:00:00:00:00:02 on eth1 in, 1 "
       "packet",
       "a MAC list looks at no address of IP"},
      {"10 deny any any log", "mac", frame().eth().vlan(7).arp("10.0.0.1", "10.0.1.1"),
       "ACL_MACACCESS: list L rule 10 denied 0x0806 02:00:00:00:00:01 -> 02:00:00:00:00:02 on eth1 in, 1 "
       "packet",
       "the type is the one behind the tags"},
  };
  for (const Row& row : rows) {
    const std::string kind = row.group;
    LoggedAgent agent(kind + " access-list L\n  " + row.rule + "\ninterface eth1\n  " + kind +
                      " access-group L in\n");
    EXPECT_EQ(agent.receive("eth1", row.bytes), row.told ? Lines{row.told} : Lines{}) << row.why;
  }
}

constexpr const char* loggedNames =
    "ip access-list L\n  10 permit udp any any eq 53 log\n  20 permit udp any any\n"
    "interface eth1\n  ip access-group L in\n";
/// Rules in a list that is bound.
std::string boundList(const std::string& rules) {
  return "ip access-list L\n  " + rules + "\ninterface eth1\n  ip access-group L in\n";
}

constexpr const char* namesAsked =
    "ACL_IPACCESS: list L rule 10 permitted udp 192.0.2.1(1024) -> 198.51.100.7(53) on eth1 in, ";

TEST(MatchLogTest, CountsFurtherPacketsOfAFlowOnceAnInterval) {
  LoggedAgent agent(loggedNames);
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(std::string(namesAsked) + "1 packet"));
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), IsEmpty());
  EXPECT_THAT(agent.receive("eth1", udpTo(54)), IsEmpty()) << "by the rule without log";
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), IsEmpty());
  EXPECT_THAT(agent.advance(299), IsEmpty());
  EXPECT_THAT(agent.advance(1), ElementsAre(std::string(namesAsked) + "2 more packets"));
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), IsEmpty());
  EXPECT_THAT(agent.advance(300), ElementsAre(std::string(namesAsked) + "1 more packet"));
  EXPECT_EQ(agent.log().flows(), 1u);
  EXPECT_THAT(agent.advance(300), IsEmpty());
  EXPECT_EQ(agent.log().flows(), 0u) << "it was idle for an interval";
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(std::string(namesAsked) + "1 packet"))
      << "a new flow";
}

TEST(MatchLogTest, FollowsOnlyRulesThatLog) {
  LoggedAgent agent(loggedNames);
  agent.receive("eth1", udpTo(54));
  EXPECT_EQ(agent.log().rules(), 0u);
  for (const auto& collection : agent.agent().core().inForce().counters()) {
    for (auto at = collection->counterCollection().begin(); at; at.next())
      EXPECT_TRUE(at.value()->publisher().empty()) << at.key().ruleId.value();
  }
  agent.receive("eth1", udpTo(53));
  EXPECT_EQ(agent.log().rules(), 1u);
}

TEST(MatchLogTest, TellsImplicitDropsWhenAsked) {
  const char* configuration =
      "ip access-list L\n  10 permit tcp any any\nmac access-list M\n  10 deny any any 0x0806\n"
      "interface eth1\n  ip access-group L in\ninterface eth2\n  mac access-group M in\n";
  {
    LoggedAgent silent(configuration);
    EXPECT_THAT(silent.receive("eth1", udpTo(53)), IsEmpty());
    EXPECT_EQ(silent.log().rules(), 0u);
  }
  LoggedAgent agent(configuration, {.drops = true});
  EXPECT_THAT(
      agent.receive("eth1", udpTo(53)),
      ElementsAre("ACL_IPACCESS2: list L implicit drop denied udp 192.0.2.1(1024) -> 198.51.100.7(53) "
                  "on eth1 in, 1 packet"));
  EXPECT_THAT(agent.receive("eth2", udpTo(53)),
              ElementsAre("ACL_MACACCESS: list M implicit drop denied 0x0800 02:00:00:00:00:01 -> "
                          "02:00:00:00:00:02 on eth2 in, 1 packet"));
  EXPECT_THAT(agent.receive("eth1", frame().eth().ip4("10.0.0.1", "10.0.1.1").tcp(1, 2)), IsEmpty())
      << "by a rule without log";
}

TEST(MatchLogTest, SaysSeverityAndFieldsForPrograms) {
  LoggedAgent agent("ip access-list L\n  20 deny icmp any any log\ninterface eth1\n  ip access-group L in\n");
  agent.agent().receive("eth1", frame().eth().ip4("10.0.0.1", "10.0.1.1").icmp(3, 1));
  agent.agent().turns();
  ASSERT_EQ(agent.events().size(), 1u);
  const LogEvent& event = agent.events().front();
  EXPECT_EQ(event.severity, Severity::notice) << "of the plugin's message";
  using Field = std::pair<std::string_view, std::string>;
  EXPECT_THAT(event.fields, ElementsAre(Field("VELO_EVENT", "match"), Field("VELO_MESSAGE", "ACL_IPACCESS2"),
                                        Field("VELO_TYPE", "ip"), Field("VELO_LIST", "L"),
                                        Field("VELO_RULE", "20"), Field("VELO_VERDICT", "deny"),
                                        Field("VELO_PORT", "eth1"), Field("VELO_DIRECTION", "in"),
                                        Field("VELO_PROTOCOL", "icmp"), Field("VELO_SOURCE", "10.0.0.1"),
                                        Field("VELO_DESTINATION", "10.0.1.1"), Field("VELO_PACKETS", "1"),
                                        Field("VELO_ICMP_TYPE", "3"), Field("VELO_ICMP_CODE", "1")));
}

TEST(MatchLogTest, NamesTheInterfaceOfEachMatch) {
  std::string text =
      "ip access-list L\n  10 permit udp any any log\nport-channel po1 members eth2\n"
      "port-channel po6 members eth6\nport-channel po7 members eth7\n";
  for (const char* in : {"eth2", "po1"}) text += fmt::format("interface {}\n  ip access-group L in\n", in);
  for (const char* out : {"eth4", "eth5", "po6", "eth6", "eth7"})
    text += fmt::format("interface {}\n  ip access-group L out\n", out);
  LoggedAgent agent(text);
  agent.agent().bridge({"po1", "eth4", "eth5", "po6", "po7"});
  const auto line = [](const char* where) {
    return fmt::format(
        "ACL_IPACCESS: list L rule 10 permitted udp 192.0.2.1(1024) -> 198.51.100.7(53) on {}, 1 packet",
        where);
  };
  EXPECT_THAT(agent.receive("eth2", udpTo(53)),
              ElementsAre(line("po1 in"), line("eth2 in"), line("eth4 out"), line("eth5 out"),
                          line("po6 out"), line("eth6 out"), line("eth7 out")))
      << "the port-channel, its member, and each port that a flooded frame leaves by";
  EXPECT_THAT(agent.receive("eth2", udpTo(53)), IsEmpty());
  EXPECT_EQ(agent.end().size(), 7u);
}

TEST(MatchLogTest, TellsAMirroredPacketOnce) {
  LoggedAgent agent(
      "ip access-list L\n  10 permit udp any any log mirror session S\nip access-list OUT\n  10 permit ip "
      "any any log\n"
      "mirror session S destination eth3\ninterface eth1\n  ip access-group L in\ninterface eth3\n  ip "
      "access-group OUT out\n");
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(std::string(namesAsked) + "1 packet"))
      << "lists are not asked about copies";
}

/// Each row begins with one packet of the rule and two further ones that nobody was told of.
TEST(MatchLogTest, FollowsChangesOfTheRules) {
  struct Row {
    const char* after;  // the list's rules
    Lines atOnce;       // what is told because of the change
    Lines next;         // and of the next packet
    const char* why;
  };
  const std::string again = std::string(namesAsked) + "1 packet";
  const std::string further = std::string(namesAsked) + "2 more packets";
  const Row rows[] = {
      {"10 permit udp any any eq 53 log\n  20 permit udp any any", {}, {}, "nothing has changed"},
      {"10 permit udp any any eq 53\n  20 permit udp any any", {further}, {}, "log is taken away"},
      {"20 permit udp any any", {further}, {}, "the rule is gone"},
      {"10 permit udp any any eq 53\n  20 permit udp any any log",
       {further},
       {},
       "another rule logs, which the packet does not reach"},
      {"10 permit udp any any eq 53 log\n  20 permit udp any any log", {}, {}, "another rule logs, too"},
      {"10 permit udp any any eq domain log\n  20 permit udp any any", {}, {}, "it is spelled otherwise"},
      {"10 remark names\n  10 permit udp any any eq 53 log\n  20 permit udp any any",
       {},
       {},
       "it has a remark"},
      {"10 deny udp any any eq 53 log\n  20 permit udp any any",
       {further},
       {"ACL_IPACCESS2: list L rule 10 denied udp 192.0.2.1(1024) -> 198.51.100.7(53) on eth1 in, 1 packet"},
       "it denies"},
  };
  for (const Row& row : rows) {
    LoggedAgent agent(loggedNames);
    EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(again));
    agent.receive("eth1", udpTo(53));
    agent.receive("eth1", udpTo(53));
    EXPECT_EQ(agent.apply(boundList(row.after)), row.atOnce) << row.why;
    EXPECT_EQ(agent.receive("eth1", udpTo(53)), row.next) << row.why;
  }
}

TEST(MatchLogTest, NoticesThatARuleBeginsToLog) {
  LoggedAgent agent(boundList("10 permit udp any any eq 53"));
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), IsEmpty());
  EXPECT_THAT(agent.apply(boundList("10 permit udp any any eq 53 log")), IsEmpty());
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(std::string(namesAsked) + "1 packet"));
}

TEST(MatchLogTest, KnowsRulesInWhosePlaceOthersAreInForce) {
  const std::string bindings = "interface eth1\n  ip access-group L in\n";
  const std::map<std::string, std::string> dir = {
      {"l.acl", "ip access-list L\n  10 permit udp any any eq 53 log\n"}};
  LoggedAgent agent(bindings, {}, &dir);
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(std::string(namesAsked) + "1 packet"));
  agent.apply(boundList("20 permit udp any any"));
  agent.end();
  agent.begin();  // as an agent that goes on from the counts of another one
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), IsEmpty());
  agent.apply(bindings);
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), ElementsAre(std::string(namesAsked) + "1 packet"));
}

TEST(MatchLogTest, CallsARuleByTheNumberThatItHasNow) {
  LoggedAgent agent(loggedNames);
  agent.receive("eth1", udpTo(53));
  agent.receive("eth1", udpTo(53));
  EXPECT_THAT(agent.apply(boundList("15 permit udp any any eq 53 log")), IsEmpty());
  EXPECT_THAT(agent.end(), ElementsAre("ACL_IPACCESS: list L rule 15 permitted udp 192.0.2.1(1024) -> "
                                       "198.51.100.7(53) on eth1 in, 1 more packet"));
}

TEST(MatchLogTest, EndsTheFlowsOfAListThatIsGone) {
  LoggedAgent agent(loggedNames);
  agent.receive("eth1", udpTo(53));
  agent.receive("eth1", udpTo(53));
  EXPECT_THAT(agent.apply(""), ElementsAre(std::string(namesAsked) + "1 more packet"));
  EXPECT_EQ(agent.log().flows(), 0u);
  EXPECT_EQ(agent.log().rules(), 0u);
}

TEST(MatchLogTest, KeepsTheFlowsOfRulesThatStay) {
  LoggedAgent agent(boundList("10 permit udp any any eq 53 log\n  20 permit udp any any eq 54 log"));
  for (const uint16_t port : {53, 54}) {
    EXPECT_EQ(agent.receive("eth1", udpTo(port)).size(), 1u);
    agent.receive("eth1", udpTo(port));
  }
  EXPECT_EQ(agent.apply(boundList("10 permit udp any any eq 53 log")).size(), 1u);
  EXPECT_EQ(agent.log().flows(), 1u);
  EXPECT_THAT(agent.receive("eth1", udpTo(53)), IsEmpty()) << "it is known";
  EXPECT_THAT(agent.end(), ElementsAre(std::string(namesAsked) + "2 more packets"));
}

TEST(MatchLogTest, TellsWhatIsLeftWhenItEnds) {
  {
    LoggedAgent agent(loggedNames);
    agent.receive("eth1", udpTo(53));
    EXPECT_THAT(agent.end(), IsEmpty()) << "everything was told";
  }
  LoggedAgent agent(loggedNames);
  agent.receive("eth1", udpTo(53));
  agent.receive("eth1", udpTo(53));
  EXPECT_THAT(agent.end(), ElementsAre(std::string(namesAsked) + "1 more packet"));
}

constexpr const char* allLogged =
    "ip access-list L\n  10 permit udp any any log\ninterface eth1\n  ip access-group L in\n";

TEST(MatchLogTest, LeavesOutWhatIsTooMuch) {
  LoggedAgent agent(allLogged, {.rate = 3});
  for (uint16_t port = 1; port <= 5; ++port) agent.agent().receive("eth1", udpTo(port));
  agent.agent().turns();
  EXPECT_EQ(agent.take().size(), 3u);
  EXPECT_THAT(agent.advance(0.5), IsEmpty());
  EXPECT_THAT(agent.receive("eth1", udpTo(6)), IsEmpty()) << "the second is not over";
  EXPECT_THAT(agent.advance(0.5),
              ElementsAre("matches of 3 packets are left out here: more than 3 lines a second"));
  EXPECT_EQ(agent.receive("eth1", udpTo(7)).size(), 1u);
  EXPECT_EQ(agent.receive("eth1", udpTo(6)).size(), 1u) << "a flow that was left out is not known yet";
  EXPECT_THAT(agent.advance(2), IsEmpty()) << "nothing was left out since";
}

TEST(MatchLogTest, TellsFurtherPacketsLaterWhenThereAreTooManyLines) {
  LoggedAgent agent(allLogged, {.rate = 1});
  const auto line = [](int port, const char* packets) {
    return fmt::format(
        "ACL_IPACCESS: list L rule 10 permitted udp 192.0.2.1(1024) -> 198.51.100.7({}) on eth1 in, {}", port,
        packets);
  };
  for (const uint16_t port : {1, 2}) {
    EXPECT_THAT(agent.receive("eth1", udpTo(port)), ElementsAre(line(port, "1 packet")));
    agent.receive("eth1", udpTo(port));
    agent.advance(1);
  }
  EXPECT_THAT(agent.advance(299), ElementsAre(line(1, "1 more packet"))) << "both are due";
  agent.receive("eth1", udpTo(2));
  EXPECT_THAT(agent.advance(300), ElementsAre(line(2, "2 more packets"))) << "nothing is lost";
}

TEST(MatchLogTest, SaysWhatWasLeftOutASecondAfterTheFirst) {
  LoggedAgent agent(allLogged, {.interval = 10, .rate = 1});
  EXPECT_EQ(agent.receive("eth1", udpTo(1)).size(), 1u);
  agent.advance(9.5);
  EXPECT_EQ(agent.receive("eth1", udpTo(2)).size(), 1u);
  agent.advance(0.25);
  EXPECT_THAT(agent.receive("eth1", udpTo(3)), IsEmpty());
  EXPECT_THAT(agent.advance(0.5), IsEmpty()) << "meanwhile a flow was due";
  EXPECT_EQ(agent.log().flows(), 1u);
  EXPECT_THAT(agent.advance(0.5),
              ElementsAre("matches of 1 packet are left out here: more than 1 line a second"));
}

TEST(MatchLogTest, SaysAtItsEndWhatWasLeftOut) {
  LoggedAgent agent(allLogged, {.rate = 1});
  for (int i = 0; i < 4; ++i) agent.agent().receive("eth1", udpTo(1));
  EXPECT_THAT(agent.end(), ElementsAre("ACL_IPACCESS: list L rule 10 permitted udp 192.0.2.1(1024) -> "
                                       "198.51.100.7(1) on eth1 in, 1 packet",
                                       "matches of 3 packets are left out here: more than 1 line a second"));
}

TEST(MatchLogTest, FollowsNothingAtARateOfNought) {
  LoggedAgent agent(allLogged, {.rate = 0, .drops = true});
  EXPECT_THAT(agent.receive("eth1", udpTo(1)), IsEmpty());
  EXPECT_EQ(agent.log().rules(), 0u);
  EXPECT_THAT(agent.advance(301), IsEmpty());
  EXPECT_THAT(agent.end(), IsEmpty());
}

TEST(MatchLogTest, ForgetsTheOldestFlowFirst) {
  LoggedAgent agent(allLogged, {.flows = 2});
  const auto line = [](int port, const char* packets) {
    return fmt::format(
        "ACL_IPACCESS: list L rule 10 permitted udp 192.0.2.1(1024) -> 198.51.100.7({}) on eth1 in, {}", port,
        packets);
  };
  EXPECT_THAT(agent.receive("eth1", udpTo(1)), ElementsAre(line(1, "1 packet")));
  agent.receive("eth1", udpTo(1));
  EXPECT_THAT(agent.receive("eth1", udpTo(2)), ElementsAre(line(2, "1 packet")));
  EXPECT_THAT(agent.receive("eth1", udpTo(3)), ElementsAre(line(3, "1 packet"), line(1, "1 more packet")));
  EXPECT_THAT(agent.receive("eth1", udpTo(2)), IsEmpty());
  EXPECT_THAT(agent.receive("eth1", udpTo(1)), ElementsAre(line(1, "1 packet"), line(2, "1 more packet")));
}

TEST(MatchLogTest, TakesNothingFromTheHeapForAPacket) {
  LoggedAgent agent(allLogged, {.rate = 10, .flows = 16});
  Agent::Forwarder& forwarder = agent.agent().forwarder();
  Agent::Port& port = forwarder.portIs("eth1");
  std::vector<Bytes> frames;
  for (uint16_t i = 0; i < 1000; ++i) frames.push_back(udpTo(i / 2));
  const auto taken = [&] {
    const uint64_t before = TestSupport::allocationCount();
    for (const Bytes& bytes : frames) {
      forwarder.packet().assign(bytes, static_cast<uint32_t>(bytes.size()), 1.0);
      forwarder.receive(port);
    }
    return TestSupport::allocationCount() - before;
  };
  taken();  // makes the counter
  EXPECT_EQ(taken(), 0u) << "for flows that are known, for new ones and for lines that are left out";
  agent.advance(2);
  EXPECT_EQ(taken(), 0u) << "and for lines that are noted";
  EXPECT_EQ(agent.advance(0).size(), 10u);
}

TEST(MatchLogTest, SaysWhichMessagesAreMissing) {
  // No plugin is loaded here.
  const Agent::MatchMessages messages;
  EXPECT_THAT(messages.wrong(), testing::SizeIs(4));
  EXPECT_EQ(messages.wrong().front(),
            "the plugin has no log message ACL_IPACCESS: matches of rules with log are not told (IPv4, "
            "permitted)");
  std::vector<LogEvent> events;
  messages.addTo(events, {.list = "L"});
  EXPECT_THAT(events, IsEmpty());
}

TEST(MatchLogTest, TakesNoMessageOfAnotherForm) {
  const char* formats[] = {"%slist %s%s %s", "%slist %s%s %s %d", "%slist %s%s %s %s %s",
                           "%slist %s%s %s %s %"};
  for (const char* format : formats) {
    const Zeb::LogHandle handle({"ACL_IPACCESS", format, "", Zeb::logNoAction, 6}, Kelp::Duration(), 1, 0, 0);
    const Agent::MatchMessages messages;
    EXPECT_EQ(messages.wrong().front(),
              fmt::format("the plugin's log message ACL_IPACCESS is \"{}\", not one of 5 fields: matches of "
                          "rules with log are not told (IPv4, permitted)",
                          format));
  }
}

/// What is printed otherwise is what the document is to have.
TEST(MatchLogTest, TheDocumentHasTheTableOfMessages) {
  std::string table = "| message | tells of | its fields, in order |\n|---|---|---|\n";
  for (const auto& message : Agent::MatchMessages::table()) {
    std::string fields;
    for (const auto& field : message.fields)
      fields += fmt::format("{}{}", fields.empty() ? "" : "; ", field.meaning);
    table += fmt::format("| `{}` | {} | {} |\n", message.name, message.tells, fields);
  }
  const std::string document = TestSupport::readFile(VELO_SOURCE_DIR "/docs/seeing.md");
  EXPECT_NE(document.find(table + "\n"), std::string::npos) << "docs/seeing.md is to have this table:\n"
                                                            << table;
}

}  // namespace
