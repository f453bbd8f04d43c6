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
    std::function<void(FleetQuestions questions)> questions;        ///< all that there are
    std::function<void(std::vector<std::string> groups)> undriven;  ///< whose rollouts nobody sees to
    std::function<void(const std::string& endpoint)> connected;
    std::function<void(const std::string& why)> unwritten;  ///< the store does not take the status
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
  /// Writes some of what is due; why that was not possible.
  std::string writeSome(bool* isBroken);
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
  Time leaseIsDue_{}, lastRead_{}, writeAgain_{};

  // What the store has, or is to have, below the lease.
  std::map<std::string, std::string> values_;
  std::set<std::string> due_;  // keys of it, or of what is to be deleted, that are to be written
  bool isKnown_ = false;       // the store knows that there is such an agent
};

}  // namespace Agent
