#include <agent/explain/Explain.h>
#include <agent/observe/VerdictRecorder.h>
#include <agent/ports/Captures.h>

#include "../support/CaptureBytes.h"
#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;

class ExplainTest : public testing::Test {
 protected:
  /// "DIRECTION INTERFACE TYPE LIST RULE" of each list that was asked, and the end of it.
  static std::string wayOf(const Json& document) {
    std::string way;
    for (const Json& asked : document.at("asked")) {
      const Json& rule = asked.at("rule");
      way += fmt::format("{} {} {} {} {}, ", word(asked, "interface"), word(asked, "direction"),
                         word(asked, "type"), word(asked, "list"),
                         rule.is_null()     ? "undefined"
                         : rule.is_string() ? "implicit"
                                            : std::to_string(rule.get<int>()));
    }
    for (const Json& session : document.at("mirrored")) way += "copy " + session.get<std::string>() + ", ";
    for (const Json& egress : document.at("egress"))
      way += word(egress, "port") + " " + word(egress, "verdict") +
             (egress.contains("reason") ? " (" + word(egress, "reason") + "), " : ", ");
    way += word(document, "verdict");
    if (document.contains("reason"))
      way += " " + word(document, "direction") + ": " + word(document, "reason");
    return way;
  }
  static std::string word(const Json& object, const char* member) {
    return object.at(member).get<std::string>();
  }

  Json explain(const char* port, const char* text) {
    std::string wrong;
    const auto made = Agent::readFrameText(text, &wrong);
    EXPECT_TRUE(made) << wrong;
    Agent::Explainer explainer(agent_.core(), agent_.forwarder());
    return explainer.explain(port, *made);
  }
  /// Everything that packets leave behind.
  Json marks() {
    return {agent_.show("counters"), agent_.show("drops"), agent_.show("ports"), agent_.show("access-lists")};
  }

  RunningAgent agent_;
};

TEST_F(ExplainTest, TellsTheListsTheRuleAndWhatBecomesOfIt) {
  agent_.start(
      "ip access-list IN\n 10 permit tcp any any established\n 20 deny udp any any eq domain mirror session "
      "S\n"
      " 30 permit ip any 198.51.100.0 0.0.0.255\n"
      "ip access-list OUT\n 10 deny tcp any any eq 23\n 20 permit ip any any mirror session S\n"
      "mac access-list L2\n 10 permit any any\n"
      "interface eth1\n mac access-group L2 in\n ip access-group IN in\n ipv6 access-group NONE in\n"
      "interface po1\n ip access-group OUT out\n"
      "interface eth3\n mac access-group L2 out\n"
      "port-channel po1 members eth3\nmirror session S destination eth9\n");
  agent_.patch("eth1", "po1");
  struct Row {
    const char* why;
    const char* port;
    const char* frame;
    const char* way;
  };
  const Json before = marks();
  for (const Row& row : {
           Row{"through both pipelines; the port-channel before its member, copied on its way out", "eth1",
               "tcp 192.0.2.1:1 > 203.0.113.1:80 ack",
               "eth1 in mac L2 10, eth1 in ip IN 10, po1 out ip OUT 20, eth3 out mac L2 10, copy S, eth3 "
               "pass, pass"},
           Row{"denied on receipt, and copied all the same", "eth1", "udp 192.0.2.1:1 > 198.51.100.1:domain",
               "eth1 in mac L2 10, eth1 in ip IN 20, copy S, drop in: dropping pkt"},
           Row{"denied on its way out, by the port-channel's list: the member's is not asked", "eth1",
               "tcp 192.0.2.1:1 > 198.51.100.1:23 syn",
               "eth1 in mac L2 10, eth1 in ip IN 30, po1 out ip OUT 10, eth3 drop (dropping pkt), drop out: "
               "dropping pkt"},
           Row{"what matches no rule", "eth1", "tcp 192.0.2.1:1 > 203.0.113.1:80 syn",
               "eth1 in mac L2 10, eth1 in ip IN implicit, drop in: No match on intf %s, default action is "
               "drop"},
           Row{"a list that is bound but not defined lets pass", "eth1",
               "udp [2001:db8::1]:1 > [2001:db8::2]:2",
               "eth1 in mac L2 10, eth1 in ipv6 NONE undefined, eth3 out mac L2 10, eth3 pass, pass"},
           Row{"a port without lists and without another end", "eth7", "arp 192.0.2.1 > 192.0.2.2", "pass"},
           Row{"the other way round no list is bound in", "eth3", "tcp 192.0.2.1:1 > 203.0.113.1:80 syn",
               "eth1 pass, pass"},
       }) {
    EXPECT_EQ(wayOf(explain(row.port, row.frame)), row.way) << row.why;
  }
  EXPECT_EQ(marks(), before) << "nothing is counted";
}

