#pragma once

#include <agent/ports/LiveFrame.h>

#include <cstdint>
#include <memory>
#include <span>

namespace Agent {

/// Does the work that the sender of a frame left to a device, for devices that do not: completes a checksum,
/// cuts a super-frame into segments (RFC 9293 and RFC 768, over IPv4 and IPv6, behind any tags). The memory
/// for that is had once.
class Segments {
 public:
  Segments();

  /// The frames that a wire carries for this one, without any work left; valid until the next call. None when
  /// the work cannot be done: its headers are not what the offload says, or it would become too much.
  std::span<const LiveFrame> of(const LiveFrame& frame);

  static constexpr size_t mostSegments = 4096;

 private:
  static constexpr size_t room = size_t{1} << 20;

  std::span<const LiveFrame> completed(const LiveFrame& frame);
  std::span<const LiveFrame> cut(const LiveFrame& frame);

  const std::unique_ptr<uint8_t[]> bytes_;
  const std::unique_ptr<LiveFrame[]> frames_;
};

}  // namespace Agent
