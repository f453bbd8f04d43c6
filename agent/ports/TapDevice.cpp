#include <agent/core/Output.h>
#include <agent/ports/TapDevice.h>
#include <fcntl.h>
#include <fmt/format.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

// The host hands over nothing larger: TUNSETOFFLOAD with 0 has it cut large segments itself.
constexpr size_t largestOfTap = 65536 + 64;
constexpr size_t receiveRoom = 2 * largestOfTap;
constexpr int usualQueue = 1000;  // frames

}  // namespace

std::optional<std::string> TapDevice::make() {
  received_.resize(receiveRoom);
  tap_ = Descriptor(::open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!isOpen()) return failed("/dev/net/tun");
  const int tap = tap_.get();
  ifreq request{};
  if (device_.size() >= sizeof request.ifr_name) return (errno = ENAMETOOLONG, failed("no TAP device"));
  std::memcpy(request.ifr_name, device_.data(), device_.size());
  request.ifr_flags = IFF_TAP | IFF_NO_PI | IFF_VNET_HDR;
  if (queue_ != Queue::only) request.ifr_flags |= IFF_MULTI_QUEUE;
  if (ioctl(tap, TUNSETIFF, &request) != 0 || ioctl(tap, TUNSETOFFLOAD, 0) != 0) {
    return failed("no TAP device");
  }
  ifreq detach{};
  detach.ifr_flags = IFF_DETACH_QUEUE;
  if (queue_ == Queue::none && ioctl(tap, TUNSETQUEUE, &detach) != 0) return failed("no queue is given up");
  const Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (ioctl(control.get(), SIOCGIFFLAGS, &request) != 0) return failed("no flags of the device");
  if ((request.ifr_flags & IFF_UP) == 0) {
    request.ifr_flags |= IFF_UP;
    if (ioctl(control.get(), SIOCSIFFLAGS, &request) != 0) return failed("not up");
  }
  return std::nullopt;
}

std::string TapDevice::failed(std::string_view doing) {
  const int error = errno;
  detach();
  errno = error;
  return failureOf(fmt::format("{}: {}", device_, doing));
}

PortDevice::Received TapDevice::receive(Frames frames) {
  Received received;
  if (!isOpen() || queue_ == Queue::none) return received;
  for (size_t used = 0; received.count < burst && receiveRoom - used >= largestOfTap;) {
    if (leftToDrain_ && (*leftToDrain_)-- <= 0) return received;
    const ssize_t got = read(fd(), &received_[used], receiveRoom - used);
    if (got < static_cast<ssize_t>(sizeof(Offload))) return received;
    LiveFrame& frame = frames[received.count++];
    frame = {{&received_[used + sizeof(Offload)], static_cast<size_t>(got) - sizeof(Offload)}};
    std::memcpy(&frame.offload, &received_[used], sizeof(Offload));
    used += static_cast<size_t>(got);
  }
  received.more = true;
  return received;
}

void TapDevice::stopReceiving() {
  if (leftToDrain_ || !isOpen()) return;
  // The kernel goes on: what has arrived is not more than its queue can have.
  ifreq request{};
  std::memcpy(request.ifr_name, device_.data(), std::min(device_.size(), sizeof request.ifr_name - 1));
  const Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const bool known = ioctl(control.get(), SIOCGIFTXQLEN, &request) == 0;
  leftToDrain_ = known ? request.ifr_qlen : usualQueue;
}

size_t TapDevice::send(std::span<const LiveFrame> frames, int& error) {
  for (size_t sent = 0; sent < frames.size(); ++sent) {
    const iovec piece = frames[sent].withOffload();
    if (write(fd(), piece.iov_base, piece.iov_len) >= 0) continue;
    error = errno;
    return sent;
  }
  return frames.size();
}

}  // namespace Agent
