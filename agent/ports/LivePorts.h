#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/core/EventLoop.h>
#include <agent/forward/Forwarder.h>
#include <agent/forward/FrameTotals.h>
#include <agent/log/LogEvent.h>
#include <agent/ports/LinkWatch.h>
#include <agent/ports/LivePort.h>
#include <agent/ports/PortKinds.h>

#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace Agent {

/// The live ports of the agent. Opens them, follows their devices, and takes bursts of frames from each of
/// them through the forwarder. Counts the frames of all ports together.
class LivePorts final {
 public:
  /// Forwarder and loop outlive this object.
  LivePorts(Forwarder& forwarder, EventLoop& loop, PortSetup setup = {});
  ~LivePorts();

  /// Adds a port; `device` says of which kind it is and on which device (see PortKinds.h). Returns what is
  /// wrong. Nothing is opened before open() is called.
  std::optional<std::string> portIs(const std::string& name, const std::string& device);
  /// Adds a port on a device that the caller has made and that the kernel does not tell of; for tests.
  void portIs(const std::string& name, std::unique_ptr<PortDevice> by);
  /// Where devices that go and come are told of, from open() on.
  void logIs(TellLog tell) { tell_ = std::move(tell); }
  /// What something wrong with a port comes to.
  enum class Trouble {
    endsStart,   ///< nothing is opened
    closesPort,  ///< that port is closed until it can be opened, and tried again and again; others are open
  };
  /// Opens every port whose device is there. A port whose device comes later is opened then. From now on
  /// frames are received as soon as the loop runs. Returns what went wrong.
  std::optional<std::string> open(Trouble trouble = Trouble::endsStart);
  /// How the device of a port is with the processes that have it, if these are others and the kernel does not
  /// tell of it; nothing: it is not there.
  void toldIs(const std::string& name, const std::optional<Link>& link);
  /// Stops receiving, and sends the frames that have arrived until now. Closes nothing.
  void drain();

  /// The capabilities (CAP_*) that are needed to open a device again that has gone and come back.
  const std::set<int>& capabilities() const { return capabilities_; }
  /// Those that devices may need which are still to be made: here, or by other processes that this one
  /// starts.
  std::set<int> capabilitiesToMake() const;
  std::vector<PortState> states() const;
  /// What the devices of all ports hand on to other processes, in the order of the ports; -1: nothing.
  std::vector<int> handedOn() const;
  /// The frames received so far on all ports.
  const FrameTotals& totals() const { return totals_; }

 private:
  /// A port, as the loop asks it for bursts.
  struct Member final : Poller {
    Member(LivePorts& owner, const PortKind* which, std::unique_ptr<LivePort> made)
        : all(owner), kind(which), port(std::move(made)) {}
    bool poll() override { return all.burstFrom(*port); }
    LivePorts& all;
    const PortKind* const kind;  ///< null: none of the table
    const std::unique_ptr<LivePort> port;
    bool isMade = false;               ///< see PortDevice::make()
    std::optional<Link> seen{};        ///< how its device was when it was looked at; see PortDevice::look()
    int watched = -1;                  ///< its descriptor, while the loop watches it
    bool present = false, up = false;  ///< what was told last
    std::optional<Link> refused{};     ///< the device is there and could not be made or opened
  };

  bool burstFrom(LivePort& port);
  Member& memberIs(const PortKind* kind, std::unique_ptr<LivePort> port);
  void handleLink(const std::string& name, const Link* link);
  void handleLink(Member& member, const Link* link);
  /// Looks at the devices that nobody tells of.
  void look();
  void look(Member& member);
  void linkIs(Member& member, const Link& link);
  /// Makes the device of a port. Returns what went wrong, if that is the end of all.
  std::optional<std::string> make(Member& member);
  /// Says so, and tries again later.
  void complainOf(const std::string& wrong, const std::string& before);
  void tryAgain();
  void update(Member& member);
  void tellState(Member& member);

  Forwarder& forwarder_;
  EventLoop& loop_;
  FrameTotals totals_;
  TellLog tell_;
  std::vector<std::unique_ptr<Member>> members_;
  std::set<int> capabilities_;
  bool opening_ = false;  // within open()
  Trouble trouble_ = Trouble::endsStart;
  std::optional<std::string> wrong_;  // what went wrong within open()
  LinkWatch links_;
  const PortSetup setup_;
  Kiv::OwnedTask look_;
  Kiv::OwnedTask again_;  // tries devices again that could not be opened: another process may have had them
};

}  // namespace Agent
