#pragma once

#include <Acl/Types.h>
#include <Nimnet/IntfId.h>
#include <Nimnet/Pkt.h>
#include <Velo/Pipeline.h>

#include <cstdint>

namespace Agent {

struct End;

/// Takes the frames that leave a port: a capture file, an interface. Owned by whoever runs the forwarder. It
/// changes nothing by which packets are judged.
class FrameSink {
 public:
  virtual ~FrameSink() = default;
  virtual void send(const Nimnet::Pkt& pkt) = 0;
};

/// A port of the agent, with counts of its frames. Frames that leave a port without a sink are counted and
/// lost.
struct Port {
  Nimnet::IntfId id;
  FrameSink* sink = nullptr;     ///< not owned
  bool up = true;                ///< frames to a port-channel leave by members that are up
  Nimnet::IntfId portChannel{};  ///< the port-channel that it is a member of; the empty id: none
  End* entry = nullptr;          ///< where its frames enter a junction: its port-channel's end, or its own
  uint32_t unplanned = 0;        ///< so many bursts are still to be handled one by one; of Bursts.cpp
  uint64_t received = 0;
  uint64_t sent = 0;  ///< mirrored copies included
  uint64_t droppedIn = 0;
  uint64_t droppedOut = 0;
  uint64_t mirrored = 0;  ///< copies that left here
  uint64_t nowhere = 0;   ///< received and passed, but there was no port to leave by
};

/// What became of a received frame. A frame that leaves by several ports has passed when it left by one of
/// them. Then `egress` is the last port that it left by; if it was dropped at all of them, `egress` is the
/// first.
struct Verdict {
  const Velo::PipelineStep* droppedBy = nullptr;  ///< null: it passed
  Acl::AclDirection direction = Acl::AclDirection::in;
  /// Null: there was no port to leave by, or the frame was dropped before the port was known.
  const Port* egress = nullptr;
  bool passed() const { return droppedBy == nullptr; }
};

}  // namespace Agent
