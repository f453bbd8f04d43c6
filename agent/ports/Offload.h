#pragma once

#include <cstdint>

namespace Agent {

/// What a frame says of work that its sender left to a device: a checksum to be completed, a large segment to
/// be cut. Laid out as the kernel passes it with packet sockets and TAP devices (struct virtio_net_hdr in its
/// oldest form, whose header does not compile as C++; in the byte order of the host).
struct Offload {
  static constexpr uint8_t needsChecksum = 1;

  static constexpr uint8_t notCut = 0;
  static constexpr uint8_t cutUdp = 5;      ///< into datagrams
  static constexpr uint8_t withEcn = 0x80;  ///< beside one of the others

  uint8_t flags;
  uint8_t cut;             ///< how the frame is to be cut; all but the two above: as TCP segments
  uint16_t headerLength;   ///< octets to have in one piece, a hint
  uint16_t segmentLength;  ///< octets behind all headers of each piece
  uint16_t checksumStart;  ///< offset in the frame of the header behind IP; set when `cut` is
  uint16_t checksumOffset;
};
static_assert(sizeof(Offload) == 10);

}  // namespace Agent
