#pragma once

#include <agent/fleet/RolloutDriver.h>
#include <agent/log/LogEvent.h>

#include <algorithm>
#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

namespace Agent {

/// An agent's help for its fleet: it sees to rollouts of its groups that nobody sees to any more, because
/// whoever began them has gone. On a thread of its own, which begins when there is the first one. Who may not
/// write what that takes leaves it to others.
class RolloutHelper {
 public:
  RolloutHelper(EtcdPlace place, std::string who, TellLog tell);
  ~RolloutHelper();
  RolloutHelper(const RolloutHelper&) = delete;
  RolloutHelper& operator=(const RolloutHelper&) = delete;

  /// Each time that the store was asked. For the link's thread.
  void undrivenIs(UndrivenRollouts groups);

  /// Agents of a group do not all try at once: each waits by chance, up to so many seconds. So long the first
  /// one has the key, and the others hear of that.
  static double window(uint64_t agents) { return std::clamp(static_cast<double>(agents) / 300, 3.0, 30.0); }

 private:
  void run();
  using Drivers = std::map<std::string, std::unique_ptr<RolloutDriver>>;  // by group
  UndrivenRollouts wanted() const;
  UndrivenRollouts waited();
  void take(Etcd& etcd, Drivers& drivers);
  bool lookAt(Drivers& drivers);
  bool isLate(double seconds);

  const EtcdPlace place_;
  const std::string who_;
  const TellLog tell_;
  Http http_;
  std::atomic<bool> ending_ = false;

  std::mutex mutex_;
  std::condition_variable changed_;
  // Protected by the mutex.
  UndrivenRollouts undriven_;
  std::map<std::string, double> mayNot_;     // the groups that it may not see to, until when
  std::map<std::string, std::string> told_;  // of the thread: by group
  std::thread thread_;
};

}  // namespace Agent
