#include <memory>

#include "classbench/PeerLookUps.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

using Ip4 = Acl::IpRule;
using Ip6 = Acl::Ip6Rule;

class Ip6Table {
 public:
  explicit Ip6Table(Run& run)
      : run_(run),
        table_("The same rules in IPv6, ns a packet: addresses in the lower half, or in the upper one",
               {"set", "trace", "half", "IPv4", "IPv6", "IPv6 / IPv4", "rte_acl IPv6", "ratio"}) {}

  void measure(const RuleSet& set) {
    const OurList<Ip4> ip(ipRules(set.rules));
    for (const Lift lift : {Lift::low, Lift::high}) {
      run_.progress(set.name + ": in IPv6, building");
      const OurList<Ip6> ip6(ip6Rules(set.rules, lift));
      std::string why;
      const std::unique_ptr<Peer> peer = Peer::make(set.rules, lift, &why);
      if (!peer && Peer::available(&why)) table_.noteIs(set.name + ": " + why);
      for (const Trace& trace : set.traces) measure(set, trace, lift, ip, ip6, peer.get());
    }
  }

  void finish() {
    run_.tableIs(table_);
    if (!slower_.empty()) {
      run_.goalIs({"IPv6 against IPv4, geometric mean", geometricMean(slower_), 1.3, false});
    }
    if (!faster_.empty()) {
      run_.goalIs({"IPv6: times faster than librte_acl, geometric mean", geometricMean(faster_), 3, true});
    }
  }

 private:
  void measure(const RuleSet& set, const Trace& trace, Lift lift, const OurList<Ip4>& ip,
               const OurList<Ip6>& ip6, Peer* peer) {
    const std::string where = set.name + " " + trace.name + " in IPv6";
    run_.progress(where);
    const auto packets = packetsOf(trace.headers, ipPacket);
    const auto packets6 =
        packetsOf(trace.headers, [lift](const TupleHeader& h) { return ip6Packet(h, lift); });
    check("look-up", where, firstRules(set.rules, trace.headers, Ports::ofProtocolsThatDo),
          [&](size_t i) { return ip6.lookUp(packets6[i]); });
    Contender ours = lookUpOf(ip, packets), ours6 = lookUpOf(ip6, packets6);
    PeerLookUps theirs(peer, packets6);
    theirs.checkAgainst(trace.first, where);
    std::vector<Contender*> all{&ours, &ours6};
    theirs.joinIn(all);
    alternate(all, packets.size(), run_.rounds);
    table_.rowIs({set.name, trace.name, std::string(lift == Lift::low ? "lower" : "upper"), ours.ns, ours6.ns,
                  noted(ratioOf(ours6, ours), slower_), theirs.ns(), noted(theirs.ratioTo(ours6), faster_)});
  }

  Run& run_;
  Table table_;
  std::vector<double> slower_, faster_;  // than IPv4, and than librte_acl in IPv6
};

}  // namespace

void measureIp6(Run& run, const std::vector<RuleSet>& sets) {
  constexpr size_t mostRules = 20000;  // what the peer builds in reasonable time
  Ip6Table table(run);
  for (const RuleSet& set : sets) {
    if (set.rules.size() <= mostRules) table.measure(set);
  }
  table.finish();
}

}  // namespace Bench
