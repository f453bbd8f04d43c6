#pragma once

#include <Kiv/TaskScheduler.h>
#include <agent/config/Model.h>

#include <deque>
#include <utility>

namespace Agent {

/// Frees models that are no longer needed, a slice a turn: a large one takes longer than packets should wait.
/// It has to be done on the loop's thread, where the texts that it shares with the running configuration are
/// counted.
class Discard {
 public:
  Discard() : task_(Kiv::TaskSchedulerRoot::findOrCreateScheduler()->taskIs(-10, "Discard")) {
    task_->dispatchIs([this] { run(); }, this);
  }
  ~Discard() {
    task_->cancelTask();
    task_->dispatchDel(this);
  }
  Discard(const Discard&) = delete;
  Discard& operator=(const Discard&) = delete;

  void take(Config::Model&& model) {
    models_.push_back(std::move(model));
    task_->scheduleTask();
  }

 private:
  void run() {
    constexpr int rulesAtOnce = 64;
    while (!models_.empty()) {
      auto& lists = models_.front().lists;
      if (lists.empty()) {
        models_.pop_front();
      } else if (auto& rules = lists.begin()->second.rules; rules.empty()) {
        lists.erase(lists.begin());
      } else {
        for (int i = 0; i < rulesAtOnce && !rules.empty(); ++i) rules.erase(rules.begin());
      }
      if (!models_.empty() && task_->taskShouldYield()) return task_->scheduleTask();
    }
  }

  const Kelp::Ptr<Kiv::TimerTask> task_;
  std::deque<Config::Model> models_;
};

}  // namespace Agent
