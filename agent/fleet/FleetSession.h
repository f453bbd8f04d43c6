#pragma once

#include <agent/change/FleetContent.h>
#include <agent/fleet/FleetMirror.h>

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// What the store is to have of an agent.
struct FleetOutgoing {
  std::optional<std::string> state{};           ///< nothing: as it was
  std::map<std::string, std::string> values{};  ///< those that changed, by key; an empty one takes it back
};

/// The conversation of an agent with the store of its fleet. Blocks; for the thread of FleetLink.
///
/// A watch tells that something has changed; what that is, is read in one question at one revision (see
/// FleetMirror). Status and counters are written under a lease, so that they go when the agent does. The
/// lease outlives a connection that breaks.
class FleetSession {
 public:
  struct Around {
    std::function<void(SharedFleetContent content)> content;
    std::function<void(FleetQuestions questions)> questions;  ///< all that there are
    std::function<void(UndrivenRollouts groups)> undriven;
    std::function<void(std::string rollouts)> tried;  ///< see FleetMirror
    std::function<void(const std::string& endpoint)> connected;
    std::function<void(const std::string& why)> unwritten;  ///< the store does not take all of the status
    std::function<void()> written;                          ///< it has all of it
    std::function<void()> twin;  ///< another agent writes the status of this one, too
    std::function<FleetOutgoing()> outgoing;
    std::function<bool()> ending;
    std::function<double()> chance;  ///< from 0 to below 1
  };

  /// `http` outlives it.
  FleetSession(Http& http, EtcdPlace place, FleetIdentity identity);

  /// Goes on until it breaks, or until it is ending. Returns why it broke.
  std::string run(const Around& around);
  /// Takes the status back, if that can be done quickly.
  void leave();

 private:
  using Time = std::chrono::steady_clock::time_point;

  std::string begin(const Around& around);
  std::string read(const Around& around);
  std::string keepLease(const Around& around);
  std::string write(const Around& around);
  std::set<std::string> portion() const;
  Maybe<EtcdResult> writeSome(const std::set<std::string>& keys);
  bool isOtherWay(const std::string& wrong);
  void refused(const std::set<std::string>& keys);
  Time writeAt() const;
  void take(FleetOutgoing outgoing);
  bool isNews();

  Http& http_;
  Etcd etcd_;
  const FleetIdentity identity_;
  FleetMirror mirror_;
  std::unique_ptr<Http::Stream> watch_;
  std::string watchedAt_;  // the endpoint that tells of changes
  bool isCancelled_ = false;
  int64_t readAt_ = 0;  // the revision at which everything was read last
  int64_t lease_ = 0;   // 0: none
  Time leaseIsDue_{}, nextRead_{};

  // What the store has, or is to have, below the lease.
  std::map<std::string, std::string> values_;
  std::set<std::string> due_;  // keys of it, or of what is to be deleted, that are to be written
  // What may be written depends on rights, which may differ by kind: the first word of keys.
  bool isSplit_ = false;   // each kind has a transaction of its own
  bool looksBack_ = true;  // what was there is asked for, so that a twin is noticed
  bool wrote_ = false;     // the state, below this lease
  std::map<std::string, Time, std::less<>> refusedUntil_;  // by kind
};

}  // namespace Agent
