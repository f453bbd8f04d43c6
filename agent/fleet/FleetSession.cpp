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
/// What the store did not take is offered again so much later.
constexpr Seconds untilWritten{10};
/// Of one transaction: fewer than etcd's own limits of 128 operations and 1.5 MiB.
constexpr size_t mostWrites = 100;
constexpr size_t mostOctetsWritten = size_t{512} << 10;

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
    if (isDue) next = std::min(next, lastRead_ + std::chrono::duration_cast<Clock::duration>(betweenReads));
    if (!due_.empty()) next = std::min(next, writeAgain_);
    http_.wait(Seconds(next - Clock::now()).count());
    if (around.ending()) break;
    isDue = isNews() || isDue;
    const auto now = Clock::now();
    if (isCancelled_) {
      wrong = "the store tells no more of what changes";
    } else if (!watch_->isOpen()) {
      wrong = etcd_.endpoint() + ": " + watch_->wrong();
    } else if (isDue && now - lastRead_ >= betweenReads) {
      isDue = false;
      wrong = read(around);
    }
    if (wrong.empty() && now >= leaseIsDue_) wrong = keepLease(around);
    take(around.outgoing());
    if (wrong.empty() && !due_.empty() && now >= writeAgain_) wrong = write(around);
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
  writeAgain_ = {};
  around.connected(etcd_.endpoint());
  return "";
}

std::string FleetSession::read(const Around& around) {
  // A store that is another one by now is asked for everything, and says that in its second answer.
  for (int tries = 0; tries < 2; ++tries) {
    auto answer = etcd_.read(mirror_.question());
    if (!answer) return std::move(answer.wrong);
    lastRead_ = Clock::now();
    if (!mirror_.isAnswer(*answer.value)) {
      mirror_.forget();
      continue;
    }
    readAt_ = answer.value->revision;
    if (auto content = mirror_.take(*answer.value)) around.content(std::move(content));
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
    isKnown_ = false;  // it may be another store, or somebody has forgotten the agent while it was away
    for (const auto& [key, value] : values_) due_.insert(key);
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

std::string FleetSession::write(const Around& around) {
  while (!due_.empty()) {
    bool isBroken = false;
    const std::string wrong = writeSome(&isBroken);
    if (wrong.empty()) continue;
    if (isBroken) return wrong;
    if (wrong.find("lease not found") != std::string::npos) {
      lease_ = 0;  // it has ended meanwhile
      leaseIsDue_ = Clock::now();
      return "";
    }
    writeAgain_ = in(untilWritten);
    around.unwritten(wrong);
    return "";
  }
  return "";
}

std::string FleetSession::writeSome(bool* isBroken) {
  EtcdTxn txn{.lease = lease_};
  std::set<std::string> written;
  size_t octets = 0;
  for (const std::string& key : due_) {
    const auto value = values_.find(key);
    octets += key.size() + (value == values_.end() ? 0 : value->second.size());
    if (written.size() == mostWrites || (octets > mostOctetsWritten && !written.empty())) break;
    written.insert(key);
    if (value == values_.end())
      txn.deletes.push_back({.key = key});
    else
      txn.puts.push_back({key, value->second, true});
  }
  // Without a lease: that the agent is gone can be told only of one that was there.
  if (!isKnown_) {
    const nlohmann::ordered_json known = {{"groups", identity_.groups}};
    txn.puts.push_back({knownKey(identity_.agent), known.dump(), false});
  }
  const auto answer = etcd_.txn(txn);
  if (!answer) {
    *isBroken = answer.isUnknown;
    return answer.wrong;
  }
  isKnown_ = true;
  for (const std::string& key : written) due_.erase(key);
  return "";
}

void FleetSession::leave() {
  watch_.reset();
  if (lease_ != 0) etcd_.revoke(lease_);
  lease_ = 0;
}

}  // namespace Agent
