#pragma once

#include <agent/core/TerminalLine.h>

#include <cstdint>

namespace Agent {

/// Says how far a long replay has come.
class Progress {
 public:
  /// Adds the size of a file that will be read.
  void sizeAdd(uint64_t octets) { size_ += octets; }
  bool due(uint64_t frames) const { return line_.isOnTerminal() && frames % 65536 == 0; }
  void show(uint64_t frames, uint64_t octetsRead);
  /// Clears the line.
  void done() { line_.clear(); }

 private:
  TerminalLine line_;
  uint64_t size_ = 0;
};

}  // namespace Agent
