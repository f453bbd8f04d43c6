#pragma once

#include <agent/control/ControlPlane.h>
#include <gtest/gtest.h>

#include "../../support/Frames.h"
#include "Run.h"

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace TestSupport {

using Json = nlohmann::ordered_json;

/// A frame from 192.0.2.1 to 198.51.100.7.
inline Bytes udpTo(uint16_t port) {
  return frame().eth().ip4("192.0.2.1", "198.51.100.7").udp(1024, port).bytes();
}

/// An agent without live ports that is driven by turns of its loop and a clock that stands still until it is
/// told to go on.
class RunningAgent {
 public:
  static constexpr double startTime = 1700000000;

  RunningAgent();
  ~RunningAgent();

  /// Files that it is said to have been started with besides; nothing is read from them. Set before start().
  std::vector<std::string> furtherConfigs;

  /// Puts a configuration in force and makes the control plane, with a socket at socketPath(). `dir` are
  /// files of a configuration directory; null: there is none.
  void start(const std::string& text, const std::map<std::string, std::string>* dir = nullptr,
             Agent::ControlLimits limits = {});
  /// How much text the files of the directory may have; before start().
  void textLimitsAre(Agent::TextLimits limits) { textLimits_ = limits; }
  /// What passes without the operator's word, and which ports there are; before start(). Usually openings
  /// pass, and every interface may be a port.
  void leaveIs(Agent::Leave leave) { leave_ = leave; }
  void portsAre(Agent::PortNames names) { ports_ = std::move(names); }
  /// Where changes are kept, and what was kept there; before start().
  void journalIs(Agent::ChangeJournal& journal, Agent::Past past = {}) {
    journal_ = &journal;
    past_ = std::move(past);
  }
  /// Who carries out every change, too; before start().
  void partnersAre(Agent::Partners& partners) { partners_ = &partners; }
  /// The processes that are said to have the ports; before start().
  void workersAre(std::vector<Agent::WorkerState> workers) { workers_ = std::move(workers); }
  /// The lines of the log since the last call.
  std::vector<std::string> log() { return std::exchange(log_, {}); }
  /// The live ports that the agent is to have by its own account; before start().
  void portStatesAre(std::vector<Agent::PortState> states) { portStates_ = std::move(states); }
  /// Joins two interfaces, and several by a bridge with the agent's clock.
  void patch(const char* a, const char* b);
  void bridge(const std::vector<std::string>& names);

  /// Carries out a request as a client that may change things, and waits for the answer: the document, or the
  /// object with the member `error`.
  Json ask(const Json& request) { return ask(request, session(), true); }
  Json ask(const Json& request, Agent::Session& session, bool mayChange);
  Json show(const char* what, const std::string& name = {});
  /// Has a configuration applied; the answer.
  Json apply(const std::string& text, bool dryRun = false);
  Agent::Session& session();

  Agent::Verdict receive(const char* port, const Bytes& frame);

  /// Turns until nothing is due; and until something is so, unless that takes more than is to be waited for.
  void turns(int count = 50);
  void turnsUntil(const std::function<bool()>& done);
  void advance(double seconds);
  /// Lets time pass without a turn.
  void pass(double seconds);

  std::string socketPath() const { return temp_ / "control"; }
  std::string dirPath() const { return dir_.empty() ? temp_ / "config" : dir_; }
  /// Where the configuration directory is to be; before start().
  void dirPathIs(const std::string& path) { dir_ = path; }
  /// Puts a file into the directory as editors do: written aside, then renamed.
  void putFile(const std::string& name, const std::string& text);

  Agent::EventLoop& loop() { return *loop_; }
  Agent::Core& core() { return *core_; }
  Agent::Forwarder& forwarder() { return *forwarder_; }
  Agent::ControlPlane& plane() { return *plane_; }

 private:
  TempDir temp_;
  std::string dir_;
  Agent::TextLimits textLimits_;
  Agent::Leave leave_{.openings = true};
  std::optional<Agent::PortNames> ports_;
  std::optional<std::vector<Agent::PortState>> portStates_;
  Agent::ChangeJournal* journal_ = nullptr;
  Agent::Past past_;
  Agent::Partners* partners_ = nullptr;
  std::optional<std::vector<Agent::WorkerState>> workers_;
  std::vector<std::string> log_;
  Kiv::ManualClock clock_;
  Kiv::ManualClock wall_{Kelp::Duration(startTime)};
  std::unique_ptr<Agent::EventLoop> loop_;
  std::unique_ptr<Agent::Core> core_;
  std::unique_ptr<Agent::Forwarder> forwarder_;
  std::unique_ptr<Agent::ControlPlane> plane_;
  std::unique_ptr<Agent::Session> session_;
};

/// What a handler takes is real time and what a lane earns is the agent's, which stands still: so that no
/// load of the machine closes a lane, clients have all the time there is from the start.
Agent::ControlLimits unhurriedLimits();

/// A client of the socket that never waits.
class SocketClient {
 public:
  explicit SocketClient(RunningAgent& agent);
  ~SocketClient();
  SocketClient(const SocketClient&) = delete;
  SocketClient& operator=(const SocketClient&) = delete;

  /// Sends what the socket takes; how many octets that were.
  size_t send(std::string_view text);
  /// Takes what has arrived.
  void receive();
  /// A line that has arrived, after turns of the agent; empty when none comes.
  std::string line();
  /// True when the agent has closed the connection.
  bool closed();
  const std::string& arrived() const { return arrived_; }
  int fd() const { return fd_; }

 private:
  RunningAgent& agent_;
  int fd_ = -1;
  bool closed_ = false;
  std::string arrived_;
};

}  // namespace TestSupport
