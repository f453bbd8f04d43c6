#include <Kiv/Clock.h>
#include <agent/core/Background.h>
#include <agent/fleet/Backoff.h>
#include <agent/fleet/RolloutHelper.h>
#include <fmt/format.h>

#include <chrono>
#include <exception>
#include <random>
#include <utility>

namespace Agent {

namespace {

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

void RolloutHelper::undrivenIs(UndrivenRollouts groups) {
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

/// Those that it may see to, as far as it knows. The mutex is held.
UndrivenRollouts RolloutHelper::wanted() const {
  UndrivenRollouts groups = undriven_;
  std::erase_if(groups, [this](const auto& group) {
    const auto denied = mayNot_.find(group.first);
    return denied != mayNot_.end() && Kiv::steadyClock().now().seconds() < denied->second;
  });
  return groups;
}

/// Waits until there are some, or it is ending.
UndrivenRollouts RolloutHelper::waited() {
  std::unique_lock lock(mutex_);
  while (!ending_ && wanted().empty()) changed_.wait_for(lock, std::chrono::duration<double>(untilAllowed));
  return wanted();
}

void RolloutHelper::run() {
  giveWay();
  std::minstd_rand chances(std::random_device{}());
  std::uniform_real_distribution<double> chance(0, 1);
  Etcd etcd(http_, place_);
  Drivers drivers;
  Backoff backoff;
  while (!ending_) {
    try {
      if (drivers.empty()) {
        uint64_t agents = 0;
        for (const auto& [group, count] : waited()) agents = std::max(agents, count);
        if (!isLate(window(agents) * chance(chances))) break;
      }
      take(etcd, drivers);
      const double begin = Kiv::steadyClock().now().seconds();
      const bool isAnswered = lookAt(drivers);
      if (isAnswered) backoff = {};
      const double took = Kiv::steadyClock().now().seconds() - begin;
      if (!isLate(isAnswered ? RolloutDriver::pauseBehind(took) : backoff.next(chance(chances)))) break;
    } catch (const std::exception&) {  // memory ran out
      drivers.clear();
      if (!isLate(backoff.next(chance(chances)))) break;
    }
  }
}

void RolloutHelper::take(Etcd& etcd, Drivers& drivers) {
  const std::lock_guard lock(mutex_);
  for (const auto& [group, agents] : wanted()) {
    auto& driver = drivers[group];
    if (!driver) driver = std::make_unique<RolloutDriver>(etcd, group, who_);
  }
}

/// A look at each; whether all were answered.
bool RolloutHelper::lookAt(Drivers& drivers) {
  bool isAnswered = true;
  for (auto at = drivers.begin(); at != drivers.end() && !ending_;) {
    auto& [group, driver] = *at;
    const bool hadKey = driver->hasKey();
    const double now = Kiv::steadyClock().now().seconds();
    const RolloutDriver::Look look = driver->look(now, RolloutDriver::Looks::withKey);
    isAnswered = isAnswered && (look.wrong.empty() || look.mayNot);
    if (look.mayNot) {
      const std::lock_guard lock(mutex_);
      mayNot_[group] = now + untilAllowed;
    }
    const std::string line =
        look.wrong.empty() && !look.document.is_null() ? rolloutLine(look.document) : std::string();
    if (tell_ && !line.empty() && std::exchange(told_[group], line) != line)
      tell_({Severity::info, "fleet: " + line, {{"VELO_EVENT", "fleet"}}});
    // Who had the key and gets no answer asks again; when another one has it, that one sees to it.
    const bool stays = !look.mayNot && !look.isOver && (look.drives || (hadKey && !look.wrong.empty()));
    at = stays ? std::next(at) : drivers.erase(at);
  }
  return isAnswered;
}

}  // namespace Agent
