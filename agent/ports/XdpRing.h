#pragma once

#include <linux/if_xdp.h>
#include <sys/mman.h>

#include <atomic>
#include <cstdint>

namespace Agent {

/// One of the rings that an AF_XDP socket shares with the kernel (Linux:
/// Documentation/networking/af_xdp.rst). One side puts entries in, the other one takes them out. Numbers of
/// entries go on counting while places come round.
template <class Entry>
class XdpRing {
 public:
  static constexpr uint32_t size = 2048;  // a power of two

  XdpRing() = default;
  ~XdpRing() {
    if (memory_ != MAP_FAILED) munmap(memory_, mapped_);
  }
  XdpRing(const XdpRing&) = delete;
  XdpRing& operator=(const XdpRing&) = delete;

  bool open(int socket, const xdp_ring_offset& offsets, uint64_t page) {
    mapped_ = offsets.desc + size * sizeof(Entry);
    memory_ = mmap(nullptr, mapped_, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_POPULATE, socket,
                   static_cast<off_t>(page));
    if (memory_ == MAP_FAILED) return false;
    auto* base = static_cast<uint8_t*>(memory_);
    producer_ = reinterpret_cast<uint32_t*>(base + offsets.producer);
    consumer_ = reinterpret_cast<uint32_t*>(base + offsets.consumer);
    flags_ = reinterpret_cast<uint32_t*>(base + offsets.flags);
    entries_ = reinterpret_cast<Entry*>(base + offsets.desc);
    return true;
  }

  // Of a ring that the kernel puts entries into:
  uint32_t filled() const { return std::atomic_ref(*producer_).load(std::memory_order_acquire) - *consumer_; }
  const Entry& filledAt(uint32_t i) const { return entries_[(*consumer_ + i) & (size - 1)]; }
  void taken(uint32_t count) {
    std::atomic_ref(*consumer_).store(*consumer_ + count, std::memory_order_release);
  }

  // Of a ring that it takes entries from:
  uint32_t room() const {
    return size - (*producer_ - std::atomic_ref(*consumer_).load(std::memory_order_acquire));
  }
  bool isEmpty() const { return room() == size; }
  Entry& roomAt(uint32_t i) { return entries_[(*producer_ + i) & (size - 1)]; }
  void put(uint32_t count) {
    std::atomic_ref(*producer_).store(*producer_ + count, std::memory_order_release);
  }
  /// Whether the kernel wants to be told when there are new entries.
  bool wantsToBeTold() const {
    return (std::atomic_ref(*flags_).load(std::memory_order_relaxed) & XDP_RING_NEED_WAKEUP) != 0;
  }

 private:
  void* memory_ = MAP_FAILED;
  size_t mapped_ = 0;
  uint32_t* producer_ = nullptr;
  uint32_t* consumer_ = nullptr;
  uint32_t* flags_ = nullptr;
  Entry* entries_ = nullptr;
};

}  // namespace Agent
