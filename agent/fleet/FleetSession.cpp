#include <agent/fleet/FleetKeys.h>
#include <agent/fleet/FleetSession.h>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <utility>

namespace Agent {

namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

/// Changes that come quicker than this are read together.
constexpr Seconds betweenReads{0.05};
/// What was more than can be taken is not asked for again at once.
constexpr Seconds untilLess{10};
/// What the store did not take is offered again so much later.
constexpr Seconds untilWritten{10};
/// Of one transaction: fewer than etcd's own limits of 128 operations and 1.5 MiB.
constexpr size_t mostWrites = 100;
constexpr size_t mostOctetsWritten = size_t{512} << 10;

/// The word behind the root.
std::string_view kindOf(const std::string& key) { return nameIn(key, fleetRoot); }

Clock::time_point in(Seconds seconds) {
  return Clock::now() + std::chrono::duration_cast<Clock::duration>(seconds);
}

}  // namespace

FleetSession::FleetSession(Http& http, EtcdPlace place, FleetIdentity identity)
    : http_(http), etcd_(http, std::move(place)), identity_(std::move(identity)), mirror_(identity_) {}

std::string FleetSession::run(const Around& around) {
  std::string wrong = begin(around);
  bool isDue = false;
  while (wrong.empty() && !around.ending()) {
    // What came while the store was asked for something else rings no more.
    isDue = isNews() || isDue;
    auto next = isCancelled_ || !watch_->isOpen() ? Clock::now() : leaseIsDue_;
    if (isDue) next = std::min(next, nextRead_);
    if (!due_.empty()) next = std::min(next, writeAt());
    http_.wait(Seconds(next - Clock::now()).count());
    if (around.ending()) break;
    isDue = isNews() || isDue;
    const auto now = Clock::now();
    if (isCancelled_) {
      wrong = "the store tells no more of what changes";
    } else if (!watch_->isOpen()) {
      wrong = etcd_.endpoint() + ": " + watch_->wrong();
    } else if (isDue && now >= nextRead_) {
      isDue = false;
      wrong = read(around);
    }
    if (wrong.empty() && now >= leaseIsDue_) wrong = keepLease(around);
    take(around.outgoing());
    if (wrong.empty() && !due_.empty() && now >= writeAt()) wrong = write(around);
    // The watch is still with the one that did not answer, and may never hear of anything any more.
    if (wrong.empty() && etcd_.endpoint() != watchedAt_) wrong = watchedAt_ + ": it does not answer";
  }
  watch_.reset();
  if (!wrong.empty() && etcd_.endpoint() == watchedAt_) etcd_.next();
  return wrong;
}

/// First everything is read, and then watched from behind the revision at which it was.
std::string FleetSession::begin(const Around& around) {
  isCancelled_ = false;
  watchedAt_ = etcd_.endpoint();
  if (auto wrong = read(around); !wrong.empty()) return wrong;
  watchedAt_ = etcd_.endpoint();
  watch_ = etcd_.watch(mirror_.prefixes(), readAt_ + 1);
  if (auto wrong = keepLease(around); !wrong.empty()) return wrong;
  refusedUntil_.clear();
  around.connected(etcd_.endpoint());
  return "";
}

std::string FleetSession::read(const Around& around) {
  // A store that is another one by now is asked for everything, and says that in its second answer.
  for (int tries = 0; tries < 2; ++tries) {
    auto answer = etcd_.read(mirror_.question());
    const bool isTooMuch = answer.isTooMuch;
    if (isTooMuch) answer = etcd_.read(mirror_.keysQuestion());
    if (!answer) return std::move(answer.wrong);
    nextRead_ = in(isTooMuch ? untilLess : betweenReads);
    if (isTooMuch) mirror_.forget();
    if (!mirror_.isAnswer(*answer.value)) {
      mirror_.forget();
      continue;
    }
    readAt_ = answer.value->revision;
    auto content = isTooMuch ? mirror_.takeKeys(*answer.value) : mirror_.take(*answer.value);
    around.tried(mirror_.tried());  // first: whoever takes the content asks for it
    if (content) around.content(std::move(content));
    around.questions(mirror_.questions());
    around.undriven(mirror_.undriven());
    return "";
  }
  return etcd_.endpoint() + ": an answer of another kind";
}

bool FleetSession::isNews() {
  bool any = false;
  std::string line;
  while (watch_->next(line)) {
    const Etcd::News news = Etcd::newsIn(line);
    any = any || news.changed;
    isCancelled_ = isCancelled_ || news.isCancelled;
  }
  return any;
}

