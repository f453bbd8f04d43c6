#include <agent/config/Groups.h>
#include <agent/config/Writer.h>

#include "../../support/Dice.h"
#include "Support.h"

#include <algorithm>

namespace Config {
namespace {

constexpr auto groups =
    "object-group network A\n host 192.0.2.1\n 198.51.100.0/24\n"
    "object-group network B\n 10.0.0.0 0.0.0.255\n group-object A\n"
    "object-group network R\n range 10.0.0.3 10.0.0.5\n"
    "object-group network A6\n host 2001:db8::1\n range 2001:db8:1:: 2001:db8:1::1\n"
    "object-group network NOBODY\n"
    "object-group service WEB\n tcp eq 80 443\n tcp range 8000 8080\n"
    "object-group service DNS\n tcp-udp eq domain\n"
    "object-group service ALL\n group-object WEB\n group-object DNS\n icmp echo\n gre\n 99\n udp\n"
    "object-group service PING6\n icmpv6 echo\n icmpv6 3 1\n";

template <class Rule>
std::vector<typename Rule::FilterType> alternativesOf(const std::string& head, const std::string& rule) {
  const auto model = modelOf(groups + head + "\n " + rule + "\n");
  if (model.lists.empty() || model.lists.begin()->second.rules.size() != 1) return {};
  const auto& filter = std::get<Rule>(model.lists.begin()->second.rules.begin()->second).filter;
  EXPECT_TRUE(filter.alternatives.given()) << rule;
  return filter.alternatives.given() ? filter.alternatives.all() : std::vector<typename Rule::FilterType>();
}

struct Row {
  const char* why;
  const char* rule;
  std::vector<const char*> plain;  ///< rules that together match the same
};

template <class Rule>
void expectAll(const std::string& head, const std::vector<Row>& table) {
  for (const auto& row : table) {
    const auto all = alternativesOf<Rule>(head, row.rule);
    EXPECT_EQ(all.size(), row.plain.size()) << row.why;
    for (const auto* plain : row.plain) {
      const auto wanted = ruleOf<Rule>(head, plain).filter;
      EXPECT_EQ(std::count(all.begin(), all.end(), wanted), 1) << row.why << ": " << plain;
    }
  }
}

TEST(ObjectGroup, StandsForItsMembersInARule) {
  expectAll<Acl::IpRule>(
      "ip access-list L",
      {{"a source",
        "permit ip object-group A any",
        {"permit ip host 192.0.2.1 any", "permit ip 198.51.100.0/24 any"}},
       {"a destination",
        "permit ip any object-group A",
        {"permit ip any host 192.0.2.1", "permit ip any 198.51.100.0/24"}},
       {"a group in a group",
        "permit ip object-group B any",
        {"permit ip host 192.0.2.1 any", "permit ip 198.51.100.0/24 any", "permit ip 10.0.0.0/24 any"}},
       {"a range is as many prefixes as it takes",
        "permit ip object-group R any",
        {"permit ip host 10.0.0.3 any", "permit ip 10.0.0.4/31 any"}},
       {"both",
        "permit ip object-group A object-group R",
        {"permit ip host 192.0.2.1 host 10.0.0.3", "permit ip host 192.0.2.1 10.0.0.4/31",
         "permit ip 198.51.100.0/24 host 10.0.0.3", "permit ip 198.51.100.0/24 10.0.0.4/31"}},
       {"services, whose ports are destination ports",
        "permit object-group WEB any any",
        {"permit tcp any any eq 80 443", "permit tcp any any range 8000 8080"}},
       {"services behind the destination",
        "permit tcp any any object-group WEB",
        {"permit tcp any any eq 80 443", "permit tcp any any range 8000 8080"}},
       {"of two protocols",
        "permit object-group DNS any any",
        {"permit tcp any any eq 53", "permit udp any any eq 53"}},
       {"of all kinds",
        "permit object-group ALL any any",
        {"permit tcp any any eq 80 443", "permit tcp any any range 8000 8080", "permit tcp any any eq 53",
         "permit udp any any eq 53", "permit icmp any any echo", "permit gre any any", "permit 99 any any",
         "permit udp any any"}},
       {"with all else of a rule",
        "permit vlan 5 tcp object-group R gt 1023 any eq 80 syn dscp ef ttl eq 255",
        {"permit vlan 5 tcp host 10.0.0.3 gt 1023 any eq 80 syn dscp ef ttl eq 255",
         "permit vlan 5 tcp 10.0.0.4/31 gt 1023 any eq 80 syn dscp ef ttl eq 255"}},
       {"later fragments of networks",
        "permit ip object-group A any fragments",
        {"permit ip host 192.0.2.1 any fragments", "permit ip 198.51.100.0/24 any fragments"}},
       {"an empty group matches nothing", "permit ip object-group NOBODY object-group A", {}}});
  expectAll<Acl::IpRule>(
      "ip access-list standard L",
      {{"a source", "permit object-group R", {"permit host 10.0.0.3", "permit 10.0.0.4/31"}}});
  expectAll<Acl::Ip6Rule>("ipv6 access-list L",
                          {{"addresses",
                            "permit ipv6 object-group A6 any",
                            {"permit ipv6 host 2001:db8::1 any", "permit ipv6 2001:db8:1::/127 any"}},
                           {"messages",
                            "permit object-group PING6 any any",
                            {"permit icmpv6 any any echo", "permit icmpv6 any any 3 1"}},
                           {"services of both",
                            "permit object-group DNS any any",
                            {"permit tcp any any eq 53", "permit udp any any eq 53"}}});
}

TEST(ObjectGroup, IsShownAsItWasTyped) {
  const auto model = modelOf(
      "object-group network A\n  host   192.0.2.1\nip access-list L\n permit tcp object-group A any eq 80\n");
  EXPECT_EQ(model.objectGroups.at("A").members, (std::vector<std::string>{"host 192.0.2.1"}));
  EXPECT_EQ(common(model.lists.begin()->second.rules.at(10)).text, "permit tcp object-group A any eq 80");
  const std::string text = textOf(model);
  EXPECT_EQ(modelOf(text), model) << text;
}

/// The rules that are another rule when groups say something else.
TEST(ObjectGroup, AChangeOfAGroupChangesTheRulesThatItChanges) {
  const std::string start =
      "object-group network A\n host 192.0.2.1\n 10.0.0.0/8\nobject-group network B\n group-object A\n";
  const std::string lists =
      "ip access-list L\n 10 permit ip object-group A any\n 20 permit ip object-group B any\n 30 permit ip "
      "any any\n";
  const struct {
    const char* why;
    std::string text;
    std::vector<uint32_t> changed;
  } table[] = {
      {"nothing", "", {}},
      {"another member", "object-group network A\n host 192.0.2.2\n", {10, 20}},
      {"in another group only", "object-group network B\n host 192.0.2.2\n", {20}},
      {"one less", "object-group network A\n no host 192.0.2.1\n", {10, 20}},
      {"one less, in other words", "object-group network A\n no 192.0.2.1/32\n", {10, 20}},
      {"a group less", "object-group network B\n no group-object A\n", {20}},
      {"what is not there is no mistake", "object-group network A\n no host 192.0.2.9\n", {}},
      {"the same in another order",
       "no object-group network A\nobject-group network A\n 10.0.0.0/8\n host 192.0.2.1\n",
       {}},
      {"the same in other words",
       "no object-group network A\nobject-group network A\n range 10.0.0.0 10.255.255.255\n 192.0.2.1/32\n",
       {}},
      {"a member twice", "object-group network B\n 10.0.0.0/8\n", {}},
      {"a member twice, in other words", "object-group network B\n 192.0.2.1/32\n", {}},
      {"emptied", "no object-group network A\nobject-group network A\n", {10, 20}},
      {"another list", "ip access-list M\n permit ip object-group A any\n", {}},
  };
  const auto before = modelOf(start + lists).lists.at({Acl::AclType::ip, "L"});
  for (const auto& row : table) {
    for (const bool later : {false, true}) {
      const auto model =
          later ? modelOf(row.text, modelOf(start + lists)) : modelOf(start + row.text + lists);
      const auto& after = model.lists.at({Acl::AclType::ip, "L"});
      std::vector<uint32_t> changed;
      for (const auto& [number, rule] : after.rules) {
        if (!isSameRule(rule, before.rules.at(number))) changed.push_back(number);
      }
      EXPECT_EQ(changed, row.changed) << row.why << (later ? ", said later" : "");
    }
  }
}

TEST(ObjectGroup, IsWhatAllTextsMakeOfIt) {
  const auto behind =
      modelOf("ip access-list L\n permit ip object-group A any\nobject-group network A\n host 192.0.2.1\n");
  const auto before =
      modelOf("object-group network A\n host 192.0.2.1\nip access-list L\n permit ip object-group A any\n");
  EXPECT_EQ(behind, before) << "a group may be defined behind the rule";
  const std::string rules =
      "ip access-list L\n 10 permit ip object-group A any\n 20 permit ip object-group R any\n 30 permit ip "
      "any any\n";
  const struct {
    const char* why;
    const char* text;
    std::vector<uint32_t> left;
  } table[] = {
      {"a rule is taken back by what it says", "no permit ip object-group A any\n", {20, 30}},
      {"not one without groups", "no permit ip any any\n", {10, 20}},
      {"nor one of another group", "no permit ip object-group B any\n", {10, 20, 30}},
      {"a rule that is replaced names none", "10 permit ip any any\n", {10, 20, 30}},
  };
  for (const auto& row : table) {
    const auto model = modelOf(groups + rules + row.text);
    EXPECT_EQ(numbersOf(model.lists.begin()->second), row.left) << row.why;
  }
  const auto replaced =
      modelOf(groups + rules + "10 permit ip any any\nno object-group network A\nobject-group network A\n");
  EXPECT_FALSE(
      std::get<Acl::IpRule>(replaced.lists.begin()->second.rules.at(10)).filter.alternatives.given());
}

TEST(ObjectGroup, HasMistakesWithTheirPlaces) {
#define MEMBERS "host ADDRESS, ADDRESS/LENGTH, ADDRESS WILDCARD, range LOW HIGH or group-object NAME"
#define SERVICES \
  "tcp, udp, sctp or tcp-udp with ports, icmp, another protocol name, 0 to 255 or group-object NAME"
  const MistakeRow table[] = {
      {"no kind", "object-group WEB", "1:14: found \"WEB\", expected network or service"},
      {"no name", "object-group network",
       "1:21: found the end of the line, expected the name of an object-group"},
      {"two names", "object-group network A B", "1:24: found \"B\", expected the end of the line"},
      {"another kind", "object-group network A\nobject-group service A",
       "2:22: found \"A\" of networks, expected object-group network in front of it, or no object-group "
       "network "
       "A first"},
      {"no member", "object-group network A\nno",
       "2:3: found the end of the line, expected ip, ipv4, ipv6, mac, "
       "access-list, interface, port-channel, object-group or mirror"},
      {"an unknown member", "object-group network A\nnetwork-object host 192.0.2.1",
       "2:1: found \"network-object\", expected " MEMBERS},
      {"any", "object-group network A\nany", "2:1: found \"any\", expected " MEMBERS},
      {"a netmask, which elsewhere is one", "object-group network A\n10.0.0.0 255.0.0.0",
       "2:10: found \"255.0.0.0\" that may be meant as a netmask, expected a wildcard, whose set bits are "
       "ignored, "
       "or ADDRESS/LENGTH"},
      {"all ones", "object-group network A\n10.0.0.0 255.255.255.255",
       "2:10: found \"255.255.255.255\" that may be meant as a netmask, expected a wildcard, whose set bits "
       "are "
       "ignored, or ADDRESS/LENGTH"},
      {"all zeros", "object-group network A\n10.0.0.0 0.0.0.0",
       "2:10: found \"0.0.0.0\" that may be meant as a netmask, expected a wildcard, whose set bits are "
       "ignored, "
       "or ADDRESS/LENGTH"},
      {"a range upside down", "object-group network A\nrange 10.0.0.2 10.0.0.1",
       "2:16: found \"10.0.0.1\", expected an address that is not below the first one"},
      {"a range of two kinds", "object-group network A\nrange 10.0.0.2 ::1",
       "2:16: found \"::1\", expected an IPv4 address"},
      {"both kinds of address", "object-group network A\nhost 10.0.0.2\nhost ::1",
       "3:1: found \"host\", expected IPv4 addresses, which the group has"},
      {"words behind a member", "object-group network A\nhost 10.0.0.2 log",
       "2:15: found \"log\", expected the end of the line"},
      {"an unknown service", "object-group service A\ntpc eq 80",
       "2:1: found \"tpc\", expected " SERVICES " (did you mean tcp?)"},
      {"every protocol", "object-group service A\nip",
       "2:1: found \"ip\", expected a protocol: a rule that is for every protocol says so itself and names "
       "no "
       "group of services"},
      {"the same of IPv6", "object-group service A\nipv6",
       "2:1: found \"ipv6\", expected a protocol: a rule that is for every protocol says so itself and names "
       "no "
       "group of services"},
      {"a statement that is not whole", "object-group service A\nip access-lst",
       "2:4: found \"access-lst\", expected access-list (did you mean access-list?)"},
      {"ports of another protocol", "object-group service A\ntcp-udp eq syslog",
       "2:12: found \"syslog\", expected a port 0 to 65535 or a port name of this protocol"},
      {"words behind a service", "object-group service A\ntcp eq 80 log",
       "2:11: found \"log\", expected eq, neq, lt, gt, range or the end of the line"},
      {"a group in itself", "object-group network A\ngroup-object A",
       "2:14: found \"A\" in itself, expected groups that do not contain themselves"},
      {"two groups in each other",
       "object-group network A\ngroup-object B\nobject-group network B\ngroup-object A",
       "2:14: found \"B\" that contains \"A\", expected groups that do not contain themselves\n"
       "t:4:14: found \"A\" that contains \"B\", expected groups that do not contain themselves"},
      {"a group that is not there", "object-group network UPLINK\ngroup-object UPLINKS",
       "2:14: found \"UPLINKS\", expected an object-group that is defined (did you mean UPLINK?)"},
      {"a group of the other kind", "object-group network A\nobject-group service S\ngroup-object A",
       "3:14: found \"A\" of networks, expected an object-group service"},
      {"a rule with a group that is not there",
       "object-group network HOSTS\nip access-list L\npermit ip object-group HOST any",
       "3:24: found \"HOST\", expected an object-group that is defined (did you mean HOSTS?)"},
      {"a group that is taken back",
       "object-group network A\nip access-list L\npermit ip any object-group A\nno object-group network A",
       "3:28: found \"A\", expected an object-group that is defined"},
      {"services for an address", "object-group service S\nip access-list L\npermit ip object-group S any",
       "3:24: found \"S\" of services, expected an object-group network"},
      {"networks for a protocol", "object-group network A\nip access-list L\npermit object-group A any any",
       "3:21: found \"A\" of networks, expected an object-group service"},
      {"addresses of the other kind",
       "object-group network A\nhost ::1\nip access-list L\npermit ip any object-group A",
       "4:28: found \"A\" of IPv6 addresses, expected an object-group of IPv4 addresses"},
      {"messages of the other kind",
       "object-group service S\nicmp\nipv6 access-list L\npermit object-group S any any",
       "4:21: found \"S\" that has icmp, expected an object-group service without that"},
      {"ports beside fragments",
       "object-group service S\ntcp eq 80\nip access-list L\npermit object-group S any any fragments",
       "4:21: found \"S\" that has ports or messages, beside fragments, expected an object-group service "
       "without that"},
      {"services of another protocol than the rule's",
       "object-group service S\nudp eq 80\nip access-list L\npermit tcp any any object-group S",
       "4:33: found \"S\" that has more than ports of the rule's protocol, expected an object-group service "
       "without "
       "that"},
      {"ports beside a group of services",
       "object-group service S\nip access-list L\npermit object-group S any any eq 80",
       "3:31: found \"eq\", expected a rule for tcp, udp or sctp in front of ports"},
      {"a MAC rule", "object-group network A\nmac access-list L\npermit object-group A any",
       "3:8: found \"object-group\", expected any, host MAC or MAC WILDCARD"},
      {"mistakes are told in the order of the text",
       "object-group network A\ngroup-object A\nx\nip access-list L\npermit ip object-group B any\ny",
       "2:14: found \"A\" in itself, expected groups that do not contain themselves\n"
       "t:3:1: found \"x\", expected " MEMBERS "\n"
       "t:5:24: found \"B\", expected an object-group that is defined\n"
       "t:6:1: found \"y\", expected permit, deny, a rule number, remark or no"},
  };
  expectMistakes("", table);
}

TEST(ObjectGroup, IsBounded) {
  const auto hosts = [](const char* name, int count) {
    std::string text = std::string("object-group network ") + name + "\n";
    for (int i = 0; i < count; ++i) text += fmt::format(" host 10.0.{}.{}\n", i / 256, i % 256);
    return text;
  };
  const auto pairs = [](int rules) {
    std::string text = "ip access-list L\n";
    for (int i = 0; i < rules; ++i) text += "permit ip object-group A object-group A\n";
    return text;
  };
  EXPECT_EQ(mistakesOf(hosts("A", 64) + pairs(16)), "");
  EXPECT_EQ(
      mistakesOf(hosts("A", 64) + pairs(17)),
      "t:83:24: found \"A\", expected rules with at most 65536 combinations of members of groups in all\n");
  EXPECT_EQ(mistakesOf(hosts("A", 65) + pairs(1)),
            "t:68:24: found \"A\" in a rule of 4225 combinations, expected groups with at most 4096 "
            "combinations of "
            "members in a rule\n");
  for (const bool backwards : {false, true}) {
    const auto chain = [&](int length) {
      std::string text;
      for (int i = 0; i < length; ++i) {
        text += fmt::format("object-group network {}\n", backwards ? 99 - i : 10 + i);
        if (i + 1 < length) text += fmt::format("group-object {}\n", backwards ? 98 - i : 11 + i);
      }
      return readText(text).mistakes.size();
    };
    EXPECT_EQ(chain(16), 0u) << backwards;
    EXPECT_EQ(chain(17), 1u) << backwards;
    EXPECT_GT(chain(2000), 0u) << backwards;
  }
}

TEST(ObjectGroup, RangesAreTheAddressesBetweenTheirEnds) {
  TestSupport::Dice dice(5);
  for (int round = 0; round < 2000; ++round) {
    const auto some = [&] {
      const auto any = static_cast<uint32_t>(dice.any());
      return dice.once(3) ? any : 0x0a000000u | (any & 0xff);
    };
    uint32_t from = some(), to = some();
    if (from > to) std::swap(from, to);
    const auto model =
        modelOf("object-group network A\n range " + Nimnet::IpAddr{from}.str() + " " +
                Nimnet::IpAddr{to}.str() + "\nip access-list L\n permit ip object-group A any\n");
    const auto& all =
        std::get<Acl::IpRule>(model.lists.begin()->second.rules.at(10)).filter.alternatives.all();
    const auto covered = [&all](uint32_t address) {
      return std::count_if(all.begin(), all.end(), [&](const auto& one) {
        return ((address ^ one.source.value) & one.sourceMask.value) == 0;
      });
    };
    for (const uint32_t address : {from, to, from - 1, to + 1, some(), from + (to - from) / 2}) {
      ASSERT_EQ(covered(address), from <= address && address <= to ? 1 : 0)
          << Nimnet::IpAddr{from}.str() << " " << Nimnet::IpAddr{to}.str() << " "
          << Nimnet::IpAddr{address}.str();
    }
  }
}

}  // namespace
}  // namespace Config