TEST_F(ExplainTest, OfAFloodedFrameTellsWhatBecomesOfItAtEveryPort) {
  agent_.start(
      "ip access-list DENIES\n 10 deny ip any any\n"
      "ip access-list TELNET\n 10 permit tcp any any eq telnet\n"
      "interface eth2\n ip access-group DENIES out\n"
      "interface eth3\n ip access-group TELNET out\n"
      "interface eth5\n ip access-group DENIES out\n");
  const auto wrong =
      agent_.forwarder().bridgeIs({"eth1", "eth2", "eth3", "eth4", "eth5"}, Kiv::steadyClock());
  ASSERT_FALSE(wrong) << *wrong;
  const Json document = explain("eth1", "udp 192.0.2.1:1 > 192.0.2.2:2");
  EXPECT_EQ(wayOf(document),
            "eth2 out ip DENIES 10, eth3 out ip TELNET implicit, eth5 out ip DENIES 10, "
            "eth2 drop (dropping pkt), eth3 drop (No match on intf %s, default action is drop), eth4 pass, "
            "eth5 drop (dropping pkt), pass");
  const std::string text = Agent::explainText(document, false);
  EXPECT_NE(text.find("\ndrop out, on eth2: dropping pkt\n"
                      "drop out, on eth3: No match on intf %s, default action is drop\n"
                      "pass, leaves by eth4\n"
                      "drop out, on eth5: dropping pkt\n"),
            std::string::npos)
      << text;
  const Json answer =
      explain("eth4", "udp 192.0.2.2:2 > 192.0.2.1:1 from 02:00:00:00:00:02 to 02:00:00:00:00:01");
  EXPECT_EQ(answer.at("egress").size(), 4u) << "the bridge has not learned from what was only explained";
}

TEST_F(ExplainTest, AMalformedFrameIsDroppedBeforeAnyListIsAsked) {
  agent_.start("ip access-list IN\ninterface eth1\n ip access-group IN in\n");
  Agent::Explainer explainer(agent_.core(), agent_.forwarder());
  const Bytes cutShort = cut(frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).bytes(), 20);
  const Json before = marks();
  const Json document = explainer.explain("eth1", {cutShort, 20});
  EXPECT_EQ(wayOf(document), "drop in: ipv4 header cut short");
  EXPECT_EQ(word(document, "frame"),
            "eth 02:00:00:00:00:01 > 02:00:00:00:00:02 0x0800, 20 octets, malformed: ipv4 header cut short");
  EXPECT_EQ(marks(), before);
}

TEST_F(ExplainTest, TellsWhichEarlierRulesCameCloseAndWhatFailed) {
  agent_.start(
      "ip access-list A\n"
      " 10 permit udp 10.0.0.0/8 any eq 53 ttl eq 255\n"
      " 20 permit tcp any host 198.51.100.7 eq 80\n"
      " 30 permit vlan 9 tcp any any eq 443\n"
      " 40 permit tcp any any eq 443 syn dscp ef\n"
      " 50 permit icmp any any echo\n"
      " 60 permit ip any any fragments\n"
      " 70 deny tcp any any\n"
      " 80 permit ip any any\n"
      "interface eth1\n ip access-group A in\n");
  const auto nearOf = [](const Json& asked) {
    std::string near;
    for (const Json& miss : asked.at("near")) {
      near += std::to_string(miss.at("rule").get<int>());
      for (const Json& field : miss.at("failed"))
        near += " [" + word(field, "field") + ": " + word(field, "packet") + "]";
      near += "; ";
    }
    return near;
  };
  const Json asked = explain("eth1", "tcp 192.0.2.1:5 > 198.51.100.7:443 ack").at("asked").at(0);
  EXPECT_EQ(asked.at("rule"), 70);
  EXPECT_EQ(asked.at("earlier"), 6) << "rules behind the one that decided do not count";
  EXPECT_EQ(nearOf(asked),
            "20 [destination port: 443]; 30 [vlan: untagged]; 60 [fragments: no later fragment]; ")
      << "three, those with the fewest conditions that failed, in the order of trial";
  const Json tagged = explain("eth1", "tcp 192.0.2.1:5 > 198.51.100.7:443 ack vlan 8").at("asked").at(0);
  EXPECT_EQ(nearOf(tagged), "20 [destination port: 443]; 30 [vlan: 8]; 60 [fragments: no later fragment]; ");
}

