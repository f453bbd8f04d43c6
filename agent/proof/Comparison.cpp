#include <Kelp/Assert.h>
#include <agent/config/RulePairs.h>
#include <agent/proof/Comparison.h>
#include <agent/proof/TakenSets.h>

#include <algorithm>
#include <iterator>
#include <map>
#include <set>
#include <utility>

namespace Proof {

namespace {

using Numbers = std::set<uint32_t>;

/// Of rules that stay, by their numbers before in the order after, as many as stay in the same order.
Numbers longestInOrder(const std::vector<Config::RulePair>& stay) {
  std::vector<size_t> ends;  // of the ascending rows of each length, the lowest end
  std::vector<size_t> previous(stay.size(), SIZE_MAX);  // in such a row
  for (size_t i = 0; i < stay.size(); ++i) {
    const auto at = std::lower_bound(ends.begin(), ends.end(), stay[i].before,
                                     [&](size_t end, uint32_t before) { return stay[end].before < before; });
    if (at != ends.begin()) previous[i] = *std::prev(at);
    if (at == ends.end())
      ends.push_back(i);
    else
      *at = i;
  }
  Numbers kept;
  for (size_t i = ends.empty() ? SIZE_MAX : ends.back(); i != SIZE_MAX; i = previous[i])
    kept.insert(stay[i].before);
  return kept;
}

class Comparer {
 public:
  Comparer(MetList before, MetList after, const RuleSets& sets, size_t most)
      : before_(before), after_(after), sets_(sets), most_(most) {
    for (const MetList list : {before, after}) {
      if (list) loose_.add(*list);
    }
  }

  ListComparison run() {
    const PacketSet concerned = whereRulesDiffer();
    if (concerned.isEmpty()) return {};
    const TakenSets before(before_, concerned, sets_), after(after_, concerned, sets_);
    const PacketSet passed = before.permitted(), passes = after.permitted();
    ListComparison found;
    const auto tell = [&](const PacketSet& packets) { return changed(packets, before, after); };
    found.opened = tell(passes - passed);
    found.closed = tell(passed - passes);
    const PacketSet same = (passed & passes) | (concerned - (passed | passes));
    const PacketSet copied = copiedElsewhere(before, after) & same;
    const PacketSet told = loggedOtherwise(before, after) & same;
    found.mirrored = tell(copied);
    found.logged = tell(told);
    found.counted = tell((countedElsewhere(before, after) & same) - (copied | told));
    return found;
  }

 private:
  /// Only packets for which a rule asks that comes, goes or changes its place may meet anything else.
  PacketSet whereRulesDiffer() {
    if (!before_ || !after_) return before_ == after_ ? PacketSet() : sets_.packets();
    const auto pairs = Config::pairRules(*before_, *after_);
    const Numbers inOrder = longestInOrder(pairs.stay);
    std::vector<PacketSet> parts;
    for (const Config::RulePair& each : pairs.stay) {
      pairOf_.emplace(each.after, each.before);
      if (!inOrder.contains(each.before)) parts.push_back(sets_.of(after_->rules.at(each.after)));
    }
    for (const uint32_t each : pairs.gone) parts.push_back(sets_.of(before_->rules.at(each)));
    for (const uint32_t each : pairs.come) parts.push_back(sets_.of(after_->rules.at(each)));
    return joined(std::move(parts));
  }

  PacketSet copiedElsewhere(const TakenSets& before, const TakenSets& after) const {
    std::set<std::string> sessions;
    for (const TakenSets* side : {&before, &after}) {
      for (const auto& each : side->all()) {
        if (each.rule) sessions.insert(Config::common(*each.rule).mirrorSession.str());
      }
    }
    sessions.erase("");
    std::vector<PacketSet> parts;
    for (const std::string& session : sessions) {
      const auto is = [&session](const TakenSets::Taken& each) {
        return each.rule && Config::common(*each.rule).mirrorSession.str() == session;
      };
      const PacketSet was = before.thatAre(is), will = after.thatAre(is);
      parts.push_back((was - will) | (will - was));
    }
    return joined(std::move(parts));
  }

  static PacketSet loggedOtherwise(const TakenSets& before, const TakenSets& after) {
    const auto is = [](const TakenSets::Taken& each) { return each.rule && Config::common(*each.rule).log; };
    const PacketSet was = before.thatAre(is), will = after.thatAre(is);
    return (was - will) | (will - was);
  }

  PacketSet countedElsewhere(const TakenSets& before, const TakenSets& after) const {
    std::map<uint32_t, const PacketSet*> was;
    for (const auto& each : before.all()) was.emplace(each.sequence, &each.packets);
    std::vector<PacketSet> parts;
    for (const auto& each : after.all()) {
      const auto pair = pairOf_.find(each.sequence);
      const auto at = each.rule && pair == pairOf_.end() ? was.end() : was.find(each.rule ? pair->second : 0);
      parts.push_back(at == was.end() ? each.packets : each.packets - *at->second);
    }
    return joined(std::move(parts));
  }

  Changed changed(const PacketSet& packets, const TakenSets& before, const TakenSets& after) const {
    Boxes boxes = boxesOf(packets, sets_, loose_, most_);
    Changed all;
    all.more = boxes.more;
    for (Box& box : boxes.all) {
      const PacketSet& those = box.packets;
      all.boxes.push_back(
          {std::move(box.words), before.about(those), after.about(those), sets_.exampleOf(those)});
    }
    const auto order = [](const ChangedBox& box) { return std::pair(rank(box.after), rank(box.before)); };
    std::stable_sort(all.boxes.begin(), all.boxes.end(),
                     [&order](const ChangedBox& a, const ChangedBox& b) { return order(a) < order(b); });
    return all;
  }
  /// What no rule decides stands at the end.
  static std::vector<uint32_t> rank(Deciding rules) {
    for (uint32_t& each : rules) --each;
    return rules;
  }

  const MetList before_, after_;
  const RuleSets& sets_;
  const size_t most_;
  LooseBits loose_;
  std::map<uint32_t, uint32_t> pairOf_;  // by the number after
};

}  // namespace

ListComparison compare(MetList before, MetList after, const RuleSets& sets, size_t most) {
  for (const MetList list : {before, after})
    KELP_ASSERT(!list || list->type == sets.type(), "sets for another kind of list");
  return Comparer(before, after, sets, most).run();
}

}  // namespace Proof
