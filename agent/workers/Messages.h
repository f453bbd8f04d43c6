#pragma once

#include <cstdint>
#include <string>

namespace Agent {

/// What the first process and its workers tell each other. The text of a message is JSON, see what reads it.
enum class MessageKind : uint8_t {
  // To a worker.
  begin,       ///< the configuration in force (Handover.h); the first of all
  beginAgain,  ///< the same for one that takes the place of another: ports that it cannot open stay closed
  getReady,    ///< for a change (ChangeOrder.h)
  drop,        ///< what it is ready for does not come
  carryOut,    ///< what it is ready for
  gather,      ///< tell all counts, and say so: a number
  stations,    ///< where other workers have heard of stations
  end,         ///< forward what has come, tell the last counts, and end
  // To the first process.
  begun,       ///< the configuration is in force and the ports are open
  refused,     ///< it could not begin: why
  ready,       ///< for the change
  notReady,    ///< for the change: why
  carriedOut,  ///< the change is in force, and everything before it has been told
  counts,      ///< what was counted since the last time (Counts.h)
  gathered,    ///< all counts up to this number have been told
  heard,       ///< stations that it has heard of (Stations.h)
};

struct Message {
  MessageKind kind;
  std::string text;
};

}  // namespace Agent
