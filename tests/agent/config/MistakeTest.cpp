#include "Support.h"

namespace Config {
namespace {

#define STATEMENTS "ip, ipv4, ipv6, mac, access-list, interface, port-channel, object-group, mirror"
#define NO_STATEMENTS "ip, ipv4, ipv6, mac, access-list, interface, port-channel, object-group or mirror"

TEST(Mistake, InTheFirstWordsOfAStatement) {
  const MistakeRow table[] = {
      {"an unknown word", "bridge", "1:1: found \"bridge\", expected " STATEMENTS " or no"},
      {"a keyword in capitals", "IP access-list A",
       "1:1: found \"IP\", expected " STATEMENTS " or no (did you mean ip?)"},
      {"a shortened keyword", "int eth1",
       "1:1: found \"int\", expected " STATEMENTS " or no (did you mean interface?)"},
      {"a shortened second keyword", "ip access A",
       "1:4: found \"access\", expected access-list (did you mean access-list?)"},
      {"a statement of one word", "ipv6", "1:5: found the end of the line, expected access-list"},
      {"no without a statement", "no", "1:3: found the end of the line, expected " NO_STATEMENTS},
      {"no twice", "no no ip access-list A", "1:4: found \"no\", expected " NO_STATEMENTS},
      {"a rule outside a list", "10 permit ip any any",
       "1:1: found \"10\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"an action outside a list", "deny ip any any",
       "1:1: found \"deny\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"a remark outside a list", "  remark x",
       "1:3: found \"remark\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"taking a rule back outside a list", "no 10",
       "1:4: found \"10\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"a binding outside an interface", "ip access-group A in",
       "1:1: found \"ip\" access-group outside an interface, expected it below interface NAME"},
      {"a binding in a list", "ip access-list A\nip access-group A in",
       "2:1: found \"ip\" access-group outside an interface, expected it below interface NAME"},
      {"a rule in an interface", "interface e1\npermit ip any any",
       "2:1: found \"permit\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"an unknown word in an interface", "interface e1\nspeed 1000",
       "2:1: found \"speed\", expected ip, ipv4, ipv6, mac, description, shutdown or no"},
      {"a second word in an interface may open a list", "interface e1\nip address",
       "2:4: found \"address\", expected access-group or access-list"},
      {"a port-channel statement leaves the interface",
       "interface e1\nport-channel p members e2\nip access-group A in",
       "3:1: found \"ip\" access-group outside an interface, expected it below interface NAME"},
      {"a list taken back is not open", "ip access-list A\nno ip access-list A\npermit ip any any",
       "3:1: found \"permit\" outside a list, expected it below ip, ipv6 or mac access-list NAME"},
      {"a comment is at the start of a line only", "interface e1 ! uplink",
       "1:14: found \"!\", expected the end of the line"},
  };
  expectMistakes("", table);
}

TEST(Mistake, InAListsFirstLine) {
  const MistakeRow table[] = {
      {"no name", "ip access-list", "1:15: found the end of the line, expected the name of a list"},
      {"standard is no name", "ip access-list standard",
       "1:24: found the end of the line, expected the name of a list"},
      {"extended is no name", "ip access-list extended",
       "1:24: found the end of the line, expected the name of a list"},
      {"not even behind the other", "ip access-list extended standard",
       "1:25: found \"standard\", expected the name of a list, which this word is not"},
      {"nor twice", "ip access-list standard standard",
       "1:25: found \"standard\", expected the name of a list, which this word is not"},
      {"nor of a MAC list", "mac access-list extended",
       "1:17: found \"extended\", expected the name of a list, which this word is not"},
      {"an IPv6 list has one form", "ipv6 access-list extended A",
       "1:18: found \"extended\", expected the name of a list, which this word is not"},
      {"a name is one word", "ip access-list EDGE IN", "1:21: found \"IN\", expected the end of the line"},
      {"a standard list is not continued as another", "ip access-list standard A\nip access-list A",
       "2:16: found \"A\" of a standard list, expected ip access-list standard in front of it, or no ip "
       "access-list A "
       "first"},
      {"nor the other way", "ip access-list A\nip access-list standard A",
       "2:25: found \"A\" of an extended list, expected ip access-list extended in front of it, or no ip "
       "access-list A "
       "first"},
      {"taking back needs a name", "no ip access-list",
       "1:18: found the end of the line, expected the name of a list"},
      {"taking back one list only", "no mac access-list A B",
       "1:22: found \"B\", expected the end of the line"},
      {"the lines below a faulty first line are checked, and belong to no other list",
       "ip access-list A\nip access-list standard\npermit any\ndeny ip any any",
       "2:24: found the end of the line, expected the name of a list\n"
       "t:4:6: found \"ip\", expected "
       "any, host A.B.C.D, A.B.C.D/LENGTH or A.B.C.D WILDCARD"},
  };
  expectMistakes("", table);
}

TEST(Mistake, InInterfacesPortChannelsAndMirrorSessions) {
  const MistakeRow table[] = {
      {"an interface without a name", "interface",
       "1:10: found the end of the line, expected the name of an interface"},
      {"an interface of two words", "interface Ethernet 1",
       "1:20: found \"1\", expected the end of the line"},
      {"a binding without a list", "interface e\nip access-group",
       "2:16: found the end of the line, expected the name of a list"},
      {"a binding without a direction", "interface e\nip access-group A",
       "2:18: found the end of the line, expected in or out"},
      {"a direction with a letter too many", "interface e\nip access-group A inn",
       "2:19: found \"inn\", expected in or out (did you mean in?)"},
      {"an unknown direction", "interface e\nmac access-group A inbound",
       "2:20: found \"inbound\", expected in or out"},
      {"both directions", "interface e\nip access-group A in out",
       "2:22: found \"out\", expected the end of the line"},
      {"standard is no list", "interface e\nip access-group standard in",
       "2:17: found \"standard\", expected the name of a list, which this word is not"},
      {"taking back without a direction", "interface e\nno ip access-group A",
       "2:20: found \"A\", expected in or out"},
      {"taking back nothing", "interface e\nno ip access-group",
       "2:19: found the end of the line, expected in or out"},
      {"the lines below a faulty interface are checked", "interface\nip access-group A",
       "1:10: found the end of the line, expected the name of an interface\n"
       "t:2:18: found the end of the line, expected in or out"},
      {"a port-channel without a name", "port-channel",
       "1:13: found the end of the line, expected the name of a port-channel"},
      {"a port-channel without members", "port-channel p",
       "1:15: found the end of the line, expected members"},
      {"members without a member", "port-channel p members",
       "1:23: found the end of the line, expected the name of an interface"},
      {"a shortened keyword", "port-channel p member e1", "1:16: found \"member\", expected members"},
      {"a member twice", "port-channel p members a b a",
       "1:28: found \"a\" a second time, expected each interface once"},
      {"itself as a member", "port-channel p members a p",
       "1:26: found \"p\", expected interfaces other than the port-channel itself"},
      {"a member of two", "port-channel p members a b\nport-channel q members c b",
       "2:26: found \"b\" that is a member of \"p\", expected an interface that is in no other port-channel"},
      {"a port-channel as a member", "port-channel p members a\nport-channel q members p",
       "2:24: found \"p\" that is a port-channel, expected an interface"},
      {"a member as a port-channel", "port-channel p members a\nport-channel a members b",
       "2:14: found \"a\" that is a member of \"p\", expected the name of a port-channel"},
      {"taking back with a wrong word", "no port-channel p a", "1:19: found \"a\", expected members"},
      {"a mirror session without the word", "mirror W destination e1", "1:8: found \"W\", expected session"},
      {"a mirror session without a name", "mirror session",
       "1:15: found the end of the line, expected the name of a mirror session"},
      {"a mirror session without a destination", "mirror session W",
       "1:17: found the end of the line, expected destination"},
      {"no interface behind destination", "mirror session W destination",
       "1:29: found the end of the line, expected the name of an interface"},
      {"a destination twice", "mirror session W destination a a",
       "1:32: found \"a\" a second time, expected each interface once"},
      {"taking back without a name", "no mirror session",
       "1:18: found the end of the line, expected the name of a mirror session"},
  };
  expectMistakes("", table);
}

TEST(Mistake, OfAPortChannelLeavesItAsItWas) {
  const MistakeRow table[] = {
      {"the members of a faulty statement are not taken",
       "port-channel p members a a\nport-channel q members a",
       "1:26: found \"a\" a second time, expected each interface once"},
      {"not even those in front of the faulty one",
       "port-channel p members a\nport-channel q members b a\nport-channel r members b",
       "2:26: found \"a\" that is a member of \"p\", expected an interface that is in no other port-channel"},
  };
  expectMistakes("", table);
}

}  // namespace
}  // namespace Config
