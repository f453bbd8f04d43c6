#include <agent/proof/RuleJoiner.h>
#include <agent/proof/Simplify.h>
#include <fmt/format.h>

#include <algorithm>
#include <string_view>
#include <utility>

namespace Proof {

namespace {

/// Takes a rule away; its remarks stand in front of what comes next.
void leaveOut(Config::List& list, uint32_t sequence) {
  const auto rule = list.rules.find(sequence);
  const std::string remark = Config::common(rule->second).remark.str();
  const auto next = list.rules.erase(rule);
  if (remark.empty()) return;
  if (next != list.rules.end()) {
    std::visit(
        [&remark](auto& one) {
          one.remark = one.remark.empty() ? remark : fmt::format("{}\n{}", remark, one.remark.view());
        },
        next->second);
    return;
  }
  std::vector<std::string> lines;
  for (size_t at = 0; at <= remark.size();) {
    const size_t end = std::min(remark.find('\n', at), remark.size());
    lines.push_back(remark.substr(at, end - at));
    at = end + 1;
  }
  list.pendingRemarks.insert(list.pendingRemarks.begin(), lines.begin(), lines.end());
}

}  // namespace

SimplerList simplify(const Config::List& list, const RuleSets& sets) {
  SimplerList simpler{list, needlessOf(list, sets), {}};
  std::stable_sort(simpler.leftOut.begin(), simpler.leftOut.end(),
                   [](const RuleFinding& a, const RuleFinding& b) { return a.sequence < b.sequence; });
  // From the end, so that remarks of several rules stay in their order.
  for (auto each = simpler.leftOut.rbegin(); each != simpler.leftOut.rend(); ++each)
    leaveOut(simpler.list, each->sequence);
  simpler.joined = RuleJoiner(simpler.list, sets).run();
  return simpler;
}

}  // namespace Proof
