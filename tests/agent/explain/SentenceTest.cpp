#include <agent/explain/Explain.h>
#include <gmock/gmock.h>

#include "../support/RunningAgent.h"

namespace {

using namespace TestSupport;
using testing::EndsWith;
using testing::HasSubstr;

class SentenceTest : public testing::Test {
 protected:
  Json explain(const char* port, const std::string& text) {
    std::string wrong;
    const auto made = Agent::readFrameText(text, &wrong);
    EXPECT_TRUE(made) << wrong;
    Agent::Explainer explainer(agent_.core(), agent_.forwarder());
    return explainer.explain(port, made.value_or(Agent::Frame()));
  }
  std::string sentence(const char* port, const std::string& text) {
    const Json document = explain(port, text);
    const auto told = document.at("sentence").get<std::string>();
    EXPECT_THAT(Agent::explainText(document, false), EndsWith("\n" + told + "\n"));
    return told;
  }

  RunningAgent agent_;
};

TEST_F(SentenceTest, SaysWhatBecomesOfTheFrameAndByWhichRules) {
  agent_.start(
      "ip access-list FROM-ALICE\n 10 deny icmp any any echo\n 20 permit ip any any\n"
      "ip access-list OUT\n 10 deny tcp any any eq 23\n 30 permit udp any any\n"
      "mac access-list L2\n 10 permit any any\n"
      "interface eth1\n ip access-group FROM-ALICE in\n mac access-group L2 in\n ipv6 access-group GONE in\n"
      "interface po1\n ip access-group OUT out\nport-channel po1 members eth2\n");
  agent_.patch("eth1", "po1");
  struct Row {
    const char* port;
    const char* frame;
    const char* sentence;
  };
  for (const Row& row : {
           Row{"eth1", "icmp 10.0.0.1 > 10.0.0.2 echo",
               "dropped on its way in by rule 10 of FROM-ALICE on eth1"},
           Row{"eth1", "tcp 10.0.0.1:1 > 10.0.0.2:23 syn", "dropped on its way out by rule 10 of OUT on po1"},
           Row{"eth1", "tcp 10.0.0.1:1 > 10.0.0.2:24 syn",
               "dropped on its way out because no rule of OUT on po1 matches"},
           Row{"eth1", "udp 10.0.0.1:1 > 10.0.0.2:24",
               "passes by rule 10 of L2 on eth1, by rule 20 of FROM-ALICE on eth1 and by rule 30 of OUT on "
               "po1, "
               "and leaves by eth2"},
           Row{"eth1", "udp [::1]:1 > [::2]:2",
               "passes by rule 10 of L2 on eth1 and because GONE on eth1 is not defined, and leaves by eth2"},
           Row{"eth2", "udp 10.0.0.1:1 > 10.0.0.2:24", "passes, no list is asked, and leaves by eth1"},
           Row{"eth7", "udp 10.0.0.1:1 > 10.0.0.2:24", "passes, no list is asked, and leaves by no port"},
           Row{"eth1", "tcp 10.0.0.1:1 > 10.0.0.2:23 no flags, malformed: tcp data offset under 5",
               "dropped on its way in on eth1: tcp data offset under 5"},
       }) {
    EXPECT_EQ(sentence(row.port, row.frame), row.sentence);
  }
}

TEST_F(SentenceTest, OfAFloodedFrameEveryPortIsInIt) {
  agent_.start(
      "ip access-list DENIES\n 10 deny ip any any\nip access-list TELNET\n 10 permit tcp any any eq telnet\n"
      "interface eth2\n ip access-group DENIES out\ninterface eth3\n ip access-group TELNET out\n"
      "interface eth6\n ip access-group TELNET in\n");
  agent_.bridge({"eth1", "eth2", "eth3", "eth4", "eth5", "eth6"});
  EXPECT_EQ(
      sentence("eth1", "udp 10.0.0.1:1 > 10.0.0.2:2"),
      "passes, no list is asked, and leaves by eth4, eth5 and eth6; dropped on its way out by rule 10 of "
      "DENIES on eth2 and because no rule of TELNET on eth3 matches");
  EXPECT_EQ(sentence("eth6", "udp 10.0.0.1:1 > 10.0.0.2:2"),
            "dropped on its way in because no rule of TELNET on eth6 matches");
}

TEST_F(SentenceTest, TellsWhereABridgeHasLearnedTheAddress) {
  agent_.start("");
  agent_.bridge({"eth1", "eth2", "eth3"});
  agent_.receive("eth2",
                 frame().eth("02:00:5e:00:00:07", "ff:ff:ff:ff:ff:ff").vlan(5).arp("192.0.2.1", "192.0.2.2"));
  agent_.advance(12);
  const Json known = explain("eth1", "arp 192.0.2.2 > 192.0.2.1 to 02:00:5e:00:00:07 vlan 5");
  EXPECT_EQ(known.at("bridge"),
            Json({{"address", "02:00:5e:00:00:07"}, {"vlan", 5}, {"port", "eth2"}, {"age", 12.0}}));
  EXPECT_THAT(Agent::explainText(known, false),
              HasSubstr("\n02:00:5e:00:00:07 in vlan 5 was learned on eth2, heard of 12 s ago\n"));
  EXPECT_EQ(known.at("sentence"), "passes, no list is asked, and leaves by eth2");
  const Json unknown = explain("eth1", "arp 192.0.2.2 > 192.0.2.1 to 02:00:5e:00:00:07");
  EXPECT_THAT(
      Agent::explainText(unknown, false),
      HasSubstr("\n02:00:5e:00:00:07 was not learned: it is looked for at every other port of the bridge\n"));
  EXPECT_FALSE(explain("eth1", "arp 192.0.2.2 > 192.0.2.1 to ff:ff:ff:ff:ff:ff").contains("bridge"));
  EXPECT_FALSE(explain("eth9", "arp 192.0.2.2 > 192.0.2.1").contains("bridge")) << "a port of no bridge";
}

TEST_F(SentenceTest, OverTheSocketAFrameCanHaveNoEthernetHeaderAndSayItsPort) {
  agent_.start(
      "ip access-list A\n 10 permit ip any any\nmac access-list M\ninterface eth1\n ip access-group A in\n "
      "mac access-group M in\n");
  agent_.forwarder().portIs("eth1");
  const auto ask = [this](Json request) {
    request["do"] = "explain";
    request["port"] = "eth1";
    return agent_.ask(request);
  };
  const std::string packet = "45000014000000004001000c0a0000010a000002";
  EXPECT_EQ(ask({{"frame", packet}, {"etherType", 0x0800}}).at("verdict"), "drop")
      << "an icmp header is missing";
  const Json passes = ask({{"frame", "450000140000000040fd000c0a0000010a000002"}, {"etherType", 0x0800}});
  EXPECT_EQ(passes.at("frame"), "ip 10.0.0.1 > 10.0.0.2 protocol 253, no ethernet header, 20 octets");
  EXPECT_EQ(ask({{"frame", packet}, {"etherType", 65536}}).at("error").at("code"), "bad-request");
  EXPECT_EQ(ask({{"frame", "ip 10.0.0.1 > 10.0.0.2"}, {"etherType", 1}}).at("error").at("code"),
            "bad-request");
  EXPECT_EQ(ask({{"frame", "ip 10.0.0.1 > 10.0.0.2 on eth2"}}).at("error").at("text"),
            "the frame says on eth2");
  EXPECT_EQ(ask({{"frame", "ip 10.0.0.1 > 10.0.0.2 on eth1"}}).at("verdict"), "drop")
      << "by the empty mac list";
}

}  // namespace
