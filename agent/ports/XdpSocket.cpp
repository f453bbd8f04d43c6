#include <agent/ports/SocketOption.h>
#include <agent/ports/XdpSocket.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

/// How often the kernel is asked to go on sending before the loop does something else first.
constexpr int pushes = 8;
/// How many frames the kernel may send when it is asked once (XDP_MAX_TX_SKB_BUDGET). Kernels that do not
/// know the option send 32.
constexpr int mostAPush = 9;

}  // namespace

XdpSocket::~XdpSocket() {
  socket_.reset();
  for (size_t chunk = 0; chunk < atKernel_.size(); ++chunk) {
    for (; atKernel_[chunk] > 0; --atKernel_[chunk]) memory_->drop(static_cast<uint32_t>(chunk));
  }
}

std::string XdpSocket::open(int device, uint32_t queue, XdpMode mode) {
  socket_ = Descriptor(socket(AF_XDP, SOCK_RAW | SOCK_CLOEXEC, 0));
  if (!socket_) return "no AF_XDP socket";
  if (!memory_->open() || !registerMemory()) return "no memory for frames";
  if (!openRings()) return "no rings";
  atKernel_.assign(memory_->size() / XdpMemory::chunkSize, 0);
  constexpr uint32_t all = XdpRing<xdp_desc>::size;
  optionIs(fd(), SOL_XDP, mostAPush, all);
  refill();
  sockaddr_xdp address{};
  address.sxdp_family = AF_XDP;
  address.sxdp_ifindex = static_cast<uint32_t>(device);
  address.sxdp_queue_id = queue;
  address.sxdp_flags = XDP_USE_NEED_WAKEUP;
  if (mode == XdpMode::copy) address.sxdp_flags |= XDP_COPY;
  if (mode == XdpMode::zerocopy) address.sxdp_flags |= XDP_ZEROCOPY;
  if (bind(fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return mode == XdpMode::zerocopy ? "the driver does not do without a copy" : "not bound";
  xdp_options options{};
  socklen_t size = sizeof options;
  zeroCopy_ = getsockopt(fd(), SOL_XDP, XDP_OPTIONS, &options, &size) == 0 &&
              (options.flags & XDP_OPTIONS_ZEROCOPY) != 0;
  return {};
}

bool XdpSocket::registerMemory() {
  xdp_umem_reg memory{};
  memory.addr = reinterpret_cast<uint64_t>(memory_->base());
  memory.len = memory_->size();
  memory.chunk_size = XdpMemory::chunkSize;
  return optionIs(fd(), SOL_XDP, XDP_UMEM_REG, memory);
}

bool XdpSocket::openRings() {
  constexpr uint32_t size = XdpRing<uint64_t>::size;
  for (const int ring : {XDP_UMEM_FILL_RING, XDP_UMEM_COMPLETION_RING, XDP_RX_RING, XDP_TX_RING}) {
    if (!optionIs(fd(), SOL_XDP, ring, size)) return false;
  }
  xdp_mmap_offsets offsets{};
  socklen_t length = sizeof offsets;
  return getsockopt(fd(), SOL_XDP, XDP_MMAP_OFFSETS, &offsets, &length) == 0 &&
         fill_.open(fd(), offsets.fr, XDP_UMEM_PGOFF_FILL_RING) &&
         completion_.open(fd(), offsets.cr, XDP_UMEM_PGOFF_COMPLETION_RING) &&
         rx_.open(fd(), offsets.rx, XDP_PGOFF_RX_RING) && tx_.open(fd(), offsets.tx, XDP_PGOFF_TX_RING);
}

void XdpSocket::refill() {
  uint32_t count = 0;
  for (const uint32_t room = fill_.room(); count < room; ++count) {
    const auto chunk = memory_->take();
    if (!chunk) break;
    const uint64_t address = uint64_t{*chunk} * XdpMemory::chunkSize;
    handOver(address);
    fill_.roomAt(count) = address;
  }
  if (count > 0) fill_.put(count);
  // This only wakes a driver that has gone to sleep for want of chunks.
  if (count > 0 && fill_.wantsToBeTold()) recvfrom(fd(), nullptr, 0, MSG_DONTWAIT, nullptr, nullptr);
}

size_t XdpSocket::receive(std::span<LiveFrame> frames) {
  const auto count = static_cast<uint32_t>(std::min<size_t>(rx_.filled(), frames.size()));
  for (uint32_t i = 0; i < count; ++i) {
    const xdp_desc& got = rx_.filledAt(i);
    // Written on another processor: all are on their way before the first one is looked at.
    __builtin_prefetch(memory_->base() + got.addr);
    handBack(got.addr);
    const uint32_t chunk = XdpMemory::chunkOf(got.addr);
    frames[i] = {{memory_->base() + got.addr, got.len},
                 {},
                 memory_.get(),
                 memory_->base() + size_t{chunk} * XdpMemory::chunkSize};
  }
  if (count > 0) rx_.taken(count);
  // Without a place to receive into, nothing comes by which chunks would be asked for again.
  if (count > 0 || fill_.isEmpty()) refill();
  return count;
}

void XdpSocket::reap() {
  const uint32_t count = completion_.filled();
  for (uint32_t i = 0; i < count; ++i) {
    const uint64_t address = completion_.filledAt(i);
    handBack(address);
    memory_->drop(XdpMemory::chunkOf(address));
  }
  if (count > 0) completion_.taken(count);
}

size_t XdpSocket::send(std::span<const LiveFrame> frames) {
  reap();
  uint32_t count = 0;
  for (const uint32_t room = tx_.room(); count < room && count < frames.size(); ++count) {
    const LiveFrame& frame = frames[count];
    uint64_t address;
    if (frame.home == memory_.get()) {
      address = static_cast<uint64_t>(frame.bytes.data() - memory_->base());
      memory_->use(XdpMemory::chunkOf(address));
    } else {
      const auto chunk = memory_->take();
      if (!chunk) break;
      address = uint64_t{*chunk} * XdpMemory::chunkSize;
      std::memcpy(memory_->base() + address, frame.bytes.data(), frame.bytes.size());
    }
    handOver(address);
    tx_.roomAt(count) = {address, static_cast<uint32_t>(frame.bytes.size()), 0};
  }
  if (count > 0) tx_.put(count);
  return count;
}

int XdpSocket::push() {
  for (int i = 0; i < pushes && isPushing() && tx_.wantsToBeTold(); ++i) {
    if (sendto(fd(), nullptr, 0, MSG_DONTWAIT, nullptr, 0) >= 0) continue;
    // The kernel sends so many frames at a time.
    if (errno != EAGAIN && errno != EBUSY && errno != ENOBUFS && errno != EINTR) return errno;
  }
  return 0;
}

DeviceCounts XdpSocket::counts() const {
  xdp_statistics statistics{};
  socklen_t size = sizeof statistics;
  if (getsockopt(fd(), SOL_XDP, XDP_STATISTICS, &statistics, &size) != 0) return {};
  // What does not fit into a chunk is all that a bound socket drops for another reason than want of room.
  return {.drops = statistics.rx_ring_full + statistics.rx_fill_ring_empty_descs,
          .rxTooLarge = statistics.rx_dropped,
          .rxErrors = statistics.rx_invalid_descs};
}

}  // namespace Agent
