#pragma once

#include <agent/observe/FrameQueue.h>
#include <nlohmann/json.hpp>

namespace Agent {

/// Tells of frames that were seen, as docs/control.md describes it.
class SeenFrameWriter {
 public:
  SeenFrameWriter();
  /// `octets`: those of the frame are told, too.
  nlohmann::ordered_json document(const SeenFrame& frame, bool octets);

 private:
  const Kelp::Ptr<Nimnet::Pkt> pkt_;
};

}  // namespace Agent
