#pragma once

#include <cstdint>

namespace Agent {

/// Describes the work that the sender of a frame left to a device: to complete a checksum, to cut a large
/// segment. It is laid out as the kernel passes it with packet sockets and TAP devices: as struct
/// virtio_net_hdr in its oldest form, in the byte order of the host. (The kernel's own header does not
/// compile as C++.)
struct Offload {
  static constexpr uint8_t needsChecksum = 1;

  static constexpr uint8_t notCut = 0;
  static constexpr uint8_t cutUdp = 5;      ///< into datagrams
  static constexpr uint8_t withEcn = 0x80;  ///< beside one of the others

  uint8_t flags;
  uint8_t cut;              ///< how the frame is to be cut; any value but the ones above: into TCP segments
  uint16_t headerLength;    ///< octets of all headers, as a hint
  uint16_t segmentLength;   ///< octets behind the headers in each segment
  uint16_t checksumStart;   ///< offset in the frame of the header behind IP; also set when `cut` is
  uint16_t checksumOffset;  ///< of the checksum, from there
};
static_assert(sizeof(Offload) == 10);

}  // namespace Agent
