#pragma once

#include <agent/ports/Napis.h>
#include <agent/ports/PortDevice.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// Has frames gather at a device for some microseconds before the kernel hands them on together: the first
/// one behind a rest goes on at once, and those that come within the pause behind it wait for its end. On a
/// veth device each frame would otherwise be handed on alone, on the processor of who sends it. Cards have
/// the like for their interrupts (ethtool -C).
///
/// It is a setting of the device (Napi), which goes with the XDP program where the driver has its NAPIs for
/// that alone. Elsewhere it is put back, and what a killed process has left is known by the mark on it.
class FrameGathering {
 public:
  /// Microseconds; 0: they do not gather. Nothing: as is best for the device, and what somebody else has set
  /// there is left alone.
  using Wanted = std::optional<uint32_t>;
  static constexpr uint32_t most = 1000;
  /// On a veth device. It has room for 256 frames, of five million a second here.
  static constexpr uint32_t usual = 50;

  explicit FrameGathering(Wanted wanted) : wanted_(wanted) {}
  ~FrameGathering() { detach(); }
  FrameGathering(const FrameGathering&) = delete;
  FrameGathering& operator=(const FrameGathering&) = delete;

  /// The device is open, or has changed: one that was off has new NAPIs. Returns what could not be done
  /// (errno); empty when it is done, or nobody has asked for it.
  std::string attach(const Link& link);
  /// Puts back what was there, except where somebody else has set something since.
  void detach();
  /// ", gathers 50 us"; empty when they do not.
  std::string how() const;

 private:
  bool gather(const Link& link);
  /// Has a NAPI as it is wanted; false if it cannot be had (errno).
  bool gatherAt(const Napi& napi, uint32_t microseconds);
  /// As a NAPI was that is set; null for others.
  const Napi* knownBefore(const Napi& napi) const;

  const Wanted wanted_;
  Napis napis_;
  int device_ = 0;
  std::vector<Napi> before_;  // as those were that are set
  uint32_t inForce_ = 0;
};

}  // namespace Agent
