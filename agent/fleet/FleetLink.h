#pragma once

#include <agent/change/FleetContent.h>
#include <agent/core/Descriptor.h>
#include <agent/fleet/FleetSession.h>
#include <agent/fleet/RolloutHelper.h>
#include <agent/log/LogEvent.h>

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>

namespace Agent {

/// Keeps an agent and the store of its fleet in touch, on a thread of its own: content comes in, status and
/// counters go out. Nobody waits for it. When the store does not answer it tries again for ever, a little
/// later each time (see Backoff).
///
/// Functions are for the loop's thread unless they say otherwise.
class FleetLink {
 public:
  /// `tell` is called on the thread.
  FleetLink(EtcdPlace place, FleetIdentity identity, TellLog tell);
  /// Waits for the thread, half a second at most. What the store has of the agent's status is gone then.
  ~FleetLink();
  FleetLink(const FleetLink&) = delete;
  FleetLink& operator=(const FleetLink&) = delete;

  void start();

  /// Can be read when there is content to be taken, or other questions than before.
  int bell() const { return bell_.get(); }
  /// The last content that was not taken yet; null when there is none.
  SharedFleetContent take();
  /// What is asked by now.
  FleetQuestions questions() const;
  /// The rollouts whose new texts it is the agent's turn to try; empty: there is none.
  std::string tried() const;
  /// Waits for content, so many seconds at most.
  SharedFleetContent wait(double seconds);

  /// What the store is to have of the agent: its status, and of other values by key those that have changed;
  /// an empty one takes it back.
  void stateIs(std::string value);
  void valuesAre(std::map<std::string, std::string> changed);

  struct Connection {
    bool connected = false;
    std::string endpoint{};  ///< that is asked
    std::string wrong{};     ///< why it is not connected, or cannot write
    double since = 0;        ///< seconds since the epoch; 0: it has never been
  };
  Connection connection() const;

 private:
  void run();
  /// For the thread.
  void contentIs(SharedFleetContent content);
  void questionsAre(FleetQuestions questions);
  FleetOutgoing takeOutgoing();
  void triedIs(std::string rollouts);
  void isConnected(const std::string& endpoint);
  void isWritten();
  /// `text` is for the log.
  void isWrong(const std::string& why, const std::string& text, bool connected);
  void tell(Severity severity, std::string text, std::string_view result) const;

  const EtcdPlace place_;
  const FleetIdentity identity_;
  const TellLog tell_;
  const Descriptor bell_;
  Http http_;
  RolloutHelper helper_;
  std::atomic<bool> ending_ = false;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  // Protected by the mutex.
  SharedFleetContent content_;
  FleetQuestions questions_;
  std::string tried_;
  FleetOutgoing outgoing_;
  Connection connection_;

  std::thread thread_;
};

}  // namespace Agent
