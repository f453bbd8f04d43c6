#include "Support.h"

#include <agent/warnings/WarningText.h>

namespace Config {
namespace {

std::string warningsOf(std::string_view text, Model start = {}) {
  std::string all;
  for (const auto& warning : modelOf(text, std::move(start)).notices.warnings)
    all += std::string(warning.code.kind().code) + " " + Agent::warningText(warning) + "\n";
  return all;
}

struct WarningRow {
  const char* why;
  const char* text;
  const char* warning;  ///< the code, and behind it the line without "t:"; empty: there is none
};

template <size_t N>
void expectWarnings(const std::string& header, const WarningRow (&table)[N]) {
  for (const auto& row : table) {
    std::string expected = row.warning;
    if (!expected.empty()) expected.insert(expected.find(' ') + 1, "t:") += "\n";
    EXPECT_EQ(warningsOf(header + row.text + "\n"), expected) << row.why << ": " << row.text;
  }
}

TEST(Warning, OfAddressesThatAreNotWhatTheyLookLike) {
  const WarningRow ip[] = {
      {"a netmask", "permit ip 192.0.2.0 255.255.255.0 any",
       "netmask 2:21: warning: 255.255.255.0 looks like a netmask: as a wildcard it compares only the last "
       "bits"},
      {"a netmask of the destination", "permit ip any 192.0.2.0 255.255.255.0",
       "netmask 2:25: warning: 255.255.255.0 looks like a netmask: as a wildcard it compares only the last "
       "bits"},
      {"a netmask of one bit", "permit ip 0.0.0.0 128.0.0.0 any",
       "netmask 2:19: warning: 128.0.0.0 looks like a netmask: as a wildcard it compares only the last bits"},
      {"a host by its netmask", "permit ip 192.0.2.1 255.255.255.255 any",
       "netmask 2:21: warning: 255.255.255.255 looks like a netmask: as a wildcard it compares no bit"},
      {"any by its netmask", "permit ip 0.0.0.0 0.0.0.0 any",
       "netmask 2:19: warning: 0.0.0.0 looks like a netmask: as a wildcard it compares all bits"},
      {"any by its wildcard", "permit ip 0.0.0.0 255.255.255.255 any", ""},
      {"a host by its wildcard", "permit ip 192.0.2.1 0.0.0.0 any", ""},
      {"a wildcard of the last bits", "permit ip 192.0.2.0 0.0.0.255 any", ""},
      {"scattered bits", "permit ip 192.0.2.0 255.0.0.255 any",
       "ignored-bits 2:11: warning: 192.0.2.0 has bits that the wildcard ignores: it is 0.0.2.0"},
      {"scattered bits over zeros", "permit ip 0.1.2.0 255.0.0.255 any", ""},
      {"bits under the wildcard", "permit ip 192.0.2.7 0.0.0.255 any",
       "ignored-bits 2:11: warning: 192.0.2.7 has bits that the wildcard ignores: it is 192.0.2.0"},
      {"bits beyond the length", "permit ip any 192.0.2.7/24",
       "ignored-bits 2:15: warning: 192.0.2.7/24 has bits beyond its length: it is 192.0.2.0/24"},
      {"no bit beyond the length", "permit ip any 192.0.2.4/30", ""},
      {"the length of any", "permit ip any 192.0.2.4/0",
       "ignored-bits 2:15: warning: 192.0.2.4/0 has bits beyond its length: it is 0.0.0.0/0"},
      {"a rule that is taken back", "no permit ip any 192.0.2.7/24", ""},
  };
  expectWarnings("ip access-list A\n", ip);
  const WarningRow ip6[] = {
      {"a netmask", "permit ipv6 2001:db8:: ffff:ffff:: any",
       "netmask 2:24: warning: ffff:ffff:: looks like a netmask: as a wildcard it compares only the last "
       "bits"},
      {"beyond the middle", "permit ipv6 2001:db8:: ffff:ffff:ffff:ffff:8000:: any",
       "netmask 2:24: warning: ffff:ffff:ffff:ffff:8000:: looks like a netmask: as a wildcard it compares "
       "only the "
       "last bits"},
      {"a wildcard", "permit ipv6 2001:db8:: ::ffff any", ""},
      {"bits beyond the length", "permit ipv6 2001:db8::1/64 any",
       "ignored-bits 2:13: warning: 2001:db8::1/64 has bits beyond its length: it is 2001:db8::/64"},
  };
  expectWarnings("ipv6 access-list A\n", ip6);
  const WarningRow mac[] = {
      {"a netmask", "permit 0200.0000.0000 ffff.ff00.0000 any",
       "netmask 2:23: warning: ffff.ff00.0000 looks like a netmask: as a wildcard it compares only the last "
       "bits"},
      {"a wildcard", "permit 0200.5e00.0000 0000.00ff.ffff any", ""},
      {"bits under the wildcard", "permit 0200.5e00.0001 0000.00ff.ffff any",
       "ignored-bits 2:8: warning: 0200.5e00.0001 has bits that the wildcard ignores: it is "
       "02:00:5e:00:00:00"},
  };
  expectWarnings("mac access-list A\n", mac);
}

TEST(Warning, OfIcmpOfTheOtherFamily) {
  const WarningRow ip6[] = {
      {"icmp", "permit icmp any any",
       "icmp-of-other-kind 2:8: warning: icmp in an IPv6 list is protocol 1, which hardly any IPv6 packet "
       "has: that "
       "of IPv6 is icmpv6"},
      {"icmpv6", "permit icmpv6 any any", ""},
      {"by number it is meant", "permit 1 any any", ""},
  };
  expectWarnings("ipv6 access-list A\n", ip6);
  const WarningRow ip[] = {
      {"icmpv6", "permit icmpv6 any any",
       "icmp-of-other-kind 2:8: warning: icmpv6 in an IPv4 list is protocol 58, which hardly any IPv4 packet "
       "has: "
       "that of IPv4 is icmp"},
      {"icmp", "permit icmp any any", ""},
  };
  expectWarnings("ip access-list A\n", ip);
}

TEST(Warning, OfWhatIsLostWithinOneInput) {
  const WarningRow table[] = {
      {"another rule of the same number", "10 deny tcp any any\n10 permit ip any any",
       "rule-twice 3:1: warning: rule 10 is given a second time: the first, deny tcp any any, is lost"},
      {"the same rule again loses nothing", "10 permit ip any any\n10 permit ip any any", ""},
      {"a rule that was taken back before", "10 deny tcp any any\nno 10\n10 permit ip any any", ""},
      {"the list is continued",
       "10 deny tcp any any\nip access-list B\nip access-list A\n10 permit ip any any",
       "rule-twice 5:1: warning: rule 10 is given a second time: the first, deny tcp any any, is lost"},
      {"the list was taken back",
       "10 deny tcp any any\nno ip access-list A\nip access-list A\n10 permit ip any any", ""},
      {"rules without numbers", "deny tcp any any\npermit ip any any", ""},
      {"another list at the same place", "interface e\nip access-group A in\nip access-group B in",
       "binding-twice 4:17: warning: interface e has one ip list in: the first, A of line 3, is lost"},
      {"the same list again", "interface e\nip access-group A in\nip access-group A in", ""},
      {"another direction", "interface e\nip access-group A in\nip access-group B out", ""},
      {"another kind", "interface e\nip access-group A in\nmac access-group B in", ""},
      {"taken back before", "interface e\nip access-group A in\nno ip access-group in\nip access-group B in",
       ""},
  };
  expectWarnings("ip access-list A\n", table);
}

TEST(Warning, IsNotOfWhatReplacesTheModelBefore) {
  const Model start = modelOf("ip access-list A\n10 deny tcp any any\ninterface e\nip access-group A in\n");
  EXPECT_EQ(warningsOf("ip access-list A\n10 permit ip any any\ninterface e\nip access-group B in\n", start),
            "");
  EXPECT_EQ(
      warningsOf("ip access-list A\n10 permit ip any any\n10 deny ip any any\n", start),
      "rule-twice t:3:1: warning: rule 10 is given a second time: the first, permit ip any any, is lost\n");
}

TEST(Warning, NamesTheTextWhereItIs) {
  const auto read = Config::read(
      {{"first", "ip access-list A\n10 deny tcp any any\n"}, {"second", "\n 10 permit ip any any\n"}});
  ASSERT_TRUE(read.model);
  ASSERT_EQ(read.model->notices.warnings.size(), 1u);
  EXPECT_EQ(read.model->notices.warnings[0].place, (Agent::Place{"second", 2, 2}));
}

TEST(Warning, NamesTheTextOfWhatIsLost) {
  const auto read = Config::read({{"first", "interface e\nip access-group A in\n"},
                                  {"second", "interface e\n\nip access-group B in\n"}});
  ASSERT_TRUE(read.model);
  ASSERT_EQ(read.model->notices.warnings.size(), 1u);
  EXPECT_EQ(read.model->notices.warnings[0].text,
            "interface e has one ip list in: the first, A of first:2, is lost");
  EXPECT_EQ(read.model->notices.warnings[0].place, (Agent::Place{"second", 3, 17}));
}

TEST(Warning, IsToldAHundredTimesAtMost) {
  std::string text = "ip access-list A\n";
  for (int i = 0; i < 107; ++i) text += "permit ip any 192.0.2.1/24\n";
  const auto notices = modelOf(text).notices;
  EXPECT_EQ(notices.warnings.size(), 100u);
  EXPECT_EQ(notices.moreWarnings, 7u);
}

TEST(Warning, LeavesModelsEqualThatSayTheSame) {
  EXPECT_EQ(modelOf("ip access-list A\npermit ip any 192.0.2.1/24\n"),
            modelOf("\nip access-list A\npermit ip any 192.0.2.1/24\n"));
}

}  // namespace
}  // namespace Config
