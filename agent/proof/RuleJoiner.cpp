#include <Kelp/Assert.h>
#include <agent/config/Digest.h>
#include <agent/proof/Condition.h>
#include <agent/proof/RuleJoiner.h>
#include <fmt/format.h>

#include <algorithm>
#include <bit>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace Proof {

namespace {

/// The fields in which two rules may differ and yet be joined, in the order in which that is tried.
constexpr Field joinable[] = {
    Field::destinationPort, Field::sourcePort, Field::icmpCode, Field::source,
    Field::destination,     Field::hops,       Field::vlan,     Field::trafficClass};

bool isAddress(Field field) { return field == Field::source || field == Field::destination; }

/// Has a filter ask nothing of one field.
void clear(Acl::IpFilterBase& filter, Field field) {
  switch (field) {
    case Field::sourcePort:
      filter.sourcePort = {};
      break;
    case Field::destinationPort:
      filter.destinationPort = {};
      break;
    case Field::icmpCode:
      filter.icmpCodeNamed = false, filter.icmpCode = 0;
      break;
    case Field::hops:
      filter.hops = {};
      break;
    case Field::trafficClass:
      filter.trafficClass = filter.trafficClassMask = 0;
      break;
    default:
      break;
  }
}
void clear(Acl::MacFilter&, Field) {}

/// Rules with the same action that differ in no more than one field have the same.
uint64_t likeness(const Config::Rule& rule, Field field) {
  return std::visit(
      [field](const auto& one) {
        auto filter = one.filter;
        if (field == Field::source) filter.source = filter.sourceMask = {};
        if (field == Field::destination) filter.destination = filter.destinationMask = {};
        if (field == Field::vlan) filter.vlan = {};
        clear(filter, field);
        Config::Digest digest;
        addTo(digest, filter);
        return digest.value();
      },
      rule);
}

bool isPlain(const Acl::RuleBase& base) { return !base.log && base.mirrorSession.empty(); }

unsigned bitsThatDiffer(const Bits& a, const Bits& b) {
  unsigned count = 0;
  for (size_t i = 0; i < Bits::words; ++i) count += std::popcount(a.word[i] ^ b.word[i]);
  return count;
}

/// The fields of a rule as this list writes them; nothing if it cannot.
std::optional<std::string> wordsIn(const Config::List& list, const std::string& words) {
  constexpr std::string_view before = "ip ", behind = " any";
  if (!list.standard) return words;
  if (!words.starts_with(before) || !words.ends_with(behind) || words.size() < before.size() + behind.size())
    return std::nullopt;
  return words.substr(before.size(), words.size() - before.size() - behind.size());
}

std::string linesOf(const Kelp::String& first, const Kelp::String& second) {
  const bool both = !first.empty() && !second.empty();
  return fmt::format("{}{}{}", first.view(), both ? "\n" : "", second.view());
}

}  // namespace

RuleJoiner::RuleJoiner(Config::List& list, const RuleSets& sets) : list_(list), sets_(sets) {
  loose_.add(list);
}

std::vector<JoinedRules> RuleJoiner::run() {
  std::vector<std::vector<uint32_t>> runs;
  std::optional<Acl::Action> action;  // of the run that goes on
  for (const auto& [sequence, rule] : list_.rules) {
    const Acl::RuleBase& base = Config::common(rule);
    if (!isPlain(base)) {
      action.reset();
      continue;
    }
    if (action != base.action) runs.emplace_back();
    action = base.action;
    if (Config::combinations(rule) == 0) runs.back().push_back(sequence);
  }
  for (const auto& each : runs) {
    while (joinRun(each)) {
    }
  }
  std::vector<JoinedRules> all;
  for (const auto& [first, others] : joined_) {
    all.push_back({{first}});
    all.back().rules.insert(all.back().rules.end(), others.begin(), others.end());
    std::sort(all.back().rules.begin(), all.back().rules.end());
  }
  return all;
}

bool RuleJoiner::joinRun(const std::vector<uint32_t>& run) {
  bool some = false;
  for (const Field field : joinable) {
    if (row(field).bits(sets_.type()) == 0) continue;
    std::map<uint64_t, std::vector<uint32_t>> alike;
    for (const uint32_t each : run) {
      const auto rule = list_.rules.find(each);
      if (rule != list_.rules.end()) alike[likeness(rule->second, field)].push_back(each);
    }
    for (const auto& [key, rules] : alike) some = (rules.size() > 1 && joinAlike(rules, field)) || some;
  }
  return some;
}

/// Joins what lies side by side in the order of the field, and what comes of that with what lies beside it.
bool RuleJoiner::joinAlike(const std::vector<uint32_t>& alike, Field field) {
  Parts parts, kept;
  for (const uint32_t each : alike) {
    PacketSet asked = sets_.of(list_.rules.at(each));
    const Value first = sets_.packetOf(sets_.sets().oneOf(asked))[field];
    parts.push_back({each, std::move(asked), first});
  }
  std::stable_sort(parts.begin(), parts.end(), [](const Part& a, const Part& b) {
    return std::pair(a.first.high, a.first.low) < std::pair(b.first.high, b.first.low);
  });
  for (Part& part : parts) {
    kept.push_back(std::move(part));
    while (kept.size() > 1 && join(kept[kept.size() - 2], kept.back(), field)) kept.pop_back();
  }
  return kept.size() < parts.size();
}

bool RuleJoiner::join(Part& into, const Part& other, Field field) {
  const PacketSets& sets = sets_.sets();
  if (isAddress(field)) {
    // Halves of a prefix, or what differs in one bit of a wildcard.
    const Cube a = sets.hullOf(into.asked).cube, b = sets.hullOf(other.asked).cube;
    if (a.mask != b.mask || bitsThatDiffer(a.value, b.value) != 1) return false;
  }
  const PacketSet both = into.asked | other.asked;
  const auto box = wholeBoxOf(both, sets_, loose_);
  if (!box) return false;
  std::string wrong;
  auto condition = readCondition(sets_.type(), box->words, &wrong);
  const auto words = wordsIn(list_, box->words);
  // A rule has no `not`.
  if (!condition || !condition->without.empty() || !words) return false;
  const uint32_t stays = std::min(into.sequence, other.sequence),
                 goes = std::max(into.sequence, other.sequence);
  const Acl::RuleBase &first = Config::common(list_.rules.at(stays)),
                      &second = Config::common(list_.rules.at(goes));
  std::visit(
      [&](auto& rule) {
        rule.sequence = stays;
        rule.action = first.action;
        rule.text = fmt::format("{} {}", Acl::stringValue(first.action), *words);
        rule.remark = linesOf(first.remark, second.remark);
      },
      condition->fields);
  list_.rules.at(stays) = std::move(condition->fields);
  list_.rules.erase(goes);
  auto& others = joined_[stays];
  others.push_back(goes);
  if (const auto known = joined_.find(goes); known != joined_.end()) {
    others.insert(others.end(), known->second.begin(), known->second.end());
    joined_.erase(known);
  }
  into.sequence = stays;
  into.asked = both;
  return true;
}

}  // namespace Proof
