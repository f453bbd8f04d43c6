#include <agent/core/Terminal.h>
#include <agent/replay/Progress.h>
#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

namespace Agent {

Progress::Progress() : onTerminal_(isScreen(STDERR_FILENO)) {}

void Progress::show(uint64_t frames, uint64_t octetsRead) {
  const uint64_t percent = size_ ? std::min<uint64_t>(100, octetsRead * 100 / size_) : 0;
  fmt::print(stderr, "\r{:3}% {} frames", percent, frames);
  std::fflush(stderr);
  shown_ = true;
}

void Progress::done() {
  if (shown_) fmt::print(stderr, "\r\x1b[K");
  shown_ = false;
}

}  // namespace Agent
