#include <Kelp/Assert.h>
#include <agent/core/Background.h>
#include <agent/fleet/Backoff.h>
#include <agent/fleet/FleetLink.h>
#include <fmt/format.h>
#include <sys/eventfd.h>

#include <chrono>
#include <exception>
#include <optional>
#include <random>
#include <utility>

namespace Agent {

namespace {

using SteadyClock = std::chrono::steady_clock;

double epochSeconds() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

FleetLink::FleetLink(EtcdPlace place, FleetIdentity identity, TellLog tell)
    : place_(std::move(place)),
      identity_(std::move(identity)),
      tell_(std::move(tell)),
      bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      http_(place_.credentials),
      helper_(place_, "agent " + identity_.agent, tell_) {
  KELP_ASSERT(bell_.get() >= 0, "an eventfd can be had");
}

FleetLink::~FleetLink() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  http_.stop();
  if (thread_.joinable()) thread_.join();
}

void FleetLink::start() {
  thread_ = std::thread([this] { run(); });
}

void FleetLink::run() {
  giveWay();
  std::minstd_rand chances(std::random_device{}());
  std::uniform_real_distribution<double> chance(0, 1);
  Backoff backoff;
  FleetSession session(http_, place_, identity_);
  while (!ending_) {
    std::string wrong;
    std::optional<SteadyClock::time_point> connected;
    try {
      wrong = session.run(
          {.content = [this](SharedFleetContent content) { contentIs(std::move(content)); },
           .questions = [this](FleetQuestions questions) { questionsAre(std::move(questions)); },
           .undriven = [this](UndrivenRollouts groups) { helper_.undrivenIs(std::move(groups)); },
           .tried = [this](std::string rollouts) { triedIs(std::move(rollouts)); },
           .connected =
               [&](const std::string& endpoint) {
                 connected = SteadyClock::now();
                 isConnected(endpoint);
               },
           .unwritten =
               [this](const std::string& why) { isWrong(why, "the status cannot be written: " + why, true); },
           .written = [this] { isWritten(); },
           .twin =
               [this] {
                 const std::string why = fmt::format("another agent has the name {}, too", identity_.agent);
                 isWrong(why, why, true);
               },
           .outgoing = [this] { return takeOutgoing(); },
           .ending = [this] { return ending_.load(); },
           .chance = [&] { return chance(chances); }});
    } catch (const std::exception& error) {  // memory ran out
      wrong = error.what();
    }
    if (ending_) break;
    if (connected) backoff.connected(std::chrono::duration<double>(SteadyClock::now() - *connected).count());
    isWrong(wrong, "no connection, what is in force stays: " + wrong, false);
    std::unique_lock lock(mutex_);
    const std::chrono::duration<double> pause(backoff.next(chance(chances)));
    changed_.wait_for(lock, pause, [this] { return ending_.load(); });
  }
  session.leave();
}

SharedFleetContent FleetLink::take() {
  eventfd_t rung = 0;
  eventfd_read(bell_.get(), &rung);
  const std::lock_guard lock(mutex_);
  return std::exchange(content_, nullptr);
}

SharedFleetContent FleetLink::wait(double seconds) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, std::chrono::duration<double>(seconds), [this] { return content_ != nullptr; });
  lock.unlock();
  return take();
}

void FleetLink::contentIs(SharedFleetContent content) {
  {
    const std::lock_guard lock(mutex_);
    content_ = std::move(content);
  }
  eventfd_write(bell_.get(), 1);
  changed_.notify_all();
}

void FleetLink::questionsAre(FleetQuestions questions) {
  {
    const std::lock_guard lock(mutex_);
    if (questions_ == questions) return;
    questions_ = std::move(questions);
  }
  eventfd_write(bell_.get(), 1);
}

FleetQuestions FleetLink::questions() const {
  const std::lock_guard lock(mutex_);
  return questions_;
}

void FleetLink::triedIs(std::string rollouts) {
  const std::lock_guard lock(mutex_);
  tried_ = std::move(rollouts);
}

std::string FleetLink::tried() const {
  const std::lock_guard lock(mutex_);
  return tried_;
}

void FleetLink::stateIs(std::string value) {
  {
    const std::lock_guard lock(mutex_);
    outgoing_.state = std::move(value);
  }
  http_.wake();
}

void FleetLink::valuesAre(std::map<std::string, std::string> changed) {
  if (changed.empty()) return;
  {
    const std::lock_guard lock(mutex_);
    for (auto& [key, value] : changed) outgoing_.values[key] = std::move(value);
  }
  http_.wake();
}

FleetOutgoing FleetLink::takeOutgoing() {
  const std::lock_guard lock(mutex_);
  return std::exchange(outgoing_, {});
}

FleetLink::Connection FleetLink::connection() const {
  const std::lock_guard lock(mutex_);
  return connection_;
}

void FleetLink::isConnected(const std::string& endpoint) {
  {
    const std::lock_guard lock(mutex_);
    connection_ = {true, endpoint, "", epochSeconds()};
  }
  tell(Severity::notice, "connected to " + endpoint, "connected");
}

/// Nothing is left that the store has not taken.
void FleetLink::isWritten() {
  const std::lock_guard lock(mutex_);
  if (connection_.connected) connection_.wrong.clear();
}

/// What stays wrong is told once.
void FleetLink::isWrong(const std::string& why, const std::string& text, bool connected) {
  {
    const std::lock_guard lock(mutex_);
    const bool isKnown = connection_.connected == connected && connection_.wrong == why;
    if (connection_.connected && !connected) connection_.since = epochSeconds();
    connection_.connected = connected;
    connection_.wrong = why;
    if (isKnown) return;
  }
  tell(Severity::warning, text, connected ? "unwritten" : "disconnected");
}

void FleetLink::tell(Severity severity, std::string text, std::string_view result) const {
  if (tell_)
    tell_({severity,
           "fleet: " + std::move(text),
           {{"VELO_EVENT", "fleet"}, {"VELO_RESULT", std::string(result)}}});
}

}  // namespace Agent
