#pragma once

#include <Kiv/OwnedTask.h>
#include <agent/core/Core.h>
#include <agent/core/EventLoop.h>
#include <agent/log/LogEvent.h>
#include <agent/observe/FlowTable.h>
#include <agent/observe/LineBudget.h>
#include <agent/observe/MatchFollower.h>
#include <agent/observe/MatchLine.h>
#include <agent/observe/MatchPlace.h>

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <vector>

namespace Agent {

/// How much is told of matches.
struct MatchLogOptions {
  uint32_t interval = 300;  ///< seconds between two lines about one flow, at least 1
  uint32_t rate = 100;      ///< lines a second, of all flows together; 0: nothing is told
  bool drops = false;       ///< whether the implicit drops of lists are told, too
  uint32_t flows = 65536;   ///< that are known at a time
};

/// Tells the log what rules with `log` match: the first packet of a flow at once, how many further ones there
/// were once an interval, and again when the flow ends: when it was idle for an interval, when its rule is
/// gone, when the table is full and no flow was told of longer ago, and at the end.
///
/// When there are too many lines, a flow becomes known only with a later packet, and further packets are told
/// of an interval later. How many packets no line tells of is told once a second. So a flood of new flows
/// costs no known flow its place in the table.
///
/// Rules are known by their counters. A rule with another `log` is another rule, with another id and another
/// counter, so that each counter is asked for once whether it is to be followed.
///
/// While a packet is judged, its flow is only looked up or noted, which allocates nothing. Lines are made
/// from the notes when the ports have had their turn of the loop, and put into words on the log's thread.
/// Core, forwarder and loop outlive it; the plugin stays as long as it lives. To be made when the
/// configuration is in force, with the counts of an earlier agent, and when all ports have joined the loop.
class MatchLog final : private Poller {
 public:
  using Tell = std::function<void(std::function<std::vector<LogEvent>()> make)>;

  MatchLog(const Core& core, const Forwarder& forwarder, EventLoop& loop, const MatchLogOptions& options,
           Tell tell);
  /// Tells what there is to tell of all flows.
  ~MatchLog() override;
  MatchLog(const MatchLog&) = delete;
  MatchLog& operator=(const MatchLog&) = delete;

  /// See MatchMessages.
  const std::vector<std::string>& wrong() const { return messages_->wrong(); }
  /// How many rules are followed.
  size_t rules() const { return rules_.size(); }
  size_t flows() const { return flows_.size(); }

 private:
  using Counter = MatchFollower::Counter;
  using Flow = FlowTable::Flow;

  /// What is known of a rule that is followed. It may be gone while there are flows of it.
  struct Rule {
    MatchFollower::Key key;
    uint32_t sequence = 0;
    Acl::Action action = Acl::Action::deny;
    bool gone = false;
  };
  struct Note {
    FlowKey flow;
    uint64_t packets;
    bool first;
  };

  bool follow(const Counter& counter);
  void handleMatch(const Counter& counter);
  void handleGone(const Counter& counter);

  /// Notes a line about a flow. False when there are too many.
  bool note(const FlowKey& flow, uint64_t packets, bool first);
  void end(Flow& flow);
  void leaveOut(uint64_t packets);

  bool poll() override;
  void tellNotes();
  MatchLine lineOf(const Note& note);
  void tellLeftOut();
  /// Work that is due, a slice of it.
  void run();
  /// False when the slice is used up.
  bool endFlowsOfGoneRules();
  bool tellFlowsThatAreDue();
  void schedule();
  Kelp::Duration now() const { return loop_.turnClock().now(); }

  const Core& core_;
  const Forwarder& forwarder_;
  EventLoop& loop_;
  const MatchLogOptions options_;
  const Kelp::Duration interval_;
  const Tell tell_;
  const std::shared_ptr<const MatchMessages> messages_;
  FlowTable flows_;
  LineBudget budget_;
  std::vector<Note> notes_;         // of this turn; grows up to what is reserved
  std::map<uint32_t, Rule> rules_;  // by the number of the counter
  uint64_t leftOut_ = 0;            // packets that no line tells of
  Kelp::Duration leftOutSince_;
  uint32_t lookedAt_ = 0;  // of the numbers of flows, since a rule has gone
  bool rulesGone_ = false;
  MatchPlace place_;
  Kiv::OwnedTask task_;
  MatchFollower follower_;  // last: it calls while it is made
};

}  // namespace Agent
