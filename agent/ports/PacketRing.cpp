#include <agent/ports/Offload.h>
#include <agent/ports/PacketRing.h>
#include <agent/ports/SocketOption.h>
#include <linux/if_ether.h>
#include <sys/mman.h>

#include <algorithm>
#include <atomic>
#include <bit>
#include <utility>

namespace Agent {

namespace {

constexpr size_t ringSlots = 4096;
constexpr size_t largestSlot =
    16384;  // enough for frames of 9,000 octets; larger ones are read from the socket
constexpr size_t blockSize = 1 << 18;
constexpr size_t tag = 4;  // room to put the tag back in that the kernel took off
// What lies between the start of a slot and the frame: the kernel's headers and the padding behind them.
constexpr size_t slotHeaders = TPACKET2_HDRLEN + sizeof(Offload) + 64;

/// The status word of a slot: kernel and agent hand the slot to each other by writing it.
std::atomic_ref<uint32_t> statusOf(uint8_t* slot) {
  return std::atomic_ref<uint32_t>(reinterpret_cast<tpacket2_hdr*>(slot)->tp_status);
}

}  // namespace

PacketRing::~PacketRing() { close(); }

bool PacketRing::open(int socket, uint32_t mtu) {
  slotSize_ = std::min(std::bit_ceil(slotHeaders + ETH_HLEN + tag + mtu), largestSlot);
  slots_ = ringSlots;
  tpacket_req request{};
  request.tp_block_size = blockSize;
  request.tp_frame_size = static_cast<unsigned>(slotSize_);
  request.tp_block_nr = static_cast<unsigned>(slots_ * slotSize_ / blockSize);
  request.tp_frame_nr = static_cast<unsigned>(slots_);
  if (!packetOptionIs(socket, PACKET_RX_RING, request)) return false;
  void* memory = mmap(nullptr, slots_ * slotSize_, PROT_READ | PROT_WRITE, MAP_SHARED, socket, 0);
  if (memory == MAP_FAILED) return false;
  base_ = static_cast<uint8_t*>(memory);
  return true;
}

void PacketRing::close() {
  if (base_) munmap(std::exchange(base_, nullptr), slots_ * slotSize_);
}

bool PacketRing::isFilled(uint8_t* slot) {
  return (statusOf(slot).load(std::memory_order_acquire) & TP_STATUS_USER) != 0;
}

void PacketRing::giveBack(uint8_t* slot) {
  statusOf(slot).store(TP_STATUS_KERNEL, std::memory_order_release);
}

}  // namespace Agent
