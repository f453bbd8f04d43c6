#include <agent/core/Words.h>
#include <agent/show/ListOrder.h>
#include <agent/show/ListRow.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

uint64_t packets(const Json& rule) { return packetsOf(rule, "in") + packetsOf(rule, "out"); }

double lastOf(const Json& rule) {
  const Json& last = rule.at("lastMatch");
  return last.is_null() ? -1 : last.get<double>();
}

/// Whether a rule comes before another by the order; rules that are equal by it stay as they are.
bool isBefore(const Json& a, const Json& b, RuleOrder order) {
  switch (order) {
    case RuleOrder::hits:
      return packets(a) > packets(b);
    case RuleOrder::last:
      return lastOf(a) > lastOf(b);
    case RuleOrder::number:
      break;
  }
  return a.at("sequence").get<uint32_t>() < b.at("sequence").get<uint32_t>();
}

void keepTop(Json& lists, RuleOrder order, size_t top) {
  std::vector<Json*> all;
  for (Json& list : lists) {
    for (Json& rule : list.at("rules")) all.push_back(&rule);
  }
  std::stable_sort(all.begin(), all.end(),
                   [order](const Json* a, const Json* b) { return isBefore(*a, *b, order); });
  // What is not among the first is marked, and taken away then.
  for (size_t i = top; i < all.size(); ++i) *all[i] = nullptr;
  const auto drop = [](Json& from, const auto& which) {
    auto& elements = from.get_ref<Json::array_t&>();
    elements.erase(std::remove_if(elements.begin(), elements.end(), which), elements.end());
  };
  for (Json& list : lists) drop(list.at("rules"), [](const Json& rule) { return rule.is_null(); });
  drop(lists, [](const Json& list) { return list.at("rules").empty(); });
}

}  // namespace

void arrangeLists(Json& document, RuleOrder order, std::optional<size_t> top) {
  Json& lists = document.at("lists");
  for (Json& list : lists) {
    auto& rules = list.at("rules").get_ref<Json::array_t&>();
    std::stable_sort(rules.begin(), rules.end(),
                     [order](const Json& a, const Json& b) { return isBefore(a, b, order); });
  }
  if (top) keepTop(lists, order, *top);
  if (order == RuleOrder::number) return;
  auto& all = lists.get_ref<Json::array_t&>();
  std::stable_sort(all.begin(), all.end(), [order](const Json& a, const Json& b) {
    const Json &first = a.at("rules"), &second = b.at("rules");
    if (first.empty() || second.empty()) return !first.empty();
    return isBefore(first.front(), second.front(), order);
  });
}

void RuleRates::add(Json& document, double now) {
  Sample sample{now, {}};
  const Sample* before = samples_.empty() ? nullptr : &samples_.front();
  const auto take = [&](const std::string& name, Json& counted) {
    const Json& bytes = counted.at("bytes");
    const Counted is{packets(counted), bytes.at("in").get<uint64_t>() + bytes.at("out").get<uint64_t>()};
    sample.counts[name] = is;
    counted["rate"] = nullptr;
    const auto known = before ? before->counts.find(name) : Counts::const_iterator();
    if (!before || known == before->counts.end() || now <= before->time) return;
    const Counted& old = known->second;
    // Counters that were cleared meanwhile have no rate before they have been seen again.
    if (is.packets < old.packets || is.bytes < old.bytes) return;
    const double seconds = now - before->time;
    counted["rate"] = {{"packets", static_cast<double>(is.packets - old.packets) / seconds},
                       {"bytes", static_cast<double>(is.bytes - old.bytes) / seconds}};
  };
  for (Json& list : document.at("lists")) {
    for (Json& rule : list.at("rules")) take(rule.at("id").get<std::string>(), rule);
    if (!list.at("implicitDrop").is_null()) take(listTitle(list), list.at("implicitDrop"));
  }
  constexpr double apart = 1;
  if (samples_.empty() || now - samples_.back().time >= apart) samples_.push_back(std::move(sample));
  while (samples_.size() > 1 && now - samples_[1].time >= window) samples_.erase(samples_.begin());
}

}  // namespace Agent
