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
};

}  // namespace Agent
