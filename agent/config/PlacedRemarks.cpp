#include <agent/config/PlacedRemarks.h>

#include <utility>

namespace Config {

namespace {

/// Lines in front of those that are there.
void prepend(const std::vector<std::string>& lines, Kelp::String& remark) {
  std::string text;
  for (const auto& line : lines) text += line + "\n";
  text += remark.view();
  if (remark.empty()) text.pop_back();
  remark = text;
}

}  // namespace

/// The last first: each goes in front of what the rule has.
void PlacedRemarks::settle(Model& model) {
  for (const auto& [key, remarks] : std::exchange(remarks_, {})) {
    const auto known = model.lists.find(key);
    if (known == model.lists.end()) continue;
    List& list = known->second;
    for (auto placed = remarks.rbegin(); placed != remarks.rend(); ++placed) {
      const auto& [number, lines] = *placed;
      if (lines.empty()) continue;
      const auto rule = list.rules.lower_bound(number);
      if (rule == list.rules.end()) {
        list.pendingRemarks.insert(list.pendingRemarks.begin(), lines.begin(), lines.end());
      } else {
        std::visit([&lines = lines](auto& r) { prepend(lines, r.remark); }, rule->second);
      }
    }
  }
}

}  // namespace Config
