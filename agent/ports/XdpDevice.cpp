#include <agent/core/Output.h>
#include <agent/ports/Ethtool.h>
#include <agent/ports/SocketOption.h>
#include <agent/ports/XdpDevice.h>
#include <fmt/format.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>

namespace Agent {

namespace {

constexpr uint32_t largestMtu = XdpMemory::largestFrame - besideMtu;

/// For so many queues there is memory when a port begins without its device: how many that will have is not
/// known.
constexpr uint32_t queuesOfMissing = 4;
/// Milliseconds between two tries to get a queue that another process has.
constexpr int pauseUntilFree = 20;

/// Of how many receive queues a device has frames.
uint32_t queueCountOf(const std::string& device) {
  ethtool_channels channels{};
  channels.cmd = ETHTOOL_GCHANNELS;
  if (!ethtoolAnswers(device, &channels)) return 1;
  return std::max(channels.rx_count + channels.combined_count, uint32_t{1});
}

void add(DeviceCounts& to, const DeviceCounts& counts) {
  to.drops += counts.drops;
  to.rxTooLarge += counts.rxTooLarge;
  to.rxErrors += counts.rxErrors;
}

}  // namespace

XdpDevice::XdpDevice(std::string device, Queues queues, XdpMode mode, FrameGathering::Wanted gather,
                     const std::optional<Share>& share)
    : device_(std::move(device)),
      wanted_(queues),
      mode_(mode),
      share_(share.value_or(Share())),
      memory_(XdpMemory::shared()),
      program_(share ? XdpProgram(share->sockets) : XdpProgram()),
      ownsDevice_(!share),
      gathering_(gather),
      received_{} {}

XdpProgram::Range XdpDevice::rangeOf(const std::string& device, const Queues& wanted) {
  return wanted.value_or(XdpProgram::Range{0, std::min(queueCountOf(device), XdpProgram::mostQueues) - 1});
}

XdpProgram::Range XdpDevice::closedOf(const Queues& wanted) {
  return wanted.value_or(XdpProgram::Range{0, XdpProgram::mostQueues - 1});
}

std::vector<uint32_t> XdpDevice::queues() const {
  std::vector<uint32_t> own;
  const auto [first, last] = rangeOf(device_, wanted_);
  for (uint32_t queue = first + share_.worker - 1; queue <= last; queue += share_.of) own.push_back(queue);
  return own;
}

std::optional<std::string> XdpDevice::make() {
  const bool known = wanted_ || if_nametoindex(device_.c_str()) != 0;
  const size_t share = (queuesOfMissing + share_.of - 1) / share_.of;
  mostQueues_ = std::max(queues().size(), known ? 1 : share);
  memory_->chunksAdd(mostQueues_ * XdpSocket::chunks + burst);
  if (const std::string what = program_.load(closedOf(wanted_)); !what.empty()) return failed(what);
  return std::nullopt;
}

std::string XdpDevice::failed(std::string_view doing) {
  const int error = errno;
  detach();
  errno = error;
  return failureOf(fmt::format("{}: {}", device_, doing));
}

std::optional<std::string> XdpDevice::whyNot(const std::vector<uint32_t>& queues) const {
  if (queues.empty())
    return fmt::format("{}: it has fewer queues than there are --workers (ethtool -L {})", device_, device_);
  if (wanted_) return std::nullopt;
  // The lists would not be asked for what comes by the others.
  if (const uint32_t all = queueCountOf(device_); all > XdpProgram::mostQueues)
    return fmt::format("{}: it has {} queues, and an xdp port takes {} (queue=0-{}, or ethtool -L {})",
                       device_, all, XdpProgram::mostQueues, XdpProgram::mostQueues - 1, device_);
  if (queues.size() > mostQueues_)
    return fmt::format(
        "{}: it has more queues than there is memory for since the start, {} (ethtool -L {}, or "
        "start again)",
        device_, mostQueues_ * share_.of, device_);
  return std::nullopt;
}

std::optional<std::string> XdpDevice::attach(const Link& link) {
  isOn_ = link.isOn;
  // Queues come and go (ethtool -L).
  if (isOpen() && (link.index != index_ || queues() != queues_)) detach();
  if (link.mtu > largestMtu) {
    detach();
    return fmt::format("{}: its MTU of {} is more than the {} that an xdp port takes", device_, link.mtu,
                       largestMtu);
  }
  std::string doing;
  if (!isOpen()) {
    if (auto wrong = whyNot(queues())) return wrong;
    doing = openOn(link);
    patience_ = 0;
  }
  if (doing.empty() && ownsDevice_) doing = gathering_.attach(link);
  if (doing.empty()) return std::nullopt;
  const std::string wrong = failed(doing);
  // The kernel may tell of a device that is just going away. Its next message says that the device is gone.
  if (errno == ENODEV) return std::nullopt;
  return wrong;
}

/// A process that was killed has its queues a moment longer; only a start waits for that, the loop does not.
std::string XdpDevice::openPatiently(std::unique_ptr<XdpSocket>& socket, int index, uint32_t queue) {
  for (;;) {
    socket = std::make_unique<XdpSocket>(memory_);
    std::string what = socket->open(index, queue, mode_);
    if (what.empty() || errno != EBUSY || patience_ == 0) return what;
    --patience_;
    poll(nullptr, 0, pauseUntilFree);
  }
}

std::string XdpDevice::openOn(const Link& link) {
  index_ = link.index;
  promiscuous_ = Descriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0));
  packet_mreq membership{};
  membership.mr_ifindex = link.index;
  membership.mr_type = PACKET_MR_PROMISC;
  if (!promiscuous_ || !packetOptionIs(promiscuous_.get(), PACKET_ADD_MEMBERSHIP, membership))
    return "not promiscuous";
  all_ = Descriptor(epoll_create1(EPOLL_CLOEXEC));
  if (!all_) return "no epoll descriptor";
  if (const std::string what = program_.attach(link.index); !what.empty()) return what;
  queues_ = queues();
  for (const uint32_t queue : queues_) {
    std::unique_ptr<XdpSocket> socket;
    if (const std::string what = openPatiently(socket, link.index, queue); !what.empty())
      return fmt::format("queue {}: {}", queue, what);
    epoll_event event{};
    event.events = EPOLLIN;
    epoll_ctl(all_.get(), EPOLL_CTL_ADD, socket->fd(), &event);
    if (!program_.socketIs(queue, socket->fd())) return fmt::format("queue {}: not in the map", queue);
    sockets_.push_back(std::move(socket));
  }
  return {};
}

