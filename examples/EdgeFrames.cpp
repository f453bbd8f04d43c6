#include "DemoFrames.h"

namespace Demo {

using namespace TestSupport;

std::vector<DemoFrame> edgeFrames() {
  const auto ip = [](std::string_view to) { return fromInternet().ip4("192.0.2.10", to); };
  const auto ipFrom = [](std::string_view from, std::string_view to) { return fromInternet().ip4(from, to); };

  return {
      {"eth1", "The router asks for an address: a MAC list is all that ARP meets.",
       passes("EDGE-L2/40 RACK-L2-OUT/20"), fromInternet().arp("198.51.100.1", "198.51.100.7").padTo(60)},
      {"eth1", "A browser opens a connection to the web server.",
       passes("EDGE-L2/50 EDGE-IN/30 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.7").tcp(40001, 443).flags(Syn)},
      {"eth1",
       "Its twin, 198.51.100.15: a wildcard bit in the middle of an address makes two hosts one rule.",
       passes("EDGE-L2/50 EDGE-IN/30 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.15").tcp(40002, 80).flags(Syn)},
      {"eth1", "A third host, 198.51.100.23, is not in that rule, nor in any other.",
       unmatched("in", "EDGE-L2/50"), ip("198.51.100.23").tcp(40003, 443).flags(Syn)},
      {"eth1", "A remote login in clear is denied, and who tries is recorded.",
       denied("in", "EDGE-L2/50 EDGE-IN/10", "WATCH"), ip("198.51.100.7").tcp(40004, 23).flags(Syn)},
      {"eth1", "A scanner sets SYN and FIN at once.", denied("in", "EDGE-L2/50 EDGE-IN/20"),
       ip("198.51.100.7").tcp(40005, 443).flags(Syn | Fin)},
      {"eth1", "A reply to a connection from inside: its ACK is set.",
       passes("EDGE-L2/50 EDGE-IN/40 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.30").tcp(22, 51000).flags(Syn | Ack)},
      {"eth1", "A refusal: RST without ACK belongs to a connection, too.",
       passes("EDGE-L2/50 EDGE-IN/40 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.30").tcp(22, 51005).flags(Rst)},
      {"eth1",
       "A full-sized reply of which the capture kept 96 octets: payload may be cut.",
       passes("EDGE-L2/50 EDGE-IN/40 SERVERS-OUT/30 RACK-L2-OUT/20"),
       {ip("198.51.100.30").tcp(22, 51000).flags(Psh | Ack).payload(1460, 'x'), 96}},
      {"eth1", "A reply with a router alert among its IPv4 options.",
       passes("EDGE-L2/50 EDGE-IN/40 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.30").options({0x94, 4, 0, 0}).tcp(22, 51000).flags(Ack)},
      {"eth1", "The answer to a name query, its first fragment: here are the ports.",
       passes("EDGE-L2/50 EDGE-IN/50 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.53").fragment(0, true).udp(53, 33333).udpLength(108).payload(40, 'a')},
      {"eth1", "The rest of that answer has no ports, and only a rule for fragments lets it in.",
       passes("EDGE-L2/50 EDGE-IN/160 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.53").fragment(6, false).protocol(17).payload(60, 'a')},
      {"eth1", "A name query from outside.", passes("EDGE-L2/50 EDGE-IN/60 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.53").udp(33334, 53).payload("\x12\x34")},
      {"eth1", "An echo request is denied, and the rule says log.", denied("in", "EDGE-L2/50 EDGE-IN/70"),
       ip("198.51.100.7").icmp(8).payload("ping")},
      {"eth1", "A router on the way needs smaller packets.",
       passes("EDGE-L2/50 EDGE-IN/80 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.7").icmp(3, 4).payload(28)},
      {"eth1", "A hop of somebody's traceroute: ICMP type and code by number.",
       passes("EDGE-L2/50 EDGE-IN/90 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ip("198.51.100.30").icmp(11, 0).payload(28)},
      {"eth1", "The same type with the other code, a reassembly that timed out, meets no rule.",
       unmatched("in", "EDGE-L2/50"), ip("198.51.100.30").icmp(11, 1).payload(28)},
      {"eth1", "Signalling over SCTP.", passes("EDGE-L2/50 EDGE-IN/100 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ipFrom("203.0.113.8", "198.51.100.21").sctp(2905, 2905).payload(16)},
      {"eth1", "SCTP to another port.", unmatched("in", "EDGE-L2/50"),
       ipFrom("203.0.113.8", "198.51.100.21").sctp(2905, 3868).payload(16)},
      {"eth1", "Voice, expedited; the list on the way out mirrors it.",
       passes("EDGE-L2/50 EDGE-IN/110 SERVERS-OUT/20 RACK-L2-OUT/20", "WATCH"),
       ip("198.51.100.20").tos(0xb8).udp(20000, 16400).payload(160, 0xd5)},
      {"eth1", "Voice that nobody marked.", unmatched("in", "EDGE-L2/50"),
       ip("198.51.100.20").udp(20000, 16400).payload(160, 0xd5)},
      {"eth1", "The routing peer, with a TTL that only this link can give.",
       passes("EDGE-L2/50 EDGE-IN/120 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ipFrom("203.0.113.1", "198.51.100.1").ttl(255).tcp(40006, 179).flags(Syn)},
      {"eth1", "Somebody one hop further who borrows the peer's address.", unmatched("in", "EDGE-L2/50"),
       ipFrom("203.0.113.1", "198.51.100.1").ttl(254).tcp(40006, 179).flags(Syn)},
      {"eth1", "A time source with an even address.",
       passes("EDGE-L2/50 EDGE-IN/130 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ipFrom("203.0.113.4", "198.51.100.30").udp(123, 123).payload(48)},
      {"eth1", "One with an odd address: the lowest bit alone tells them apart.",
       unmatched("in", "EDGE-L2/50"), ipFrom("203.0.113.5", "198.51.100.30").udp(123, 123).payload(48)},
      {"eth1", "A tunnel: a protocol by its number.",
       passes("EDGE-L2/50 EDGE-IN/140 SERVERS-OUT/30 RACK-L2-OUT/20"),
       ipFrom("203.0.113.9", "198.51.100.9").protocol(47).payload(24)},
      {"eth1", "The partner, in VLAN 100.", passes("EDGE-L2/50 EDGE-IN/150 SERVERS-OUT/30 RACK-L2-OUT/20"),
       fromInternet().vlan(100).ip4("192.0.2.40", "198.51.100.70").udp(5000, 5000).payload(8)},
      {"eth1", "The partner again, with a tag of his own inside: the outer id counts.",
       passes("EDGE-L2/50 EDGE-IN/150 SERVERS-OUT/30 RACK-L2-OUT/20"),
       fromInternet()
           .vlan(100, 0x88a8)
           .vlan(7)
           .ip4("192.0.2.40", "198.51.100.70")
           .udp(5000, 5000)
           .payload(8)},
      {"eth1", "The same addresses with a priority but no VLAN are not the partner.",
       unmatched("in", "EDGE-L2/50"),
       fromInternet().vlan(0, 0x8100, 5).ip4("192.0.2.40", "198.51.100.70").udp(5000, 5000).payload(8)},
      {"eth1", "A guest, in VLAN 200: the wildcard makes 192 to 207 one rule.", denied("in", "EDGE-L2/20"),
       fromInternet().vlan(200).ip4("192.0.2.40", "198.51.100.7").tcp(40007, 443).flags(Syn)},
      {"eth1", "Character generation, to be sent to a victim.", denied("in", "EDGE-L2/50 EDGE-IN/170"),
       ip("198.51.100.30").udp(53000, 19).payload(4)},
      {"eth1", "A reply to a host in quarantine comes in, and goes no further.",
       denied("out", "EDGE-L2/50 EDGE-IN/40 SERVERS-OUT/10"), ip("198.51.100.99").tcp(443, 51001).flags(Ack)},
      {"eth1",
       "A reply to an adapter that was taken out: denied by the list of the member it would leave on.",
       denied("out", "EDGE-L2/50 EDGE-IN/40 SERVERS-OUT/30 RACK-L2-OUT/10"),
       frame()
           .eth("02:00:5e:00:00:01", "02:00:5e:00:01:63")
           .ip4("192.0.2.10", "198.51.100.31")
           .tcp(443, 51002)
           .flags(Ack)},
      {"eth1", "The stolen adapter.", denied("in", "EDGE-L2/10"),
       frame()
           .eth("02:00:5e:00:66:01", "02:00:5e:00:00:02")
           .ip4("192.0.2.66", "198.51.100.7")
           .tcp(40008, 443)
           .flags(Syn)},
      {"eth1", "A spanning-tree message (802.3, LLC) ends at the link.", denied("in", "EDGE-L2/30"),
       frame().eth("02:00:5e:00:00:01", "01:80:c2:00:00:00").llc(0x42, 0x42, 3).payload(35).padTo(60)},
      {"eth1", "So does a neighbour's description of itself.", denied("in", "EDGE-L2/30"),
       frame().eth("02:00:5e:00:00:01", "01:80:c2:00:00:0e").ethType(0x88cc).payload(46)},
      {"eth1", "MPLS is not looked behind, and the MAC list has no rule for it.", unmatched("in", ""),
       fromInternet().mpls(1000).ip4("192.0.2.10", "198.51.100.7").tcp(40009, 443).flags(Syn)},
      {"eth1", "ARP in SNAP: the MAC list sees the type behind the SNAP header.",
       passes("EDGE-L2/40 RACK-L2-OUT/20"), fromInternet().snap().ethType(0x0806).payload(28).padTo(60)},
  };
}

}  // namespace Demo
