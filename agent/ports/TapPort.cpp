#include <agent/ports/TapPort.h>
#include <fcntl.h>
#include <linux/if_tun.h>
#include <net/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

namespace Agent {

namespace {

// The host hands over nothing larger: TUNSETOFFLOAD with 0 has it cut large segments itself.
constexpr size_t largestOfTap = 65536 + 64;
constexpr size_t receiveRoom = 2 * largestOfTap;

}  // namespace

std::optional<std::string> TapPort::open() {
  received_.resize(receiveRoom);
  descriptor_ = Descriptor(::open("/dev/net/tun", O_RDWR | O_CLOEXEC | O_NONBLOCK));
  if (!isOpen()) return failed("/dev/net/tun");
  ifreq request{};
  if (device_.size() >= sizeof request.ifr_name) return (errno = ENAMETOOLONG, failed("no TAP device"));
  std::memcpy(request.ifr_name, device_.data(), device_.size());
  request.ifr_flags = IFF_TAP | IFF_NO_PI | IFF_VNET_HDR;
  if (ioctl(fd(), TUNSETIFF, &request) != 0 || ioctl(fd(), TUNSETOFFLOAD, 0) != 0) {
    return failed("no TAP device");
  }
  const Descriptor control(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  if (ioctl(control.get(), SIOCGIFFLAGS, &request) != 0) return failed("no flags of the device");
  if ((request.ifr_flags & IFF_UP) == 0) {
    request.ifr_flags |= IFF_UP;
    if (ioctl(control.get(), SIOCSIFFLAGS, &request) != 0) return failed("not up");
  }
  return std::nullopt;
}

bool TapPort::receive(FrameReceiver& to) {
  size_t used = 0;
  for (size_t count = 0; isOpen() && !stopped_ && count < burst && receiveRoom - used >= largestOfTap;
       ++count) {
    const ssize_t got = read(fd(), &received_[used], receiveRoom - used);
    if (got < static_cast<ssize_t>(sizeof(Offload))) return false;
    const size_t size = static_cast<size_t>(got) - sizeof(Offload);
    LiveFrame frame{{&received_[used + sizeof(Offload)], size}};
    std::memcpy(&frame.offload, &received_[used], sizeof(Offload));
    used += static_cast<size_t>(got);
    countReceived(frame);
    to.receive(port_, frame);
  }
  return isOpen() && !stopped_;
}

void TapPort::send(const Nimnet::Pkt&) {
  if (!isOpen()) return countUnsent(ENODEV);
  // The host itself would take frames that are larger than a wire with this MTU can carry.
  constexpr uint32_t ethernet = 18;
  const bool whole = inHand_.offload.cut == Offload::notCut;
  if (whole ? inHand_.bytes.size() > state_.mtu + ethernet : !segmentsFit(inHand_, state_.mtu)) {
    return countUnsent(EMSGSIZE);
  }
  const iovec piece = inHand_.withOffload();
  if (write(fd(), piece.iov_base, piece.iov_len) < 0) return countUnsent(errno);
  countSent(inHand_);
}

}  // namespace Agent
