#include "Model.h"

#include <fmt/format.h>

#include <algorithm>

namespace SmTest {

namespace {

constexpr auto drop = Acl::ImplicitRuleType::drop;

std::string nameOf(const StatusModel::ListKey& list) { return fmt::format("{} {}", list.first, list.second); }

template <class Map>
std::set<typename Map::Key> keysOf(const Map& map) {
  std::set<typename Map::Key> keys;
  for (auto at = map.begin(); at; at.next()) keys.insert(at.key());
  return keys;
}

}  // namespace

StatusModel::Poll StatusModel::pollOf(const CounterKey& key) {
  if (key.direction == Direction::in) return in;
  switch (key.aclType) {
    case Type::ip:
      return ipOut;
    case Type::ipv6:
      return ip6Out;
    default:
      return macOut;
  }
}

// ---- Configuration.

void StatusModel::listIs(Type type, const std::string& name) {
  if (!config_.try_emplace({type, name}).second || !live_) return;
  ListStatus& list = status_[{type, name}];
  list.implicit = fresh();
}

void StatusModel::listDel(Type type, const std::string& name) {
  config_.erase({type, name});
  if (live_) status_.erase({type, name});
}

void StatusModel::typeDel(Type type) {
  std::vector<std::string> names;
  for (const auto& [list, rules] : config_) {
    if (list.first == type) names.push_back(list.second);
  }
  for (const auto& name : names) listDel(type, name);
}

void StatusModel::rulesIs(Type type, const std::string& name, std::optional<std::set<Uid>> rules) {
  auto& configured = config_.at({type, name});
  if (live_) {
    auto& status = status_.at({type, name}).rules;
    if (configured) {
      for (Uid uid : *configured) status.erase(uid);
    }
    if (rules) {
      for (Uid uid : *rules) status[uid] = fresh();
    }
  }
  configured = std::move(rules);
}

void StatusModel::ruleIs(Type type, const std::string& name, Uid uid) {
  if (!config_.at({type, name})->insert(uid).second) return;  // a rule that changes keeps its counts
  if (live_) status_.at({type, name}).rules[uid] = fresh();
}

void StatusModel::ruleDel(Type type, const std::string& name, Uid uid) {
  if (!config_.at({type, name})->erase(uid)) return;
  if (live_) status_.at({type, name}).rules.erase(uid);
}

void StatusModel::bindingIs(Type type, Direction direction, const std::string& intf,
                            const std::string& name) {
  bindings_[{type, direction, intf}] = name;
}

void StatusModel::bindingDel(Type type, Direction direction, const std::string& intf) {
  bindings_.erase({type, direction, intf});
}

void StatusModel::bindingsDel(Type type, std::optional<Direction> direction) {
  std::erase_if(bindings_, [&](const auto& binding) {
    const auto& [boundType, boundDirection, intf] = binding.first;
    return boundType == type && (!direction || boundDirection == *direction);
  });
}

// ---- Counters.

void StatusModel::counterIs(const CounterKey& key, uint64_t packets, double time) {
  polls_[pollOf(key)].counters[{Kelp::keyHash(key), key}] = {packets, time};
}

void StatusModel::copy(const CounterKey& key, const CounterValue& counter) {
  const ListKey listKey{key.aclType, key.aclName.str()};
  if (!live_) {
    copied_[{listKey, key.ruleId}].push_back(counter);
    return;
  }
  const auto list = status_.find(listKey);
  if (list == status_.end()) return;
  const Acl::RuleStatus value{0, counter.packets, counter.time, true};
  if (key.ruleId == list->second.implicitId) {
    list->second.implicit = value;
  } else {
    list->second.rules[key.ruleId] = value;
  }
  list->second.updateTime = now_;
}

bool StatusModel::polled(Poll poll, size_t count, bool restarted) {
  PollState& state = polls_[poll];
  auto at = state.bookmark ? state.counters.lower_bound(*state.bookmark) : state.counters.begin();
  for (size_t i = 0; i < count && at != state.counters.end(); ++i, ++at) copy(at->first.second, at->second);
  if (restarted) return false;
  if (at == state.counters.end()) {
    state.bookmark.reset();
    return true;
  }
  state.bookmark = at->first;
  return false;
}

// ---- Start.

void StatusModel::starting(const Acl::StatusDp& status) {
  live_ = false;
  startTime_ = now_;
  copied_.clear();
  oldUpdateTimes_.clear();
  for (auto& poll : polls_) poll.bookmark.reset();
  for (auto type = status.status().begin(); type; type.next()) {
    for (auto list = type.value()->acl().begin(); list; list.next()) {
      oldUpdateTimes_[{type.key(), list.key().str()}] = list.value()->counterUpdateTime().seconds();
    }
  }
}

void StatusModel::startedAtOnce() {
  live_ = true;
  status_.clear();
  for (const auto& [key, rules] : config_) {
    ListStatus& list = status_[key];
    list.implicit = fresh();
    if (const auto old = oldUpdateTimes_.find(key); old != oldUpdateTimes_.end())
      list.updateTime = old->second;
    if (!rules) continue;
    for (Uid uid : *rules) list.rules[uid] = fresh();
  }
  for (size_t poll = 0; poll < polls; ++poll) {
    polled(static_cast<Poll>(poll), polls_[poll].counters.size(), false);
  }
}

bool StatusModel::mayBe(const ListKey& list, Uid uid, const Acl::RuleStatus& value, bool configured) const {
  if (!value.installed || value.hardwareMatches) return false;
  if (configured && value.packets == 0 && value.lastMatch >= startTime_ && value.lastMatch <= now_)
    return true;
  const auto candidates = copied_.find({list, uid});
  return candidates != copied_.end() &&
         std::any_of(candidates->second.begin(), candidates->second.end(), [&](const CounterValue& counter) {
           return counter.packets == value.packets && counter.time == value.lastMatch;
         });
}

std::string StatusModel::started(const Acl::StatusDp& status) {
  std::string wrong;
  live_ = true;
  status_.clear();
  for (const auto& [key, configured] : config_) {
    ListStatus& list = status_[key];
    const auto type = status.status(key.first);
    const auto found = type ? type->acl(key.second) : nullptr;
    if (!found) continue;  // compare() says so
    for (auto rule = found->ruleStatus().begin(); rule; rule.next()) {
      const bool isConfigured = configured && configured->contains(rule.key());
      if (mayBe(key, rule.key(), rule.value(), isConfigured)) {
        list.rules[rule.key()] = rule.value();
      } else {
        wrong +=
            fmt::format("{}: after the start rule {} cannot be {}\n", nameOf(key), rule.key(), rule.value());
      }
    }
    if (configured) {
      for (Uid uid : *configured) list.rules.try_emplace(uid, fresh());
    }
    const Uid* id = found->implicitRuleId(drop);
    const Acl::RuleStatus* implicit = found->implicitRuleStatus(drop);
    if (id && implicit && mayBe(key, *id, *implicit, true)) list.implicit = *implicit;
    list.updateTime = found->counterUpdateTime().seconds();
    const auto old = oldUpdateTimes_.find(key);
    const bool untouched = list.updateTime == (old == oldUpdateTimes_.end() ? 0 : old->second);
    const bool copiedNow = list.updateTime >= startTime_ && list.updateTime <= now_;
    if (list.updateTime != 0 && !untouched && !copiedNow) {
      wrong +=
          fmt::format("{}: after the start the update time cannot be {}\n", nameOf(key), list.updateTime);
    }
  }
  return wrong + compare(status);
}

// ---- Comparison.

StatusModel::Uid StatusModel::implicitId(Type type, const std::string& name) const {
  const auto list = status_.find({type, name});
  return list == status_.end() ? Uid() : list->second.implicitId;
}

std::string StatusModel::compare(const Acl::StatusDp& status) {
  std::string wrong;
  const auto complain = [&](const ListKey& list, const std::string& what) {
    wrong += fmt::format("{}: {}\n", nameOf(list), what);
  };

  std::set<Type> types;
  for (const auto& [key, list] : status_) types.insert(key.first);
  for (const auto& [key, name] : bindings_) types.insert(std::get<0>(key));
  if (keysOf(status.status()) != types) wrong += "other types are published than have lists or bindings\n";

  size_t listCount = 0, bindingCount = 0;
  for (auto type = status.status().begin(); type; type.next()) {
    listCount += type.value()->acl().size();
    for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
      if (direction.value()->intf().empty()) wrong += "a direction without bindings is published\n";
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        ++bindingCount;
        const auto known = bindings_.find({type.key(), direction.key(), intf.key().name().str()});
        if (known == bindings_.end() || known->second != intf.value().str()) {
          wrong +=
              fmt::format("{} {} {} is bound to {}\n", type.key(), direction.key(), intf.key(), intf.value());
        }
      }
    }
  }
  if (listCount != status_.size())
    wrong += fmt::format("{} lists instead of {}\n", listCount, status_.size());
  if (bindingCount != bindings_.size()) {
    wrong += fmt::format("{} bindings instead of {}\n", bindingCount, bindings_.size());
  }

  for (auto& [key, list] : status_) {
    const auto type = status.status(key.first);
    const auto found = type ? type->acl(key.second) : nullptr;
    if (!found) {
      complain(key, "is not published");
      continue;
    }
    const Uid* id = found->implicitRuleId(drop);
    const Acl::RuleStatus* implicit = found->implicitRuleStatus(drop);
    if (!id || !implicit || found->implicitRuleId().size() != 1 || found->implicitRuleStatus().size() != 1) {
      complain(key, "has no implicit drop, or more than that");
      continue;
    }
    if (list.implicitId.empty()) {
      if (!knownIds_.insert(*id).second) complain(key, fmt::format("implicit id {} is not a fresh one", *id));
      list.implicitId = *id;
    } else if (list.implicitId != *id) {
      complain(key, fmt::format("implicit id {} instead of {}", *id, list.implicitId));
    }
    if (*implicit != list.implicit)
      complain(key, fmt::format("implicit drop {} instead of {}", *implicit, list.implicit));
    if (found->counterUpdateTime().seconds() != list.updateTime) {
      complain(key, fmt::format("update time {} instead of {}", found->counterUpdateTime(), list.updateTime));
    }
    for (const auto& [uid, expected] : list.rules) {
      const Acl::RuleStatus* rule = found->ruleStatus(uid);
      if (!rule) {
        complain(key, fmt::format("rule {} is missing", uid));
      } else if (*rule != expected) {
        complain(key, fmt::format("rule {} {} instead of {}", uid, *rule, expected));
      }
    }
    if (found->ruleStatus().size() > list.rules.size()) {
      for (auto rule = found->ruleStatus().begin(); rule; rule.next()) {
        if (!list.rules.contains(rule.key()))
          complain(key, fmt::format("rule {} should not be there", rule.key()));
      }
    }
  }
  return wrong;
}

}  // namespace SmTest
