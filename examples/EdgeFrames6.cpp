#include "DemoFrames.h"

namespace Demo {

using namespace TestSupport;

std::vector<DemoFrame> edgeFrames6() {
  const auto ip6 = [](std::string_view to) { return fromInternet().ip6("2001:db8:1::10", to); };
  const std::string_view web = "2001:db8:7::7";
  const std::string_view names = "2001:db8:7::53";

  return {
      {"eth1", "A packet was too big for some link: no path works without this message.",
       passes("EDGE-L2/60 EDGE6-IN/10 SERVERS6-OUT/10 RACK-L2-OUT/20"), ip6(web).icmp6(2).payload(48)},
      {"eth1", "The router looks for a neighbour.",
       passes("EDGE-L2/60 EDGE6-IN/20 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6("ff02::1:ff00:7").hopLimit(255).icmp6(135).payload(16)},
      {"eth1", "Somebody further away pretends to be such a neighbour: he spent a hop.",
       unmatched("in", "EDGE-L2/60"), ip6("ff02::1:ff00:7").hopLimit(254).icmp6(135).payload(16)},
      {"eth1", "A browser, over IPv6.", passes("EDGE-L2/60 EDGE6-IN/30 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(web).tcp(40011, 443).flags(Syn)},
      {"eth1",
       "The same behind hop-by-hop, routing and destination options: the last header is the protocol.",
       passes("EDGE-L2/60 EDGE6-IN/30 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(web).hopByHop().routing().destinationOptions(16).tcp(40012, 443).flags(Syn)},
      {"eth1", "And behind an authentication header.",
       passes("EDGE-L2/60 EDGE6-IN/30 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(web).ah(24).tcp(40013, 443).flags(Syn)},
      {"eth1", "UDP to anything but names is denied.", denied("in", "EDGE-L2/60 EDGE6-IN/40"),
       ip6(web).udp(40014, 443).payload(20)},
      {"eth1", "A name query in a first fragment, which has its ports.",
       passes("EDGE-L2/60 EDGE6-IN/50 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(names).fragment(0, true).udp(40015, 53).udpLength(100).payload(40)},
      {"eth1", "The rest of it, which has none; the rule for that host asks for none, and comes first.",
       passes("EDGE-L2/60 EDGE6-IN/50 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(names).fragment(6, false).protocol(17).payload(52)},
      {"eth1", "A later fragment for the web server meets the rule for fragments.",
       passes("EDGE-L2/60 EDGE6-IN/70 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(web).fragment(6, false, 0x5678).protocol(6).payload(52)},
      {"eth1", "An encrypted payload: nothing behind its header is looked at.",
       passes("EDGE-L2/60 EDGE6-IN/60 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(web).protocol(50).payload(48, 0x5a)},
      {"eth1", "An expedited echo request that met congestion: the mask leaves those two bits out.",
       passes("EDGE-L2/60 EDGE6-IN/80 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       ip6(web).trafficClass(0xbb).icmp6(128).payload(8)},
      {"eth1", "The same on its last hop.", unmatched("in", "EDGE-L2/60"),
       ip6(web).trafficClass(0xb8).hopLimit(1).icmp6(128).payload(8)},
      {"eth1", "A mobile node's binding update is an upper-layer protocol, and none that has a rule.",
       unmatched("in", "EDGE-L2/60"), ip6(web).protocol(135).payload(16)},
      {"eth1", "IPv6 in the partner's VLAN.", passes("EDGE-L2/60 EDGE6-IN/30 SERVERS6-OUT/10 RACK-L2-OUT/20"),
       fromInternet().vlan(100).ip6("2001:db8:1::40", web).tcp(40016, 443).flags(Syn)},
  };
}

}  // namespace Demo