void XdpDevice::detach() {
  release();
  gathering_.detach();
  program_.detach();
  for (const auto& socket : sockets_) add(before_, socket->counts());
  sockets_.clear();
  all_.reset();
  promiscuous_.reset();
}

PortDevice::Received XdpDevice::receive(Frames frames) {
  Received received;
  for (size_t asked = 0; asked < sockets_.size() && received.count < burst; ++asked) {
    XdpSocket& socket = *sockets_[nextSocket_ % sockets_.size()];
    ++nextSocket_;
    received.count += socket.receive(frames.subspan(received.count));
    // What the kernel did not send at once is sent in the next turn. A device that is down sends nothing: it
    // is not asked without end.
    if (socket.isPushing()) {
      const bool mayGoOn = socket.push() == 0;
      received.more = received.more || (mayGoOn && socket.isPushing());
    }
  }
  for (size_t i = 0; i < received.count; ++i)
    received_[i] = XdpMemory::chunkOf(
        static_cast<uint64_t>(static_cast<const uint8_t*>(frames[i].buffer) - memory_->base()));
  held_ = received.count;
  received.more = received.more || received.count > 0;
  return received;
}

void XdpDevice::release() {
  for (; held_ > 0; --held_) memory_->drop(received_[held_ - 1]);
}

size_t XdpDevice::send(std::span<const LiveFrame> frames, int& error) {
  // The kernel would take them, and send them when the device is on again.
  if (!isOn_) return (error = ENETDOWN, 0);
  // By the first queue: so frames of a flow stay in order, whatever queue they came by.
  XdpSocket& socket = *sockets_.front();
  const size_t sent = socket.send(frames);
  if (const int wrong = socket.push(); wrong != 0) error = wrong;
  if (sent < frames.size() && error == 0) error = ENOBUFS;
  return sent;
}

void XdpDevice::stopReceiving() {
  for (const uint32_t queue : queues_) program_.socketDel(queue);
}

DeviceCounts XdpDevice::counts() const {
  DeviceCounts counts = before_;
  for (const auto& socket : sockets_) add(counts, socket->counts());
  return counts;
}

std::string XdpDevice::how() const {
  if (sockets_.empty()) return {};
  const bool together = share_.of == 1 && queues_.size() > 1;
  const std::string numbers = together ? fmt::format("{}-{}", queues_.front(), queues_.back())
                                       : fmt::format("{}", fmt::join(queues_, " and "));
  return fmt::format("{}{}, queue{} {}{}", sockets_.front()->isZeroCopy() ? "zerocopy" : "copy",
                     program_.isInDriver() ? "" : ", generic", queues_.size() > 1 ? "s" : "", numbers,
                     gathering_.how());
}

}  // namespace Agent
