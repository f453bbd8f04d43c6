#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The memory of all frames of the XDP ports: chunks of one size, which every socket has registered. So a
/// frame goes from one port to another by the number of its chunk. A chunk belongs to the kernel, to a burst,
/// or to the queues that it is sent by, and is free again when none of them has it any more.
class XdpMemory {
 public:
  static constexpr uint32_t chunkSize = 4096;
  /// How much of a chunk a frame can have: the kernel keeps room in front of it.
  static constexpr uint32_t largestFrame = chunkSize - 256;

  /// The one of the process.
  static std::shared_ptr<XdpMemory> shared();

  XdpMemory() = default;
  ~XdpMemory();
  XdpMemory(const XdpMemory&) = delete;
  XdpMemory& operator=(const XdpMemory&) = delete;

  /// So many chunks more will be needed; before open().
  void chunksAdd(size_t chunks) { wanted_ += chunks; }
  /// Has the memory, if it has not yet. False when there is none (errno).
  bool open();

  uint8_t* base() const { return base_; }
  size_t size() const { return uses_.size() * chunkSize; }
  static uint32_t chunkOf(uint64_t address) { return static_cast<uint32_t>(address / chunkSize); }

  /// Takes a free chunk; nothing when there is none.
  std::optional<uint32_t> take() {
    if (free_.empty()) return std::nullopt;
    const uint32_t chunk = free_.back();
    free_.pop_back();
    uses_[chunk] = 1;
    return chunk;
  }
  void use(uint32_t chunk) { ++uses_[chunk]; }
  void drop(uint32_t chunk) {
    if (--uses_[chunk] == 0) free_.push_back(chunk);
  }
  size_t free() const { return free_.size(); }

 private:
  size_t wanted_ = 0;
  uint8_t* base_ = nullptr;
  std::vector<uint16_t> uses_;
  std::vector<uint32_t> free_;  // has room for all
};

}  // namespace Agent
