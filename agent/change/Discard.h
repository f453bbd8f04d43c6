#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/ListRules.h>
#include <agent/config/Model.h>

#include <deque>
#include <utility>

namespace Agent {

/// Frees models and copies of rules, a slice a turn: to free a large one takes longer than packets should
/// wait. This must be done on the loop's thread, because they share counted texts with the running
/// configuration.
class Discard {
 public:
  Discard() : task_(-10, "Discard", [this] { run(); }) {}
  Discard(const Discard&) = delete;
  Discard& operator=(const Discard&) = delete;

  void take(Config::Model&& model) {
    models_.push_back(std::move(model));
    task_->scheduleTask();
  }
  /// The rules of a list of this type. Nobody may follow them, or hold them besides.
  void take(Acl::AclType type, Kelp::Ptr<Acl::AclSubConfig> rules) {
    rules->upkeepIs(type, false);
    rules_.emplace_back(type, std::move(rules));
    task_->scheduleTask();
  }

 private:
  static constexpr int rulesAtOnce = 64;

  void run() {
    while (!models_.empty() || !rules_.empty()) {
      if (rules_.empty()) {
        freeOfModel();
      } else if (rules_.front().size() == 0) {
        rules_.pop_front();
      } else {
        for (int i = 0; i < rulesAtOnce && rules_.front().size() > 0; ++i) rules_.front().removeFirst();
      }
      if (task_->taskShouldYield()) return task_->scheduleTask();
    }
  }

  void freeOfModel() {
    auto& lists = models_.front().lists;
    if (lists.empty()) {
      models_.pop_front();
    } else if (auto& rules = lists.begin()->second.rules; rules.empty()) {
      lists.erase(lists.begin());
    } else {
      for (int i = 0; i < rulesAtOnce && !rules.empty(); ++i) rules.erase(rules.begin());
    }
  }

  Kiv::OwnedTask task_;
  std::deque<Config::Model> models_;
  std::deque<ListRules> rules_;
};

}  // namespace Agent
