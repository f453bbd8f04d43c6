#include <agent/config/Mistake.h>
#include <agent/config/Statements.h>
#include <fmt/format.h>

#include <algorithm>

// Groups and their members.
namespace Config {

namespace {

constexpr std::string_view kindWord(bool service) { return service ? "service" : "network"; }

}  // namespace

bool Statements::openGroup(Cursor& at, bool service) {
  mode_ = Mode::group;
  nowhereGroup_ = {service, {}};
  group_ = &nowhereGroup_;
  groupName_.clear();
  std::string name;
  if (!at.name("the name of an object-group", &name) || !at.end()) return false;
  const auto [entry, added] = model_.objectGroups.try_emplace(name, nowhereGroup_);
  if (!added && entry->second.service != service) {
    return at.failAt(at.position() - 1,
                     fmt::format("object-group {0} in front of it, or no object-group {0} {1} first",
                                 kindWord(!service), name),
                     service ? "of networks" : "of services");
  }
  group_ = &entry->second;
  groupName_ = name;
  return true;
}

bool Statements::forgetGroup(Cursor& at, bool service) {
  std::string name;
  if (!at.name("the name of an object-group", &name) || !at.end()) return false;
  const auto known = model_.objectGroups.find(name);
  if (known == model_.objectGroups.end() || known->second.service != service) return true;
  model_.objectGroups.erase(known);
  groupUses_.forgetGroup(name);
  return true;
}

bool Statements::member(Cursor& at, bool undo) {
  const std::string text = at.textFrom(at.position());
  const size_t column = at.columnOf(at.position() + at.wordsLeft() - 1);
  if (!readMember(at, *group_)) return false;
  auto& members = group_->members;
  if (undo) {
    std::erase_if(members, [&](const auto& each) { return isSameMember(*group_, each, text); });
    return true;
  }
  if (std::find(members.begin(), members.end(), text) == members.end()) members.push_back(text);
  groupUses_.memberIs(groupName_, text, place_, column);
  return true;
}

/// While texts are read, rules are without what their groups stand for: it may change until the end.
void Statements::forgetAlternatives(const Model::ListKey& key, List& list) {
  list_ = &list;
  for (auto& [sequence, rule] : list.rules) {
    const bool given = std::visit(
        [](auto& r) {
          if constexpr (requires { r.filter.alternatives; }) {
            return std::exchange(r.filter.alternatives, {}).given();
          }
          return false;
        },
        rule);
    if (!given) continue;
    const std::string text = common(rule).text.str();
    Cursor at;
    Rule again;
    GroupNames names;
    at.lineIs(text);
    readRule(at, sequence, false, &again, &names);
    groupUses_.ruleIs(key, sequence, names, {});
  }
  list_ = nullptr;
}

std::vector<LateMistake> Statements::finish() {
  placedRemarks_.settle(model_);
  return groupUses_.expand(model_);
}

}  // namespace Config
