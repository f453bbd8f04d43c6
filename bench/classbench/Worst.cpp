#include <algorithm>
#include <memory>

#include "classbench/Generate.h"
#include "classbench/PeerLookUps.h"
#include "classbench/Sections.h"
#include "classbench/Shapes.h"

namespace Bench {

namespace {

using Ip = Acl::IpRule;

struct Traffic {
  const char* name;
  Headers (*headers)(const Tuples&, size_t, uint64_t);
};
constexpr Traffic traffics[] = {{"uniform", uniformHeaders}, {"near misses", nearMisses}};

/// Usual lists, to be timed in turn with each of those above.
class BenignLists {
 public:
  BenignLists(const Run& run, size_t headers) {
    for (const Style style : styles) {
      const auto tuples = generateRules(style, shapeSize, run.seed);
      lists_.push_back(std::make_unique<OurList<Ip>>(ipRules(tuples)));
      packets_.push_back(packetsOf(uniformHeaders(tuples, headers, run.seed + 1), ipPacket));
    }
    for (size_t i = 0; i < lists_.size(); ++i) contenders_.push_back(lookUpOf(*lists_[i], packets_[i]));
  }

  void joinIn(std::vector<Contender*>& all) {
    for (Contender& contender : contenders_) all.push_back(&contender);
  }
  /// What they took in the last measurement: the geometric mean.
  double ns() const {
    return meanOf([](const Contender& contender) { return contender.ns.median; });
  }
  double ratioTo(const Contender& ours) const {
    return meanOf([&ours](const Contender& contender) { return ratioOf(ours, contender); });
  }

 private:
  template <class Figure>
  double meanOf(const Figure& figure) const {
    std::vector<double> all;
    for (const Contender& contender : contenders_) all.push_back(figure(contender));
    return geometricMean(all);
  }

  std::vector<std::unique_ptr<OurList<Ip>>> lists_;
  std::vector<std::vector<IpPacket>> packets_;
  std::vector<Contender> contenders_;
};

class WorstTable {
 public:
  explicit WorstTable(Run& run)
      : run_(run),
        headers_(std::min<size_t>(run.headers, 20000)),
        usual_(run, headers_),
        table_(
            "1,000 rules and traffic against the structure, and usual lists in turn with them, ns a packet",
            {"rules", "traffic", "look-up", "usual", "ratio", "in order", "ratio", "compiled in ms",
             "bytes a rule", "rte_acl"}) {}

  void measure(const Shape& shape) {
    run_.progress(fmt::format("worst cases: {}", shape.name));
    Dice dice(run_.seed);
    const Tuples tuples = shape.rules(dice);
    auto rules = ipRules(tuples);
    if (shape.also) shape.also(dice, rules);
    const OurList<Ip> list(rules);
    std::string why;
    const auto peer = shape.also ? nullptr : Peer::make(tuples, std::nullopt, &why);
    for (const Traffic& traffic : traffics) {
      auto packets = packetsOf(traffic.headers(tuples, headers_, run_.seed + 1), ipPacket);
      if (shape.also) addressesAre(dice, rules, packets);
      checkInOrder(fmt::format("{}, {}", shape.name, traffic.name), list, packets);
      measure({std::string(shape.name), std::string(traffic.name)}, list, packets, peer.get());
    }
  }

  void finish() {
    run_.tableIs(table_);
    run_.goalIs({"worst case of 1,000 rules against usual lists", worst_, 2, false});
    run_.goalIs({"1,000 rules: slowest against the rules in order (0.05 is noise)", slowest_, 1.05, false});
  }

 private:
  void measure(std::vector<Cell> row, const OurList<Ip>& list, const std::vector<IpPacket>& packets,
               Peer* peer) {
    Contender ours = lookUpOf(list, packets), ordered = inOrderOf(list, packets);
    PeerLookUps theirs(peer, packets);
    std::vector<Contender*> all{&ours, &ordered};
    theirs.joinIn(all);
    usual_.joinIn(all);
    alternate(all, packets.size(), run_.rounds);
    const double over = usual_.ratioTo(ours), overOrdered = ratioOf(ours, ordered);
    worst_ = std::max(worst_, over);
    slowest_ = std::max(slowest_, overOrdered);
    const double bytes = static_cast<double>(list.lookUpBytes()) / static_cast<double>(shapeSize);
    row.insert(row.end(),
               {ours.ns, Number{usual_.ns(), 1}, Number{over, 2}, ordered.ns, Number{overOrdered, 2},
                Number{list.compileNs() / 1e6, 2}, Number{bytes, 0}, theirs.ns()});
    table_.rowIs(std::move(row));
  }

  Run& run_;
  const size_t headers_;
  BenignLists usual_;
  Table table_;
  double worst_ = 0, slowest_ = 0;  // against usual lists, and against the rules in order
};

}  // namespace

void measureWorst(Run& run, const std::vector<RuleSet>&) {
  run.progress("worst cases: the usual lists");
  WorstTable table(run);
  for (const Shape& shape : shapes()) table.measure(shape);
  table.finish();
}

void measureSmall(Run& run, const std::vector<RuleSet>&) {
  Table table("Lists of a few rules, ns a packet",
              {"rules", "style", "traffic", "look-up", "in order", "look-up / in order"});
  constexpr size_t headers = 5000;
  double slowest = 0;
  for (const size_t size : {1, 2, 4, 8, 16, 32}) {
    for (const Style style : {Style::acl, Style::fw}) {
      run.progress(fmt::format("lists of {} rules", size));
      const auto tuples = generateRules(style, size, run.seed);
      const OurList<Ip> list(ipRules(tuples));
      const auto first = uniformHeaders({tuples.front()}, headers, run.seed);
      const auto last = uniformHeaders({tuples.back()}, headers, run.seed);
      const std::pair<const char*, Headers> all[] = {{"first rule", first},
                                                     {"last rule", last},
                                                     {"any rule", uniformHeaders(tuples, headers, run.seed)},
                                                     {"near misses", nearMisses(tuples, headers, run.seed)}};
      for (const auto& [name, traffic] : all) {
        const auto packets = packetsOf(traffic, ipPacket);
        checkInOrder(fmt::format("{} rules, {}", size, name), list, packets);
        Contender ours = lookUpOf(list, packets), ordered = inOrderOf(list, packets);
        alternate({&ours, &ordered}, packets.size(), 3 * run.rounds);
        const double ratio = ratioOf(ours, ordered);
        slowest = std::max(slowest, ratio);
        table.rowIs({Number{static_cast<double>(size), 0}, std::string(nameOf(style)), std::string(name),
                     ours.ns, ordered.ns, Number{ratio, 2}});
      }
    }
  }
  run.tableIs(table);
  run.goalIs(
      {"lists of 1 to 32 rules: slowest against the rules in order (0.05 is noise)", slowest, 1.05, false});
}

}  // namespace Bench
