#include <agent/core/Output.h>
#include <agent/ports/CaptureDevice.h>
#include <agent/ports/Captures.h>
#include <fmt/format.h>

#include <algorithm>

namespace Agent {

namespace {

/// Frames begin there in memory, so that the ones that come in a burst do not share lines.
constexpr size_t alignedTo = 64;

}  // namespace

std::optional<std::string> CaptureDevice::make() {
  // A file that was cut off is tried again.
  bytes_.clear();
  counts_ = {};
  CaptureReader reader(path_);
  std::vector<std::pair<size_t, size_t>> places;
  while (reader.next()) {
    if (reader.typeBefore()) return fmt::format("{}: a port receives Ethernet, this has none", path_);
    const auto frame = reader.frame();
    if (frame.size() < reader.wireLength()) {
      ++counts_.rxTooLarge;  // the rest was not captured: it cannot be sent
      continue;
    }
    const size_t at = (bytes_.size() + sizeof(Offload) + alignedTo - 1) / alignedTo * alignedTo;
    bytes_.resize(at + frame.size());
    std::copy(frame.begin(), frame.end(), &bytes_[at]);
    places.emplace_back(at, frame.size());
  }
  if (!reader.wrong().empty()) return reader.wrong();
  if (places.empty()) return fmt::format("{}: there is no whole frame in it", path_);
  for (size_t i = first_; i < places.size(); i += step_)
    frames_.push_back({{&bytes_[places[i].first], places[i].second}});
  if (frames_.empty()) left_ = 0;
  return std::nullopt;
}

std::optional<Link> CaptureDevice::look() {
  return Link{.name = path_, .index = 0, .up = true, .mtu = anySize};
}

PortDevice::Received CaptureDevice::receive(Frames frames) {
  Received received;
  if (!open_) return received;
  while (received.count < burst && left_ > 0) {
    const size_t count = std::min(burst - received.count, frames_.size() - next_);
    std::copy_n(&frames_[next_], count, &frames[received.count]);
    received.count += count;
    next_ += count;
    if (next_ < frames_.size()) continue;
    next_ = 0;
    if (left_ != endless) --left_;
  }
  received.more = left_ > 0;
  return received;
}

std::string CaptureDevice::how() const {
  if (left_ == endless) return "endless";
  return left_ == 0 ? "at its end" : fmt::format("{} more times", left_);
}

}  // namespace Agent
