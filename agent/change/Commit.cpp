#include <Acl/Workshop.h>
#include <Kelp/Assert.h>
#include <Kiv/Clock.h>
#include <Zeb/System.h>
#include <agent/change/Commit.h>
#include <agent/core/Memory.h>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

/// How long to wait before looking again whether lists have been compiled.
constexpr Kelp::Duration untilCompiled{0.001};
/// Below the priority of all tasks that have work to do after a change.
constexpr int whenSettled = -100;

/// All partners give new rules the same ids.
void idsAre(SourceChange& writes) {
  for (ListChange& list : writes.lists) {
    for (auto& written : list.written) {
      if (written.from == ListChange::Written::fresh) written.id = Kiv::UniqueId::generateUniqueId();
    }
  }
}

}  // namespace

Commit::Commit(Core& core, Forwarder& forwarder, Reserve& reserve, Sources sources,
               std::function<void()> applied, Partners* partners)
    : core_(core),
      forwarder_(forwarder),
      applied_(std::move(applied)),
      partners_(partners),
      sources_(std::move(sources)),
      task_(0, "Commit", [this] { carryOn(); }),
      reserve_(reserve),
      settled_(whenSettled, "CommitSettled",
               [this] {
                 if (!underWay()) reserve_.changesAreDone();
               }),
      changeover_(core, discard_, [this] { handleSwitch(); }) {
  const double now = Zeb::System::currentTime().seconds();
  sources_.forEach([&](const std::string& name, const Config::Model&) { appliedAt_[name] = now; });
}

Commit::~Commit() { reserve_.changesAreDone(); }

std::optional<double> Commit::appliedAt(const std::string& source) const {
  const auto known = appliedAt_.find(source);
  return known == appliedAt_.end() ? std::nullopt : std::optional(known->second);
}

std::optional<Commit::Refusal> Commit::begin(NewContent change, SourceChange writes, Done done) {
  if (auto refusal = getReady(std::move(change), std::move(writes))) return refusal;
  if (!partners_) {
    carryOut(std::move(done));
    return std::nullopt;
  }
  pending_->done = std::move(done);
  idsAre(pending_->writes);
  partners_->getReady(pending_->writes, [this](const auto& wrong) { handlePartners(wrong); });
  return std::nullopt;
}

void Commit::handlePartners(const std::optional<std::string>& wrong) {
  const Done done = std::move(pending_->done);
  if (!wrong) return carryOut(done);
  partners_->drop();
  drop();
  done({.refused = wrong});
}

std::optional<Commit::Refusal> Commit::getReady(NewContent change, SourceChange writes) {
  std::optional<Refusal> refusal;
  if (auto wrong = whyNot(change)) {
    refusal = {std::move(*wrong), false};
  } else if (!reserve_.addForChange(writes.memory())) {
    refusal = {outOfMemory, true};
  }
  if (refusal) {
    discard(std::move(change.model));
    Acl::Workshop::singleton().dispose(std::move(writes));
    return refusal;
  }
  pending_ = Pending{std::move(change), std::move(writes)};
  return std::nullopt;
}

void Commit::carryOut(Done done) {
  pending_->done = std::move(done);
  pending_->partnersOwe = partners_ != nullptr;
  changeover_.begin(std::move(pending_->writes));
  if (partners_) {
    partners_->carryOut([this] {
      pending_->partnersOwe = false;
      finish();
    });
  }
  carryOn();
}

void Commit::drop() {
  discard(std::move(pending_->change.model));
  Acl::Workshop::singleton().dispose(std::move(pending_->writes));
  pending_.reset();
  settled_->scheduleTask();
}

std::optional<std::string> Commit::whyNot(NewContent& change) {
  exchange(change);
  auto wrong = sources_.whyNot();
  exchange(change);
  return wrong;
}

void Commit::noticesAre(const std::string& source, Config::Notices notices) {
  sources_.noticesAre(source, std::move(notices));
}

void Commit::discard(std::optional<Config::Model> model) {
  if (model) discard_.take(std::move(*model));
}

void Commit::carryOn() {
  const double start = Kiv::steadyClock().now().seconds();
  const auto state = changeover_.run(*task_.get());
  pending_->longestTurn = std::max(pending_->longestTurn, Kiv::steadyClock().now().seconds() - start);
  if (state == Changeover::State::yields) return task_->scheduleTask();
  if (state == Changeover::State::waits) return task_->scheduleTaskDelay(untilCompiled);

  finish();
}

void Commit::finish() {
  if (changeover_.underWay() || pending_->partnersOwe) return;
  Pending finished = std::move(*pending_);
  pending_.reset();
  if (partners_) partners_->over();
  discard(std::move(finished.change.model));
  if (applied_) applied_();
  settled_->scheduleTask();
  finished.done({.longestTurn = finished.longestTurn});
}

/// Puts everything else of the new configuration in force that is not in lists and bindings.
void Commit::handleSwitch() {
  NewContent& change = pending_->change;
  const bool goes = !change.model;
  exchange(change);
  const auto wrong = core_.interfacesAre(sources_.interfaces());
  KELP_ASSERT(!wrong, "what may be wrong with interfaces was looked at before the change began");
  forwarder_.portsOfConfigurationIs();
  if (goes) {
    appliedAt_.erase(change.source);
  } else {
    appliedAt_[change.source] = Zeb::System::currentTime().seconds();
  }
}

void Commit::exchange(NewContent& change) {
  change.model = sources_.exchange(change.source, std::move(change.model));
}

}  // namespace Agent
