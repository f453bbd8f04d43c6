#include <agent/config/GroupUses.h>

#include <set>

namespace Config {

void GroupUses::ruleIs(const ListKey& list, uint32_t sequence, const GroupNames& names, LinePlace place) {
  if (names.any()) {
    rules_[list][sequence] = {names, place};
  } else if (const auto uses = rules_.find(list); uses != rules_.end()) {
    uses->second.erase(sequence);
  }
}

GroupNames GroupUses::of(const ListKey& list, uint32_t sequence) const {
  const auto uses = rules_.find(list);
  if (uses == rules_.end()) return {};
  const auto use = uses->second.find(sequence);
  return use == uses->second.end() ? GroupNames() : use->second.names;
}

GroupUses::MemberPlace GroupUses::placeOf(const GroupMistake& wrong) const {
  const auto group = members_.find(wrong.group);
  if (group == members_.end()) return {};
  const auto member = group->second.find(wrong.member);
  return member == group->second.end() ? MemberPlace() : member->second;
}

std::vector<LateMistake> GroupUses::expand(Model& model) const {
  std::vector<LateMistake> mistakes;
  GroupTable table(model.objectGroups);
  std::set<LinePlace> told;
  for (const auto& [name, group] : model.objectGroups) {
    const auto wrong = table.check(name);
    if (!wrong) continue;
    const MemberPlace at = placeOf(*wrong);
    if (told.insert(at.place).second)
      mistakes.push_back({at.place, {at.column, wrong->found, wrong->expected}});
  }
  for (const auto& [key, uses] : rules_) {
    const auto list = model.lists.find(key);
    if (list == model.lists.end()) continue;
    for (const auto& [sequence, use] : uses) {
      const auto rule = list->second.rules.find(sequence);
      if (rule == list->second.rules.end()) continue;
      const auto wrong = table.expand(use.names, &rule->second);
      if (wrong && told.insert(use.place).second)
        mistakes.push_back({use.place, {wrong->column, wrong->found, wrong->expected}});
    }
  }
  return mistakes;
}

}  // namespace Config
