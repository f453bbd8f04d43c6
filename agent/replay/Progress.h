#pragma once

#include <cstdint>

namespace Agent {

/// A line that says how far a long replay has come. Shown only when standard error is a terminal.
class Progress {
 public:
  Progress();

  /// Adds the size of a file that will be read.
  void sizeAdd(uint64_t octets) { size_ += octets; }
  bool due(uint64_t frames) const { return onTerminal_ && frames % 65536 == 0; }
  void show(uint64_t frames, uint64_t octetsRead);
  /// Clears the line.
  void done();

 private:
  const bool onTerminal_;
  bool shown_ = false;
  uint64_t size_ = 0;
};

}  // namespace Agent
