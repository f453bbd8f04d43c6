#pragma once

#include <Kelp/Duration.h>
#include <agent/workers/Channel.h>
#include <agent/workers/Counts.h>
#include <agent/workers/WorkerProcess.h>
#include <agent/workers/Workers.h>

#include <cstdint>
#include <memory>
#include <string>

namespace Agent {

/// A worker as the first process knows it, over all processes that have been it.
struct Workers::Member {
  unsigned number = 0;
  std::unique_ptr<WorkerProcess> process{};
  std::unique_ptr<Channel> channel{};
  bool begun = false;
  bool refused = false;   ///< it has said why it cannot begin
  bool asked = false;     ///< it has part in the change that is under way
  bool owes = false;      ///< an answer, to the step of the change; or its end, if it has no part in it
  uint64_t gathered = 0;  ///< up to this number its counts are here
  CountSums::Worker counts{};
  Kelp::Duration started{};
  Kelp::Duration heard{};  ///< when it last gave a sign of life
  Kelp::Duration used{};   ///< how long it had had a processor then
  Kelp::Duration due{};    ///< not started again before that
  Kelp::Duration delay{};  ///< between the last starts, as it could not begin
  unsigned overtaken = 0;  ///< so many changes were carried out before it had begun
  uint64_t starts = 0;
  std::string wrong{};  ///< why it could not begin the last time, as it was told
};

}  // namespace Agent
