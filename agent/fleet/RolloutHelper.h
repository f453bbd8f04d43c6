#pragma once

#include <agent/fleet/Etcd.h>
#include <agent/log/LogEvent.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace Agent {

class RolloutDriver;

/// An agent's help for its fleet: it sees to rollouts of its groups that nobody sees to any more, because
/// whoever began them has gone. On a thread of its own, which begins when there is the first one. Who may not
/// write what that takes leaves it to others.
class RolloutHelper {
 public:
  RolloutHelper(EtcdPlace place, std::string who, TellLog tell);
  ~RolloutHelper();
  RolloutHelper(const RolloutHelper&) = delete;
  RolloutHelper& operator=(const RolloutHelper&) = delete;

  /// The groups with a rollout that nobody sees to, each time that the store was asked. For the link's
  /// thread.
  void undrivenIs(std::vector<std::string> groups);

 private:
  void run();
  void take(Etcd& etcd, std::map<std::string, std::unique_ptr<RolloutDriver>>& drivers);
  void lookAt(std::map<std::string, std::unique_ptr<RolloutDriver>>& drivers);
  bool isLate(double seconds);

  const EtcdPlace place_;
  const std::string who_;
  const TellLog tell_;
  Http http_;
  std::atomic<bool> ending_ = false;

  std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<std::string> undriven_;  // protected by the mutex

  std::map<std::string, double> mayNot_;  // of the thread: the groups that it may not see to, until when
  std::thread thread_;
};

}  // namespace Agent