std::string FleetSession::keepLease(const Around& around) {
  if (lease_ != 0) {
    auto kept = etcd_.keepAlive(lease_);
    if (!kept) return std::move(kept.wrong);
    if (!*kept.value) lease_ = 0;
  }
  if (lease_ == 0) {
    auto granted = etcd_.grant(identity_.leaseSeconds);
    if (!granted) return std::move(granted.wrong);
    lease_ = *granted.value;
    for (const auto& [key, value] : values_) due_.insert(key);
    // It may be another store, or somebody has forgotten the agent while it was away.
    due_.insert(knownKey(identity_.agent));
    isSplit_ = wrote_ = false;
    looksBack_ = true;
  }
  // By chance, so that not all agents of a fleet speak at the same time.
  leaseIsDue_ = in(Seconds(identity_.leaseSeconds * (0.45 + 0.05 * around.chance())));
  return "";
}

void FleetSession::take(FleetOutgoing outgoing) {
  if (outgoing.state) outgoing.values[stateKey(identity_.agent)] = std::move(*outgoing.state);
  for (auto& [key, value] : outgoing.values) {
    const auto known = values_.find(key);
    if (known != values_.end() ? known->second == value : value.empty()) continue;
    due_.insert(key);
    if (value.empty())
      values_.erase(key);
    else
      values_[key] = std::move(value);
  }
}

FleetSession::Time FleetSession::writeAt() const {
  auto first = Time::max();
  for (const std::string& key : due_) {
    const auto refused = refusedUntil_.find(kindOf(key));
    first = std::min(first, refused == refusedUntil_.end() ? Time() : refused->second);
  }
  return first;
}

/// The next keys to be written together.
std::set<std::string> FleetSession::portion() const {
  std::set<std::string> keys;
  size_t octets = 0;
  for (const std::string& key : due_) {
    const auto refused = refusedUntil_.find(kindOf(key));
    if (refused != refusedUntil_.end() && refused->second > Clock::now()) continue;
    if (isSplit_ && !keys.empty() && kindOf(key) != kindOf(*keys.begin())) continue;
    const auto value = values_.find(key);
    octets += key.size() + (value == values_.end() ? 0 : value->second.size());
    if (keys.size() == mostWrites || (octets > mostOctetsWritten && !keys.empty())) break;
    keys.insert(key);
  }
  return keys;
}

std::string FleetSession::write(const Around& around) {
  bool isTwin = false;
  for (auto keys = portion(); !keys.empty(); keys = portion()) {
    const auto answer = writeSome(keys);
    if (!answer) {
      if (answer.isUnknown) return answer.wrong;
      if (answer.wrong.find("lease not found") != std::string::npos) {
        lease_ = 0;  // it has ended meanwhile
        leaseIsDue_ = Clock::now();
        return "";
      }
      if (isOtherWay(answer.wrong)) continue;
      refused(keys);
      around.unwritten(answer.wrong);
      continue;
    }
    for (const std::string& key : keys) due_.erase(key);
    const auto& before = answer.value->before;
    if (wrote_ && !before.empty() && before[0].value.find(identity_.instance) == std::string::npos) {
      isTwin = true;
      around.twin();
    }
    const bool isState = keys.contains(stateKey(identity_.agent));
    wrote_ = wrote_ || isState;
    // Another agent of the name shows only where the status is written.
    if (isState && !isTwin && due_.empty() && around.written) around.written();
  }
  return "";
}

Maybe<EtcdResult> FleetSession::writeSome(const std::set<std::string>& keys) {
  EtcdTxn txn{.lease = lease_};
  const std::string state = stateKey(identity_.agent), known = knownKey(identity_.agent);
  for (const std::string& key : keys) {
    const auto value = values_.find(key);
    if (value != values_.end())
      txn.puts.push_back({key, value->second, true, looksBack_ && key == state});
    else if (key == known)  // without a lease: that the agent is gone can be told only of one that was there
      txn.puts.push_back({key, nlohmann::ordered_json({{"groups", identity_.groups}}).dump()});
    else
      txn.deletes.push_back({.key = key});
  }
  return etcd_.txn(txn);
}

/// Whether what was refused for want of rights may be written in another way.
bool FleetSession::isOtherWay(const std::string& wrong) {
  if (wrong.find("permission denied") == std::string::npos || isSplit_) return false;
  // First without reading, then each kind for itself.
  isSplit_ = !std::exchange(looksBack_, false);
  return true;
}

void FleetSession::refused(const std::set<std::string>& keys) {
  for (const std::string& key : keys) refusedUntil_[std::string(kindOf(key))] = in(untilWritten);
}

void FleetSession::leave() {
  watch_.reset();
  if (lease_ != 0) etcd_.revoke(lease_);
  lease_ = 0;
}

}  // namespace Agent
