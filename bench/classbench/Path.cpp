#include <Kiv/Clock.h>
#include <VeloAcl/VeloPlugin/DataplaneAclHelper.h>
#include <Zeb/System.h>

#include "classbench/PeerLookUps.h"
#include "classbench/Sections.h"

namespace Bench {

namespace {

using Acl::AclDirection;
using Acl::AclType;

/// A plugin's helper with one IPv4 list, bound to one interface on receipt.
class Judge {
 public:
  explicit Judge(const std::vector<TupleRule>& tuples)
      : context_(MemSlab::make<Velo::PacketContext>(MemSlab::make<Velo::VeloNamedCounters>())) {
    const auto rules = MemSlab::make<Acl::AclSubConfig>();
    uint64_t id = 1;
    for (const auto& rule : ipRules(tuples)) rules->ipRuleByIdIs(Kiv::UniqueId(id++), rule);
    rules->compile(AclType::ip);
    config_->configIs(AclType::ip)->aclIs("L")->currCfgIs(rules);
    bindings_->configIs(AclType::ip)->intfIs(AclDirection::in)->intfIs(intf_, "L");
    Zeb::System::clockIs(&turn_);
  }
  ~Judge() { Zeb::System::clockIs(nullptr); }

  /// The frames to judge, of these headers.
  void packetsAre(const std::vector<IpPacket>& packets) {
    frames_.clear();
    for (const IpPacket& packet : packets) {
      std::vector<uint8_t> frame(14 + 40);
      frame[5] = 1, frame[11] = 2, frame[12] = 0x08;
      std::copy_n(packet.ip.bytes, 20, frame.begin() + 14);
      std::copy_n(packet.l4Octets, 20, frame.begin() + 34);
      if (packet.around.protocol == 17) write16(frame.data() + 38, 20);  // the length of the datagram
      frames_.push_back(std::move(frame));
    }
  }
  bool passes(size_t i) {
    begin(i);
    return helper_->processPkt(context_, AclDirection::in, intf_);
  }
  /// Receipt and parse without a verdict, and with it.
  uint64_t parses(Portion portion) {
    return each(portion, [this] {
      context_->parsedPacket().maybeDoFullParse();
      return uint64_t{context_->parsedPacket().fault() == Velo::ParseFault::none};
    });
  }
  uint64_t verdicts(Portion portion) {
    return each(portion, [this] { return uint64_t{helper_->processPkt(context_, AclDirection::in, intf_)}; });
  }

 private:
  using Counters = Velo::VeloAcl::DataplaneAclHelper::Counters;
  static Kelp::Ptr<Counters> counters(const char* name) {
    return MemSlab::make<Counters>(name, CtrPool::FeatureId(1));
  }
  void begin(size_t i) {
    // As in the agent's loop: the time of day is read once a burst.
    if (i % 64 == 0) turn_.nowIs(Kiv::wallClock().now());
    const auto& frame = frames_[i];
    context_->pkt()->assign(frame, static_cast<uint32_t>(frame.size()), 0);
    context_->begin(intf_);
  }
  template <class Do>
  uint64_t each(Portion portion, const Do& what) {
    return answerEach(
        portion, [this](size_t i) { __builtin_prefetch(frames_[i].data()); },
        [&](size_t i) {
          begin(i);
          return what();
        });
  }

  Kiv::ManualClock turn_;
  const Nimnet::IntfId intf_{"eth1"};
  const Kelp::Ptr<Acl::Config> config_ = MemSlab::make<Acl::Config>("config");
  const Kelp::Ptr<Acl::IntfConfig> bindings_ = MemSlab::make<Acl::IntfConfig>("bindings");
  const Kelp::Ptr<Velo::VeloAcl::DataplaneAclHelper> helper_ = Velo::VeloAcl::dataplaneAclHelperFactory(
      config_, bindings_, MemSlab::make<Acl::StatusDp>("status"), counters("in"), counters("macOut"),
      counters("ipOut"), counters("ip6Out"));
  const Kelp::Ptr<Velo::PacketContext> context_;
  std::vector<std::vector<uint8_t>> frames_;
};

class PathTable {
 public:
  explicit PathTable(Run& run)
      : run_(run),
        table_("The whole verdict (binding, list, match, count, time) against the bare look-up, ns a packet",
               {"set", "trace", "parse", "parse, verdict", "verdict", "look-up", "rte_acl",
                "verdict / rte_acl"}) {}

  void measure(const RuleSet& set) {
    run_.progress(set.name + ": verdicts");
    Judge judge(set.rules);
    const OurList<Acl::IpRule> list(ipRules(set.rules));
    std::string why;
    const auto peer = Peer::make(set.rules, std::nullopt, &why);
    for (const Trace& trace : set.traces) {
      const auto packets = packetsOf(trace.headers, ipPacket);
      judge.packetsAre(packets);
      checkVerdicts(set, trace, judge);
      measure({set.name, trace.name}, judge, lookUpOf(list, packets), packets, peer.get());
    }
  }

  void finish() {
    run_.tableIs(table_);
    if (!ratios_.empty()) {
      run_.goalIs({"the whole verdict against librte_acl's look-up, geometric mean", geometricMean(ratios_),
                   1, false});
    }
  }

 private:
  /// The rules permit, so a packet that meets one passes. This makes the counters, too.
  static void checkVerdicts(const RuleSet& set, const Trace& trace, Judge& judge) {
    const auto expected = firstRules(set.rules, trace.headers, Ports::ofProtocolsThatDo);
    for (size_t i = 0; i < expected.size(); ++i) {
      if (judge.passes(i) == (expected[i] != noRule)) continue;
      throw WrongAnswer(fmt::format("{} {}: header {}: a wrong verdict", set.name, trace.name, i));
    }
  }

  void measure(std::vector<Cell> row, Judge& judge, Contender lookUp, const std::vector<IpPacket>& packets,
               Peer* peer) {
    Contender parse{"parse", [&](Portion portion) { return judge.parses(portion); }};
    Contender whole{"parse, verdict", [&](Portion portion) { return judge.verdicts(portion); }};
    PeerLookUps theirs(peer, packets);
    std::vector<Contender*> all{&parse, &whole, &lookUp};
    theirs.joinIn(all);
    alternate(all, packets.size(), run_.rounds);
    const double verdict = whole.ns.median - parse.ns.median;
    row.insert(row.end(), {parse.ns, whole.ns, Number{verdict}, lookUp.ns, theirs.ns(),
                           noted(theirs.timesAsLong(verdict), ratios_)});
    table_.rowIs(std::move(row));
  }

  Run& run_;
  Table table_;
  std::vector<double> ratios_;
};

}  // namespace

void measurePath(Run& run, const std::vector<RuleSet>& sets) {
  PathTable table(run);
  for (const RuleSet& set : sets) {
    if (set.rules.size() >= 500 && set.rules.size() <= 2000) table.measure(set);
  }
  table.finish();
}

}  // namespace Bench
