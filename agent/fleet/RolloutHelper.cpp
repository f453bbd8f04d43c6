#include <Kiv/Clock.h>
#include <agent/core/Background.h>
#include <agent/fleet/RolloutDriver.h>
#include <agent/fleet/RolloutHelper.h>
#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <random>
#include <utility>

namespace Agent {

namespace {

/// Agents of a group do not all try at once: the first one has the key before most have begun.
constexpr double untilHelp = 3;
/// Rights may be given later.
constexpr double untilAllowed = 600;

}  // namespace

RolloutHelper::RolloutHelper(EtcdPlace place, std::string who, TellLog tell)
    : place_(std::move(place)), who_(std::move(who)), tell_(std::move(tell)), http_(place_.credentials) {}

RolloutHelper::~RolloutHelper() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  http_.stop();
  if (thread_.joinable()) thread_.join();
}

void RolloutHelper::undrivenIs(std::vector<std::string> groups) {
  {
    const std::lock_guard lock(mutex_);
    if (undriven_ == groups) return;
    undriven_ = std::move(groups);
    if (!undriven_.empty() && !thread_.joinable() && !ending_) thread_ = std::thread([this] { run(); });
  }
  changed_.notify_all();
}

/// Waits; whether it is to go on.
bool RolloutHelper::isLate(double seconds) {
  std::unique_lock lock(mutex_);
  return !changed_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return ending_.load(); });
}

void RolloutHelper::run() {
  giveWay();
  std::minstd_rand chances(std::random_device{}());
  std::uniform_real_distribution<double> pause(0, untilHelp);
  Etcd etcd(http_, place_);
  std::map<std::string, std::unique_ptr<RolloutDriver>> drivers;  // by group
  while (!ending_) {
    try {
      if (drivers.empty()) {
        {
          std::unique_lock lock(mutex_);
          changed_.wait(lock, [this] { return ending_ || !undriven_.empty(); });
        }
        if (!isLate(pause(chances))) break;
      }
      take(etcd, drivers);
      const double begin = Kiv::steadyClock().now().seconds();
      lookAt(drivers);
      if (!isLate(RolloutDriver::pauseBehind(Kiv::steadyClock().now().seconds() - begin))) break;
    } catch (const std::exception&) {  // memory ran out
      drivers.clear();
      if (!isLate(untilHelp)) break;
    }
  }
}

void RolloutHelper::take(Etcd& etcd, std::map<std::string, std::unique_ptr<RolloutDriver>>& drivers) {
  const std::lock_guard lock(mutex_);
  for (const std::string& group : undriven_) {
    const auto denied = mayNot_.find(group);
    if (denied != mayNot_.end() && Kiv::steadyClock().now().seconds() < denied->second) continue;
    auto& driver = drivers[group];
    if (!driver) driver = std::make_unique<RolloutDriver>(etcd, group, who_);
  }
}

void RolloutHelper::lookAt(std::map<std::string, std::unique_ptr<RolloutDriver>>& drivers) {
  for (auto at = drivers.begin(); at != drivers.end() && !ending_;) {
    auto& [group, driver] = *at;
    const RolloutDriver::Look look = driver->look(Kiv::steadyClock().now().seconds());
    if (look.mayNot) mayNot_[group] = Kiv::steadyClock().now().seconds() + untilAllowed;
    if (tell_ && look.wrong.empty() && !look.document.is_null() && (look.drives || look.isOver))
      tell_({Severity::info, "fleet: " + rolloutLine(look.document), {{"VELO_EVENT", "fleet"}}});
    // Without an answer it is asked again; when another one has the key, that one sees to it.
    const bool stays = !look.mayNot && !look.isOver && (look.drives || !look.wrong.empty());
    at = stays ? std::next(at) : drivers.erase(at);
  }
}

}  // namespace Agent
