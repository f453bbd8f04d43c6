#include "Support.h"

namespace Config {
namespace {

#define QUALIFIERS "dscp, ttl, fragments, log, mirror or the end of the line"
#define PROTOCOLS "ip, tcp, udp, icmp, sctp, another protocol name or 0 to 255"
#define ADDRESSES "any, host A.B.C.D, A.B.C.D/LENGTH or A.B.C.D WILDCARD"
#define WILDCARD "a wildcard for the address, such as 0.0.0.255 (one address is host A.B.C.D)"
#define LENGTH "a prefix length of 0 to 32 behind an IPv4 address"
#define PORT "a port 0 to 65535 or a port name of this protocol"

TEST(RuleMistake, InTheBeginningOfARule) {
  const MistakeRow table[] = {
      {"an unknown word", "prot ip any any",
       "2:1: found \"prot\", expected permit, deny, a rule number, remark or no"},
      {"a shortened action", "perm ip any any",
       "2:1: found \"perm\", expected permit, deny, a rule number, remark or no (did you mean permit?)"},
      {"number 0", "0 permit ip any any", "2:1: found \"0\", expected a rule number 1 to 4294967295"},
      {"one above the highest number", "4294967296 permit ip any any",
       "2:1: found \"4294967296\", expected a rule number 1 to 4294967295"},
      {"a number of many digits", "99999999999999999999 permit ip any any",
       "2:1: found \"99999999999999999999\", expected a rule number 1 to 4294967295"},
      {"a padded number", "010 permit ip any any",
       "2:1: found \"010\", expected a rule number 1 to 4294967295 without leading zeros"},
      {"a negative number", "-1 permit ip any any",
       "2:1: found \"-1\", expected permit, deny, a rule number, remark or no"},
      {"a number alone", "10", "2:3: found the end of the line, expected permit or deny"},
      {"an empty numbered remark", "10 remark",
       "2:10: found the end of the line, expected the text of the remark"},
      {"a remark with number 0", "0 remark x", "2:1: found \"0\", expected a rule number 1 to 4294967295"},
      {"two numbers", "10 20 permit ip any any", "2:4: found \"20\", expected permit or deny"},
      {"no number is left", "4294967286 permit ip any any\npermit ip any any",
       "3:1: found \"permit\", expected a rule number: none is left at 10 above 4294967286"},
      {"an empty remark", "remark", "2:7: found the end of the line, expected the text of the remark"},
      {"an empty remark with blanks", "remark  ",
       "2:7: found the end of the line, expected the text of the remark"},
      {"a number too high to take back", "no 4294967296",
       "2:4: found \"4294967296\", expected a rule number 1 to 4294967295"},
      {"taking back two numbers", "no 10 20", "2:7: found \"20\", expected permit or deny"},
      {"exchanged letters", "10 premit ip any any",
       "2:4: found \"premit\", expected permit or deny (did you mean permit?)"},
      {"of a comparison in front", "permit tcp any eqq 80 any",
       "2:16: found \"eqq\", expected " ADDRESSES " (did you mean eq?)"},
      {"of any", "permit ip nay any", "2:11: found \"nay\", expected " ADDRESSES " (did you mean any?)"},
      {"of host", "permit ip any hots 192.0.2.1",
       "2:15: found \"hots\", expected " ADDRESSES " (did you mean host?)"},
      {"taking back a faulty rule", "no permit ip any",
       "2:17: found the end of the line, expected " ADDRESSES},
      {"no protocol", "permit", "2:7: found the end of the line, expected " PROTOCOLS},
      {"an unknown protocol", "permit tpc any any",
       "2:8: found \"tpc\", expected " PROTOCOLS " (did you mean tcp?)"},
      {"protocol 256", "permit 256 any any", "2:8: found \"256\", expected " PROTOCOLS},
      {"the other kind's word for any protocol", "permit ipv6 any any",
       "2:8: found \"ipv6\" in an IPv4 list, expected " PROTOCOLS},
      {"vlan 4096", "permit vlan 4096 ip any any", "2:13: found \"4096\", expected a VLAN id 0 to 4095"},
      {"vlan without an id", "permit vlan ip any any", "2:13: found \"ip\", expected a VLAN id 0 to 4095"},
      {"a wildcard of 13 bits", "permit vlan 1 0x1000 ip any any",
       "2:15: found \"0x1000\", expected a VLAN wildcard of 0x0 to 0xfff"},
      {"a wildcard without digits", "permit vlan 1 0x ip any any",
       "2:15: found \"0x\", expected a VLAN wildcard of 0x0 to 0xfff"},
      {"a decimal wildcard reads as a protocol", "permit vlan 1 15 ip any any",
       "2:18: found \"ip\", expected " ADDRESSES},
      {"vlan behind the protocol", "permit ip vlan 1 any any", "2:11: found \"vlan\", expected " ADDRESSES},
  };
  expectMistakes("ip access-list A\n", table);
}

TEST(RuleMistake, InAnIpv4Address) {
  const MistakeRow table[] = {
      {"no address", "permit ip", "2:10: found the end of the line, expected " ADDRESSES},
      {"one address only", "permit ip any", "2:14: found the end of the line, expected " ADDRESSES},
      {"a bare address", "permit ip 10.0.0.1 any", "2:20: found \"any\", expected " WILDCARD},
      {"a bare address at the end", "permit ip any 10.0.0.1",
       "2:23: found the end of the line, expected " WILDCARD},
      {"a wildcard behind any is a bare address", "permit ip any 0.0.0.255 any",
       "2:25: found \"any\", expected " WILDCARD},
      {"a wildcard behind host", "permit ip host 10.0.0.1 0.0.0.0 any",
       "2:33: found \"any\", expected " WILDCARD},
      {"a wildcard behind a prefix", "permit ip 10.0.0.0/8 0.0.0.255 any",
       "2:32: found \"any\", expected " WILDCARD},
      {"host alone", "permit ip host", "2:15: found the end of the line, expected an IPv4 address"},
      {"host any", "permit ip host any any", "2:16: found \"any\", expected an IPv4 address"},
      {"a host with a length", "permit ip host 10.0.0.1/32 any",
       "2:16: found \"10.0.0.1/32\", expected an IPv4 address"},
      {"a length of 33", "permit ip 10.0.0.0/33 any", "2:11: found \"10.0.0.0/33\", expected " LENGTH},
      {"a length without digits", "permit ip 10.0.0.0/ any", "2:11: found \"10.0.0.0/\", expected " LENGTH},
      {"a length of another number base", "permit ip 10.0.0.0/0x8 any",
       "2:11: found \"10.0.0.0/0x8\", expected " LENGTH},
      {"two lengths", "permit ip 10.0.0.0/8/8 any", "2:11: found \"10.0.0.0/8/8\", expected " LENGTH},
      {"a length behind no address", "permit ip any/8 any", "2:11: found \"any/8\", expected " LENGTH},
      {"an octet of 256", "permit ip host 10.0.0.256 any",
       "2:16: found \"10.0.0.256\", expected an IPv4 address"},
      {"three octets", "permit ip 10.0.0 0.0.0.255 any", "2:11: found \"10.0.0\", expected " ADDRESSES},
      {"an octet that could be octal", "permit ip host 10.0.0.010 any",
       "2:16: found \"10.0.0.010\", expected an IPv4 address"},
      {"an IPv6 address", "permit ip 2001:db8::/32 any", "2:11: found \"2001:db8::/32\", expected " LENGTH},
      {"a wildcard in hexadecimal", "permit ip 10.0.0.0 0xff any",
       "2:20: found \"0xff\", expected " WILDCARD},
  };
  expectMistakes("ip access-list A\n", table);
}

TEST(RuleMistake, InPorts) {
  const MistakeRow table[] = {
      {"ports of a protocol that has none", "permit icmp any eq 1 any",
       "2:17: found \"eq\", expected a rule for tcp, udp or sctp in front of ports"},
      {"ports of any protocol", "permit ip any any range 1 2",
       "2:19: found \"range\", expected a rule for tcp, udp or sctp in front of ports"},
      {"no port", "permit tcp any any eq", "2:22: found the end of the line, expected " PORT},
      {"a port of 65536", "permit tcp any any eq 65536", "2:23: found \"65536\", expected " PORT},
      {"a later port of 65536", "permit tcp any any eq 80 65536", "2:26: found \"65536\", expected " PORT},
      {"an unknown name", "permit tcp any any eq htpp",
       "2:23: found \"htpp\", expected " PORT " (did you mean http?)"},
      {"a name of another protocol", "permit tcp any any eq syslog",
       "2:23: found \"syslog\", expected " PORT},
      {"eleven ports", "permit tcp any any eq 1 2 3 4 5 6 7 8 9 10 11",
       "2:44: found \"11\", expected at most ten ports"},
      {"lt takes one port", "permit tcp any lt 5 6 any", "2:21: found \"6\", expected " ADDRESSES},
      {"a range needs two", "permit tcp any any range 5", "2:27: found the end of the line, expected " PORT},
      {"a range upside down", "permit tcp any any range 10 9",
       "2:29: found \"9\", expected a port that is not below 10"},
      {"a range upside down by name", "permit tcp any any range http telnet",
       "2:31: found \"telnet\", expected a port that is not below 80"},
      {"a range of three", "permit tcp any range 1 2 3 any", "2:26: found \"3\", expected " ADDRESSES},
      {"a port without a comparison", "permit tcp any any 80",
       "2:20: found \"80\", expected eq, neq, lt, gt, range, established, syn, ack, fin, rst, psh, "
       "urg, " QUALIFIERS},
      {"two comparisons", "permit udp any any gt 5 lt 9",
       "2:25: found \"lt\", expected dscp, ttl, log, mirror or the end of the line"},
      {"a hexadecimal port", "permit udp any any eq 0x35", "2:23: found \"0x35\", expected " PORT},
  };
  expectMistakes("ip access-list A\n", table);
}

TEST(RuleMistake, InQualifiers) {
#define FLAGS "syn, ack, fin, rst, psh, urg, "
  const MistakeRow table[] = {
      {"an unknown word", "permit ip any any tracked", "2:19: found \"tracked\", expected " QUALIFIERS},
      {"a shortened word", "permit tcp any eq 1 any est",
       "2:25: found \"est\", expected eq, neq, lt, gt, range, "
       "established, " FLAGS
       "dscp, ttl, log, mirror or the end of the line (did you mean established or rst?)"},
      {"a message of icmp elsewhere", "permit udp any any echo",
       "2:20: found \"echo\" in a rule that is not for icmp, expected eq, neq, lt, gt, range, " QUALIFIERS},
      {"an unknown message", "permit icmp any any ecko",
       "2:21: found \"ecko\", expected an ICMP message name or type, " QUALIFIERS " (did you mean echo?)"},
      {"a message behind a qualifier", "permit icmp any any ttl eq 1 echo",
       "2:30: found \"echo\" not right behind the destination, expected dscp, fragments, log, mirror or the "
       "end of the "
       "line"},
      {"two messages", "permit icmp any any echo echo-reply",
       "2:26: found \"echo-reply\" not right behind the destination, expected dscp, ttl, log, mirror or the "
       "end of the "
       "line"},
      {"a type of 256", "permit icmp any any 256", "2:21: found \"256\", expected an ICMP type 0 to 255"},
      {"a code of 256", "permit icmp any any 3 256", "2:23: found \"256\", expected an ICMP code 0 to 255"},
      {"a third number", "permit icmp any any 3 1 1",
       "2:25: found \"1\", expected dscp, ttl, log, mirror or the end of the line"},
      {"a code behind a name", "permit icmp any any unreachable 1",
       "2:33: found \"1\", expected dscp, ttl, log, mirror or the end of the line"},
      {"a message of the other ICMP", "permit icmpv6 any any echo",
       "2:23: found \"echo\" in a rule that is not for icmp, expected " QUALIFIERS},
      {"established of udp", "permit udp any any established",
       "2:20: found \"established\" in a rule that is not for tcp, expected eq, neq, lt, gt, "
       "range, " QUALIFIERS},
      {"flags of any protocol", "permit ip any any syn",
       "2:19: found \"syn\" in a rule that is not for tcp, expected " QUALIFIERS},
      {"established and flags are alternatives", "permit tcp any any established syn",
       "2:32: found \"syn\" beside established, expected dscp, ttl, log, mirror or the end of the line"},
      {"flags and established, too", "permit tcp any any syn established",
       "2:24: found \"established\" beside syn, expected ack, fin, rst, psh, urg, dscp, ttl, log, mirror or "
       "the end of "
       "the line"},
      {"a flag twice", "permit tcp any any ack ack",
       "2:24: found \"ack\" a second time, expected syn, fin, rst, psh, urg, dscp, ttl, log, mirror or the "
       "end of the line"},
      {"a qualifier twice", "permit ip any any ttl eq 1 ttl eq 2",
       "2:28: found \"ttl\" a second time, expected dscp, fragments, log, mirror or the end of the line"},
      {"fragments twice", "permit ip any any fragments fragments",
       "2:29: found \"fragments\" a second time, expected dscp, ttl, log, mirror or the end of the line"},
      {"fragments have no ports", "permit tcp any eq 80 any fragments",
       "2:26: found \"fragments\" beside ports, which later fragments do not have, expected eq, neq, lt, gt, "
       "range, "
       "established, " FLAGS "dscp, ttl, log, mirror or the end of the line"},
      {"fragments have no flags", "permit tcp any any fragments syn",
       "2:30: found \"syn\" beside fragments, which do not have it, expected dscp, ttl, log, "
       "mirror or the end "
       "of the line"},
      {"fragments have no ICMP message", "permit icmp any any echo fragments",
       "2:26: found \"fragments\" beside an ICMP message, which later fragments do not have, expected dscp, "
       "ttl, log, "
       "mirror or the end of the line"},
      {"a DSCP of 64", "permit ip any any dscp 64", "2:24: found \"64\", expected a DSCP name or 0 to 63"},
      {"an unknown DSCP", "permit ip any any dscp af14",
       "2:24: found \"af14\", expected a DSCP name or 0 to 63 (did you mean af11, af12 or af13?)"},
      {"no DSCP", "permit ip any any dscp",
       "2:23: found the end of the line, expected a DSCP name or 0 to 63"},
      {"a mask of seven bits", "permit ip any any dscp ef 0x40",
       "2:27: found \"0x40\", expected a mask of 0x0 to 0x3f"},
      {"a decimal mask", "permit ip any any dscp ef 63",
       "2:27: found \"63\", expected ttl, fragments, log, mirror or the "
       "end of the line"},
      {"a traffic class is of IPv6", "permit ip any any traffic-class 1",
       "2:19: found \"traffic-class\" in an IPv4 list, expected " QUALIFIERS},
      {"a hop limit is of IPv6", "permit ip any any hop-limit eq 1",
       "2:19: found \"hop-limit\" in an IPv4 list, expected " QUALIFIERS},
      {"a time to live has no ranges", "permit ip any any ttl range 1 2",
       "2:23: found \"range\", expected eq, neq, lt or gt"},
      {"a time to live of 256", "permit ip any any ttl eq 256",
       "2:26: found \"256\", expected a number 0 to 255"},
      {"a time to live without a comparison", "permit ip any any ttl 255",
       "2:23: found \"255\", expected eq, neq, lt or gt"},
      {"a qualifier behind log", "permit ip any any log ttl eq 1",
       "2:23: found \"ttl\", expected mirror or the end of the line"},
      {"log twice", "permit ip any any log log",
       "2:23: found \"log\", expected mirror or the end of the line"},
      {"log behind mirroring", "permit ip any any mirror session W log",
       "2:36: found \"log\", expected the end of the line"},
      {"mirror without session", "permit ip any any mirror W", "2:26: found \"W\", expected session"},
      {"mirror without a name", "permit ip any any mirror session",
       "2:33: found the end of the line, expected the name of a mirror session"},
      {"a comment behind a rule", "permit ip any any ! all", "2:19: found \"!\", expected " QUALIFIERS},
  };
  expectMistakes("ip access-list A\n", table);
}

TEST(RuleMistake, InAnIpv6Rule) {
#define QUALIFIERS6 "dscp, traffic-class, hop-limit, fragments, log, mirror or the end of the line"
#define ADDRESSES6 "any, host A:B::C, A:B::C/LENGTH or A:B::C WILDCARD"
  const MistakeRow table[] = {
      {"the other kind's word for any protocol", "permit ip any any",
       "2:8: found \"ip\" in an IPv6 list, expected ipv6, tcp, udp, icmpv6, sctp, another protocol name or 0 "
       "to 255"},
      {"a bare address", "permit ipv6 ::1 any",
       "2:17: found \"any\", expected a wildcard for the address, such as ::ffff (one address is host "
       "A:B::C)"},
      {"a length of 129", "permit ipv6 ::/129 any",
       "2:13: found \"::/129\", expected a prefix length of 0 to 128 behind an IPv6 address"},
      {"an IPv4 address", "permit ipv6 10.0.0.0 0.0.0.255 any",
       "2:13: found \"10.0.0.0\", expected " ADDRESSES6},
      {"a host of IPv4", "permit ipv6 host 10.0.0.1 any",
       "2:18: found \"10.0.0.1\", expected an IPv6 address"},
      {"a message of the other ICMP", "permit icmp any any echo",
       "2:21: found \"echo\" in a rule that is not for icmpv6, expected " QUALIFIERS6},
      {"a message that only ICMP has", "permit icmpv6 any any source-quench",
       "2:23: found \"source-quench\", expected an ICMP message name or type, " QUALIFIERS6},
      {"a time to live is of IPv4", "permit ipv6 any any ttl eq 1",
       "2:21: found \"ttl\" in an IPv6 list, expected " QUALIFIERS6},
      {"a traffic class of 256", "permit ipv6 any any traffic-class 256",
       "2:35: found \"256\", expected a traffic class 0 to 255"},
      {"a mask of nine bits", "permit ipv6 any any traffic-class 1 0x1ff",
       "2:37: found \"0x1ff\", expected a mask of 0x0 to 0xff"},
      {"a DSCP is part of the traffic class", "permit ipv6 any any dscp ef traffic-class 1",
       "2:29: found \"traffic-class\" beside dscp, expected hop-limit, fragments, log, mirror or the end of "
       "the line"},
  };
  expectMistakes("ipv6 access-list A\n", table);
}

TEST(RuleMistake, InAStandardRule) {
  const MistakeRow table[] = {
      {"a protocol", "permit ip any any", "2:8: found \"ip\", expected " ADDRESSES},
      {"a destination", "permit any any", "2:12: found \"any\", expected log, mirror or the end of the line"},
      {"a bare address", "permit 10.0.0.1", "2:16: found the end of the line, expected " WILDCARD},
      {"a VLAN", "permit vlan 1 any", "2:8: found \"vlan\", expected " ADDRESSES},
      {"a qualifier", "permit any ttl eq 1",
       "2:12: found \"ttl\", expected log, mirror or the end of the line"},
  };
  expectMistakes("ip access-list standard A\n", table);
}

TEST(RuleMistake, InAMacRule) {
#define MACS "any, host MAC or MAC WILDCARD"
#define ETHERTYPE "an EtherType (a name or 0x0600 to 0xffff), log, mirror or the end of the line"
  const MistakeRow table[] = {
      {"a protocol", "permit ip any any", "2:8: found \"ip\", expected " MACS},
      {"a bare address", "permit any 0200.5e00.0001",
       "2:26: found the end of the line, expected a wildcard for the address, such as 0000.0000.00ff (one "
       "address is host "
       "MAC)"},
      {"a MAC address has no length", "permit 0200.5e00.0001/24 any",
       "2:8: found \"0200.5e00.0001/24\", expected " MACS},
      {"five octets", "permit host 02:00:5e:00:00 any",
       "2:13: found \"02:00:5e:00:00\", expected a MAC address"},
      {"an EtherType below the lowest", "permit any any 0x05ff",
       "2:16: found \"0x05ff\", expected an EtherType of 0x0600 to 0xffff"},
      {"an EtherType of 17 bits", "permit any any 0x10000",
       "2:16: found \"0x10000\", expected an EtherType of 0x0600 to 0xffff"},
      {"a decimal EtherType", "permit any any 2048", "2:16: found \"2048\", expected " ETHERTYPE},
      {"an unknown EtherType", "permit any any ipv5",
       "2:16: found \"ipv5\", expected " ETHERTYPE " (did you mean ipv4 or ipv6?)"},
      {"two EtherTypes", "permit any any ip arp",
       "2:19: found \"arp\", expected log, mirror or the end of the line"},
      {"qualifiers are of IP", "permit any any ip ttl eq 1",
       "2:19: found \"ttl\", expected log, mirror or the end of the line"},
      {"a VLAN behind the addresses", "permit any any vlan 1", "2:16: found \"vlan\", expected " ETHERTYPE},
  };
  expectMistakes("mac access-list A\n", table);
}

}  // namespace
}  // namespace Config
