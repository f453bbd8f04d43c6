#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/change/Partners.h>
#include <agent/change/Sources.h>
#include <agent/log/LogEvent.h>
#include <agent/ports/PortDevice.h>
#include <agent/ports/WorkerState.h>
#include <agent/workers/Counts.h>
#include <agent/workers/Messages.h>

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The processes that have the ports of this agent, each with lists of its own, and the first process's side
/// of them: starts them and those that die again, has them carry out every change, and adds up what they
/// count.
///
/// For the loop's thread. Owner: the run, whose core has the configuration and whose forwarder has the ports,
/// without devices.
class Workers final : public Partners {
 public:
  struct Options {
    unsigned count = 1;
    std::function<const Sources&()> sources;  ///< those in force
    std::vector<int> handed;                  ///< what each worker is handed for its ports; -1: nothing
    TellLog tell;
    /// Where the links of ports are told of, as they are with the workers; nothing: the device is not there.
    std::function<void(const std::string& port, const std::optional<Link>& link)> linkIs{};
  };

  /// Core, forwarder and loop outlive this object.
  Workers(Core& core, Forwarder& forwarder, EventLoop& loop, Options options);
  /// Ends those that are there at once.
  ~Workers() override;

  /// Starts all of them, and turns the loop until their ports are open, or `stop` says to give up. Returns
  /// what went wrong.
  std::optional<std::string> start(const std::function<bool()>& stop);
  /// Has them forward what has come, and waits a moment for their last counts.
  void end();

  void getReady(const SourceChange& change, Heard heard) override;
  void drop() override;
  void carryOut(std::function<void()> done) override;
  void over() override;

  /// Calls `then` when everything is added up that was counted until now, or soon if somebody does not
  /// answer.
  void gather(std::function<void()> then);
  const FrameTotals& totals() const { return sums_.totals(); }
  /// The states of ports with what workers have counted.
  std::vector<PortState> with(std::vector<PortState> states) const;
  std::vector<WorkerState> states() const;

 private:
  struct Member;
  /// Of a change.
  enum class Step { none, gettingReady, ready, carryingOut, carriedOut };

  void startMissing();
  void start(Member& member, const std::string& handover);
  void startLater(Member& member, Kelp::Duration delay);
  Kelp::Duration delayAfterFailure(Member& member);
  /// Tells how the devices of the ports of a worker are with those that are there: up if with one of them.
  void tellLinks(const CountSums::Worker& of) const;
  void handle(Member& member, std::optional<Message> message);
  void handleGone(Member& member);
  /// A step is over when nobody owes an answer any more.
  void settle();
  void settleGathering();
  /// Whether a worker that is there gives no sign of life any more.
  bool isStuck(Member& member);
  void watch();
  void tell(Severity severity, const Member& member, const std::string& text) const;
  /// The same for why it is not there, which goes on and on: told when it was something else the last time.
  void tellOnce(Member& member, const std::string& text) const;
  void sendAll(MessageKind kind, const std::string& text, const Member* except = nullptr);
  /// To those that have part in the change.
  void sendToAsked(MessageKind kind, const std::string& text);

  Core& core_;
  Forwarder& forwarder_;
  EventLoop& loop_;
  const Options options_;
  CountSums sums_;
  std::vector<std::unique_ptr<Member>> members_;
  bool opening_ = false;               // within start()
  std::optional<std::string> failed_;  // why one could not begin then
  bool ending_ = false;

  Step step_ = Step::none;
  Heard heard_;
  std::function<void()> done_;
  std::optional<std::string> refused_;

  struct Gathering {
    uint64_t number;
    std::function<void()> then;
  };
  std::vector<Gathering> gathering_;
  uint64_t gatherings_ = 0;
  Kiv::OwnedTask again_;     // starts those that are missing
  Kiv::OwnedTask watch_;     // looks for workers that do not speak any more
  Kelp::Duration watched_;   // when it did
  Kiv::OwnedTask patience_;  // of those who wait for counts
};

}  // namespace Agent
