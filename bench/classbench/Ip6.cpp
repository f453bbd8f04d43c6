#include "classbench/Checks.h"
#include "classbench/Peer.h"
#include "classbench/Sections.h"

namespace Bench {

void measureIp6(Run& run, const std::vector<RuleSet>& sets) {
  using Ip4 = Acl::IpRule;
  using Ip6 = Acl::Ip6Rule;
  constexpr size_t mostRules = 20000;  // what the peer builds in reasonable time

  Table table("The same rules in IPv6, ns a packet: addresses in the lower half, or in the upper one",
              {"set", "trace", "half", "IPv4", "IPv6", "IPv6 / IPv4", "rte_acl IPv6", "ratio"});
  std::vector<double> slower, faster;
  for (const RuleSet& set : sets) {
    if (set.rules.size() > mostRules) continue;
    const OurList<Ip4> ip(ipRules(set.rules));
    for (const Lift lift : {Lift::low, Lift::high}) {
      const char* half = lift == Lift::low ? "lower" : "upper";
      run.progress(set.name + ": in IPv6, building");
      const OurList<Ip6> ip6(ip6Rules(set.rules, lift));
      std::string why;
      const std::unique_ptr<Peer> peer = Peer::make(set.rules, lift, &why);
      if (!peer && Peer::available(&why)) table.noteIs(set.name + ": " + why);
      for (const Trace& trace : set.traces) {
        const std::string where = set.name + " " + trace.name + " in IPv6";
        run.progress(where);
        const auto packets = packetsOf(trace.headers, ipPacket);
        const auto packets6 =
            packetsOf(trace.headers, [lift](const TupleHeader& h) { return ip6Packet(h, lift); });
        check("look-up", where, firstRules(set.rules, trace.headers, Ports::ofProtocolsThatDo),
              [&](size_t i) { return ip6.lookUp(packets6[i]); });
        Contender ours = lookUpOf(ip, packets), ours6 = lookUpOf(ip6, packets6);
        Contender theirs{"rte_acl", [&](Portion portion) { return peer->lookUps(portion); }};
        std::vector<Contender*> all{&ours, &ours6};
        if (peer) {
          peer->packetsAre(packets6);
          check("librte_acl", where, trace.first, [&](size_t i) { return peer->lookUp(i); });
          all.push_back(&theirs);
        }
        alternate(all, packets.size(), run.rounds);
        slower.push_back(ratioOf(ours6, ours));
        std::vector<Cell> row{set.name, trace.name, std::string(half),
                              ours.ns,  ours6.ns,   Number{slower.back(), 2}};
        if (peer) {
          faster.push_back(ratioOf(theirs, ours6));
          row.insert(row.end(), {theirs.ns, Number{faster.back(), 2}});
        } else {
          row.resize(8);
        }
        table.rowIs(std::move(row));
      }
    }
  }
  run.tableIs(table);
  if (!slower.empty()) run.goalIs({"IPv6 against IPv4, geometric mean", geometricMean(slower), 1.3, false});
  if (!faster.empty()) {
    run.goalIs({"IPv6: times faster than librte_acl, geometric mean", geometricMean(faster), 3, true});
  }
}

}  // namespace Bench
