#include <Acl/RuleKinds.h>
#include <Kelp/Duration.h>
#include <agent/core/EventLoop.h>
#include <agent/core/Memory.h>
#include <agent/core/Output.h>
#include <agent/core/Reserve.h>
#include <agent/state/RuleText.h>
#include <agent/state/StateKeeper.h>

#include <algorithm>
#include <new>

namespace Agent {

namespace {

constexpr Kelp::Duration writeEvery{0.5};
constexpr Kelp::Duration noDelay{0.0};
/// How many rows are copied before the clock is read.
constexpr int rowsAtOnce = 32;

}  // namespace

struct StateKeeper::Piece {
  enum class Kind { rules, status, counters };
  Kind kind;
  std::string source;  ///< for rules
  Acl::AclType type = Acl::AclType::ip;
  Kelp::String name;  ///< of the list or the collection
  std::optional<Kiv::UniqueId> resume{};
  std::optional<Velo::Counter::VeloDpAclCounterKey> resumeCounter{};
};

StateKeeper::StateKeeper(const Core& core, std::unique_ptr<StateFile> file)
    : core_(core), task_(sweepPriority, "State", [this] { run(); }), writer_(std::move(file)) {
  task_->scheduleTask();
}

StateKeeper::~StateKeeper() {
  rulesKnown_ = false;  // the last write may have failed
  try {
    begin();
    copy(true);
    finish();
  } catch (const std::bad_alloc&) {
    handleFailure(outOfMemory);
  }
  if (const auto failure = writer_.end()) handleFailure(*failure);
}

void StateKeeper::handleApplied() {
  rulesKnown_ = false;
  pieces_.clear();
  task_->scheduleTaskDelay(noDelay);
}

void StateKeeper::run() {
  if (const auto failure = writer_.takeFailure()) handleFailure(*failure);
  Refusable memory;
  try {
    if (pieces_.empty()) begin();
    const bool all = copy(false);
    Refusable::check();
    if (!all) return task_->scheduleTask();
    finish();
  } catch (const std::bad_alloc&) {
    state_ = {};
    handleFailure(outOfMemory);
  }
  task_->scheduleTaskDelay(writeEvery);
}

void StateKeeper::handleFailure(const std::string& failure) {
  rulesKnown_ = false;
  pieces_.clear();
  try {
    // A failure that repeats, as that of a full disk, is told once.
    if (failure != failure_) complain("the state cannot be written: " + failure);
    failure_ = failure;
  } catch (const std::bad_alloc&) {
    // It is told when it repeats and there is memory for that.
  }
}

void StateKeeper::begin() {
  state_ = {};
  pieces_.clear();
  state_.rulesUnchanged = rulesKnown_;
  if (!rulesKnown_) beginRules();
  beginStatus();
  for (auto at = core_.manager().counterHolder()->collection().begin(); at; at.next())
    pieces_.push_back({Piece::Kind::counters, {}, {}, at.key()});
}

void StateKeeper::beginRules() {
  for (const std::string& name : core_.sources()) {
    const auto source = core_.source(name);
    for (auto type = source->config().begin(); type; type.next()) {
      for (auto list = type.value()->acl().begin(); list; list.next())
        pieces_.push_back({Piece::Kind::rules, name, type.key(), list.key()});
    }
  }
}

void StateKeeper::beginStatus() {
  const auto status = core_.inForce().status();
  if (!status) return;
  for (auto type = status->status().begin(); type; type.next()) {
    for (auto direction = type.value()->intf().begin(); direction; direction.next()) {
      for (auto intf = direction.value()->intf().begin(); intf; intf.next()) {
        state_.bindings.push_back({type.key(), direction.key(), intf.key().name().str(), intf.value().str()});
      }
    }
    for (auto list = type.value()->acl().begin(); list; list.next())
      pieces_.push_back({Piece::Kind::status, {}, type.key(), list.key()});
  }
}

bool StateKeeper::copy(bool whole) {
  for (; !pieces_.empty(); pieces_.pop_back()) {
    Piece& piece = pieces_.back();
    bool done = true;
    switch (piece.kind) {
      case Piece::Kind::rules:
        done = copyRules(piece, whole);
        break;
      case Piece::Kind::status:
        done = copyStatus(piece, whole);
        break;
      case Piece::Kind::counters:
        done = copyCounters(piece, whole);
        break;
    }
    if (!done) return false;
  }
  return true;
}

void StateKeeper::finish() {
  rulesKnown_ = true;
  state_.highestId = highestId_;
  writer_.put(std::exchange(state_, {}));
}

void StateKeeper::noteId(const Kiv::UniqueId& id) { highestId_ = std::max(highestId_, id.value()); }

/// Calls take(key, value) for the elements from `resume` on. When the slice is used up it returns false, and
/// `resume` is where to go on.
template <class Map, class Resume, class Take>
bool StateKeeper::copyMap(const Map& map, std::optional<Resume>& resume, bool whole, const Take& take) {
  int rows = 0;
  for (auto at = resume ? map.from(*resume) : map.begin(); at; at.next()) {
    if (++rows % rowsAtOnce == 0 && yields(whole)) {
      resume = at.key();
      return false;
    }
    take(at.key(), at.value());
  }
  return true;
}

bool StateKeeper::copyRules(Piece& piece, bool whole) {
  const auto source = core_.source(piece.source);
  const auto lists = source ? source->config(piece.type) : nullptr;
  const auto list = lists ? lists->acl(piece.name) : nullptr;
  const auto rules = list ? list->currCfg() : nullptr;
  if (!rules) return true;
  const auto take = [&](const Kiv::UniqueId& id, const auto& rule) {
    noteId(id);
    state_.rules.push_back({piece.source, piece.type, piece.name.str(), rule.sequence(), id.value(),
                            savedText(rule.text().view(), rule.filter())});
  };
  return Acl::withRuleKind(piece.type,
                           [&](auto kind) { return copyMap(kind.rules(*rules), piece.resume, whole, take); });
}

bool StateKeeper::copyStatus(Piece& piece, bool whole) {
  const auto list = core_.inForce().statusOf(piece.type, piece.name);
  if (!list) return true;
  if (!piece.resume) {
    const auto* id = implicitDropOf(list);
    const auto* drop = list->implicitRuleStatus(Acl::ImplicitRuleType::drop);
    const auto implicit = drop ? *drop : Acl::RuleStatus();
    if (id) noteId(*id);
    state_.lists.push_back({piece.type, piece.name.str(), list->counterUpdateTime().seconds(),
                            id ? id->value() : 0, implicit.packets, implicit.lastMatch});
  }
  return copyMap(
      list->ruleStatus(), piece.resume, whole, [&](const Kiv::UniqueId& id, const Acl::RuleStatus& rule) {
        noteId(id);
        state_.ruleStatus.push_back({piece.type, piece.name.str(), id.value(), rule.packets, rule.lastMatch});
      });
}

bool StateKeeper::copyCounters(Piece& piece, bool whole) {
  const auto collection = Kelp::ptrCast<Velo::Counter::VeloDpAclCounterColl>(
      core_.manager().counterHolder()->collection(piece.name));
  if (!collection) return true;
  return copyMap(collection->counterCollection(), piece.resumeCounter, whole,
                 [&](const Velo::Counter::VeloDpAclCounterKey& key, const auto& counter) {
                   noteId(key.ruleId);
                   state_.counters.push_back({piece.name.str(), key.direction, key.aclType, key.aclName.str(),
                                              key.ruleId.value(), counter->packets(), counter->bytes(),
                                              counter->lastUpdateTime().seconds()});
                 });
}

}  // namespace Agent
