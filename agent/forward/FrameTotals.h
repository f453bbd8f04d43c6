#pragma once

#include <agent/forward/Port.h>

#include <cstdint>

namespace Agent {

/// Received frames of all ports, and what became of them. Mirrored copies do not count.
struct FrameTotals {
  uint64_t frames = 0;
  uint64_t bytes = 0;  ///< on the wire
  uint64_t passed = 0;
  uint64_t dropped = 0;

  void add(const Verdict& verdict, uint32_t octets) {
    ++frames;
    bytes += octets;
    ++(verdict.passed() ? passed : dropped);
  }
  /// A burst, of which so many have passed.
  void add(uint64_t count, uint64_t octets, uint64_t thosePassed) {
    frames += count;
    bytes += octets;
    passed += thosePassed;
    dropped += count - thosePassed;
  }
};

}  // namespace Agent