TEST_F(ExplainTest, OfARuleWithGroupsTheNearestMembersAreTold) {
  agent_.start(
      "object-group network G\n 10.0.0.0/8\n host 192.0.2.1\nobject-group network NOBODY\n"
      "object-group service S\n udp eq 53\n tcp eq 80\n"
      "ip access-list A\n"
      " 10 permit object-group S object-group G any\n"
      " 20 permit ip object-group NOBODY any\n"
      " 30 permit object-group S any any\n"
      "interface eth1\n ip access-group A in\n");
  const Json asked = explain("eth1", "tcp 192.0.2.1:5 > 198.51.100.7:81").at("asked").at(0);
  ASSERT_EQ(asked.at("near").size(), 3u);
  EXPECT_EQ(word(asked.at("near").at(0), "text"), "permit object-group S object-group G any");
  ASSERT_EQ(asked.at("near").at(0).at("failed").size(), 1u) << "of host 192.0.2.1 with tcp eq 80";
  EXPECT_EQ(word(asked.at("near").at(0).at("failed").at(0), "field"), "destination port");
  EXPECT_EQ(explain("eth1", "udp 10.0.0.9:5 > 198.51.100.7:53").at("asked").at(0).at("rule"), 10);
}

TEST_F(ExplainTest, OfTheSameCloseRulesTheEarliestAreTold) {
  std::string text = "ip access-list A\n";
  for (int port = 1; port <= 50; ++port) text += " permit tcp any any eq " + std::to_string(port) + "\n";
  agent_.start(text + "interface eth1\n ip access-group A in\n");
  const Json asked = explain("eth1", "tcp 192.0.2.1:5 > 198.51.100.7:443").at("asked").at(0);
  EXPECT_EQ(asked.at("rule"), "implicit");
  EXPECT_EQ(asked.at("earlier"), 50);
  ASSERT_EQ(asked.at("near").size(), 3u);
  EXPECT_EQ(asked.at("near").at(0).at("rule"), 10);
  EXPECT_EQ(asked.at("near").at(2).at("rule"), 30);
}

/// The ways of a real packet and of one that is tried are compared, frame by frame.
class ExplainCaptureTest : public ExplainTest, public testing::WithParamInterface<const char*> {};

TEST_P(ExplainCaptureTest, SaysWhatAReplaySays) {
  const std::string examples = std::string(VELO_SOURCE_DIR) + "/examples/";
  agent_.start(readFile(examples + "demo.acl"));
  agent_.patch("eth1", "po1");
  Agent::CaptureReader capture(examples + GetParam() + ".pcap");
  Agent::Explainer explainer(agent_.core(), agent_.forwarder());
  Agent::VerdictRecorder recorder(agent_.core(), agent_.forwarder());
  while (capture.next()) {
    const Agent::Frame octets{{capture.frame().begin(), capture.frame().end()}, capture.wireLength()};
    recorder.begin();
    const Json document = explainer.explain(GetParam(), octets);
    const Agent::Fate& fate = recorder.fate();
    EXPECT_TRUE(fate.port.empty() && fate.hits.empty() && fate.mirrored.empty() && fate.egress.empty())
        << "a frame that is tried is not seen by whoever follows the counters";

    agent_.forwarder().packet().assign(capture.frame(), capture.wireLength(), 1.0);
    const Agent::Verdict verdict = agent_.forwarder().receive(agent_.forwarder().portIs(GetParam()));
    std::vector<std::string> said, met;
    for (const Json& asked : document.at("asked")) {
      if (asked.at("rule").is_null()) continue;
      said.push_back(fmt::format("{} {} {} {} {} {}", word(asked, "direction"), word(asked, "interface"),
                                 word(asked, "type"), word(asked, "list"),
                                 asked.at("rule").is_string() ? 0 : asked.at("rule").get<uint32_t>(),
                                 word(asked, "action")));
    }
    for (const Agent::Hit& hit : fate.hits)
      met.push_back(fmt::format("{} {} {} {} {} {}", hit.direction, hit.intf, hit.type, hit.list,
                                hit.sequence, hit.action));
    const auto where = fmt::format("{} frame {}", GetParam(), capture.number());
    EXPECT_EQ(said, met) << where;
    EXPECT_EQ(word(document, "verdict"), verdict.passed() ? "pass" : "drop") << where;
    EXPECT_EQ(document.value("reason", ""), fate.reason.str()) << where;
    // Of a list that is bound only nothing is counted.
    if (said.size() == document.at("asked").size()) {
      EXPECT_EQ(word(document, "sentence"), Agent::sentenceOf(fate)) << where;
    }
    EXPECT_EQ(document.at("mirrored").size(), fate.mirrored.size()) << where;
    EXPECT_EQ(document.at("egress").empty() ? "" : word(document.at("egress").at(0), "port"),
              verdict.egress ? verdict.egress->id.name().str() : "")
        << where;
  }
  EXPECT_GT(capture.number(), 0u);
}

INSTANTIATE_TEST_SUITE_P(Examples, ExplainCaptureTest, testing::Values("eth1", "eth2", "eth4"));

}  // namespace
