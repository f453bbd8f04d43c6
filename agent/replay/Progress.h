#pragma once

#include <cstdint>

namespace Agent {

/// One line on a terminal's standard error that says how far a long replay has come; nothing elsewhere.
class Progress {
 public:
  Progress();

  /// Octets of one more file that is to be read.
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
