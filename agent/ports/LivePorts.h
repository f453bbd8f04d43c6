#pragma once

#include <agent/core/EventLoop.h>
#include <agent/forward/Forwarder.h>
#include <agent/ports/LinkWatch.h>
#include <agent/ports/LivePort.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

namespace Agent {

/// The live ports of the agent: opens them, follows their devices, and moves bursts of frames from each
/// through the forwarder. Received frames and what became of them are counted here in all.
class LivePorts final : private FrameReceiver {
 public:
  /// What was received so far, of all ports; mirrored copies are not in it.
  struct Totals {
    uint64_t frames = 0;
    uint64_t bytes = 0;
    uint64_t passed = 0;
    uint64_t dropped = 0;
  };

  /// Both outlive this object.
  LivePorts(Forwarder& forwarder, EventLoop& loop);
  ~LivePorts();

  /// Adds a port on a device, of the kind that `device` says (see PortKinds.h). Returns what is wrong.
  /// Nothing is opened before open().
  std::optional<std::string> portIs(const std::string& name, const std::string& device);
  /// Adds a port of another make; for tests.
  void portIs(std::unique_ptr<LivePort> port);
  /// The frame that the forwarder has at present, for ports of another make.
  const LiveFrame& inHand() const { return inHand_; }

  /// Opens every port whose device is there; the others open when it comes. From now on frames are received
  /// as soon as the loop runs. Returns what went wrong.
  std::optional<std::string> open();
  /// Receives nothing new, sends what has been received, and closes nothing.
  void drain();

  /// The capabilities (CAP_*) that it takes to open devices again that have gone and come back.
  const std::set<int>& capabilities() const { return capabilities_; }
  std::vector<PortState> states() const;
  const Totals& totals() const { return totals_; }

 private:
  /// Asks one port for a burst.
  struct Member final : Poller {
    Member(LivePorts& owner, std::unique_ptr<LivePort> which) : all(owner), port(std::move(which)) {}
    bool poll() override { return all.burstFrom(*port); }
    LivePorts& all;
    const std::unique_ptr<LivePort> port;
    int watched = -1;
  };

  void receive(Port& port, const LiveFrame& frame) override;
  bool burstFrom(LivePort& port);
  void handleLink(const std::string& name, const Link* link);
  void update(Member& member);

  Forwarder& forwarder_;
  EventLoop& loop_;
  LiveFrame inHand_;
  Totals totals_;
  std::vector<std::unique_ptr<Member>> members_;
  std::set<int> capabilities_;
  bool opening_ = false;
  std::optional<std::string> wrong_;  // of opening
  LinkWatch links_;
};

}  // namespace Agent
