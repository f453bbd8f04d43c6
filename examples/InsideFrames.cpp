#include "DemoFrames.h"

namespace Demo {

using namespace TestSupport;

std::vector<DemoFrame> insideFrames() {
  const auto ip = [](std::string_view from, std::string_view to) { return fromServer().ip4(from, to); };
  const std::string_view outside = "192.0.2.10";

  return {
      {"eth2", "The server answers the router: no MAC list on the way in, one on the way out.",
       passes("EDGE-L2-OUT/20"), fromServer().arp("198.51.100.7", "198.51.100.1", 2).padTo(60)},
      {"eth2", "The web server answers the browser: first the port-channel's list, then the member's.",
       passes("SERVERS-IN/10 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/40"),
       ip("198.51.100.7", outside).tcp(443, 40001).flags(Syn | Ack)},
      {"eth2", "The name server answers.", passes("SERVERS-IN/20 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/40"),
       ip("198.51.100.53", outside).udp(53, 33334).payload(40)},
      {"eth2", "The mail host sends mail.", passes("SERVERS-IN/30 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/40"),
       ip("198.51.100.25", "203.0.113.25").tcp(50001, 25).flags(Syn)},
      {"eth2", "Another host tries to, and a copy goes to the recorder.",
       denied("in", "SERVERS-IN/40", "WATCH"), ip("198.51.100.7", "203.0.113.25").tcp(50002, 25).flags(Syn)},
      {"eth2", "An administrator logs in somewhere else.",
       passes("SERVERS-IN/50 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/40"),
       ip("198.51.100.30", outside).tcp(51000, 22).flags(Syn)},
      {"eth2",
       "A boot loader asks for its file out loud: the port-channel's list permits it, the member's does not.",
       denied("in", "SERVERS-IN/60 RACK-2-IN/10"),
       ip("198.51.100.40", outside).udp(2000, 69).payload("\x00\x01")},
      {"eth2", "An address that is not of this rack meets no rule of the member's list.",
       unmatched("in", "SERVERS-IN/60"), ip("192.0.2.66", outside).udp(2001, 4000).payload(4)},
      {"eth2", "A private address is no destination out there.",
       denied("out", "SERVERS-IN/50 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/10"),
       ip("198.51.100.30", "10.1.2.3").tcp(51003, 443).flags(Syn)},
      {"eth2", "Nor is one of the twelve-bit block.",
       denied("out", "SERVERS-IN/70 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/20"),
       ip("198.51.100.30", "172.20.0.1").icmp(8).payload("ping")},
      {"eth2", "File sharing stays inside.",
       denied("out", "SERVERS-IN/50 RACK-2-IN/20 EDGE-L2-OUT/10 EDGE-OUT/30"),
       ip("198.51.100.30", outside).tcp(51004, 139).flags(Syn)},
      {"eth2", "Signalling from inside was forgotten in the port-channel's list.", unmatched("in", ""),
       ip("198.51.100.21", "203.0.113.8").sctp(2905, 2905).payload(16)},
      {"eth2", "IPv6 from the servers: no list on the way but the MAC list at its end.",
       passes("EDGE-L2-OUT/30"),
       fromServer().ip6("2001:db8:7::7", "2001:db8:1::10").tcp(443, 40011).flags(Syn | Ack)},
      {"eth2", "Connectivity monitoring (EtherType 0x8902) meets no rule on its way out.",
       unmatched("out", ""), fromServer().ethType(0x8902).payload(46)},
      {"eth4", "The list of the branch is bound but not yet written: it passes.", passes(""),
       frame().eth("02:00:5e:00:04:01").ip4("198.18.0.9", "198.51.100.7").udp(4000, 4000).payload(8)},
      {"eth4", "IPv6 from the branch: no list at all.", passes(""),
       frame().eth("02:00:5e:00:04:01").ip6("2001:db8:4::9", "2001:db8:7::7").tcp(4001, 23).flags(Syn)},
  };
}

}  // namespace Demo
