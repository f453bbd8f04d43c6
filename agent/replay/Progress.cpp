#include <agent/replay/Progress.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

void Progress::show(uint64_t frames, uint64_t octetsRead) {
  const uint64_t percent = size_ ? std::min<uint64_t>(100, octetsRead * 100 / size_) : 0;
  line_.show(fmt::format("{:3}% {} frames", percent, frames));
}

}  // namespace Agent
