#include <agent/core/Output.h>
#include <agent/ports/PacketDevice.h>
#include <agent/ports/SocketOption.h>
#include <fmt/format.h>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

constexpr uint32_t tagSize = 4;
constexpr uint32_t addresses = 12;                 // octets of the two addresses before the tag
constexpr size_t largestFrame = (1 << 18) + 1024;  // four times the largest segment of IPv4
constexpr size_t lookAhead = 3;
constexpr size_t cacheLine = 64;
constexpr int socketBuffer = 4 << 20;

sockaddr_ll addressOf(int index) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = index;
  return address;
}

// Which frames a socket receives.
constexpr sock_filter noFrames[] = {{BPF_RET | BPF_K, 0, 0, 0}};
constexpr sock_filter incomingFrames[] = {
    {BPF_LD | BPF_B | BPF_ABS, 0, 0, static_cast<uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE)},
    {BPF_JMP | BPF_JEQ | BPF_K, 1, 0, PACKET_OUTGOING},
    {BPF_RET | BPF_K, 0, 0, UINT32_MAX},
    {BPF_RET | BPF_K, 0, 0, 0}};

template <size_t n>
bool filterIs(int socket, const sock_filter (&code)[n]) {
  const sock_fprog program{n, const_cast<sock_filter*>(code)};
  return optionIs(socket, SOL_SOCKET, SO_ATTACH_FILTER, program);
}

/// Puts the tag back in that the kernel took off. There is room for it before the frame.
uint8_t* withTag(uint8_t* frame, const tpacket2_hdr& header) {
  uint8_t* tagged = frame - tagSize;
  std::memmove(tagged, frame, addresses);
  const uint16_t type =
      (header.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0 ? header.tp_vlan_tpid : uint16_t{ETH_P_8021Q};
  const uint16_t tag[2] = {htons(type), htons(header.tp_vlan_tci)};
  std::memcpy(tagged + addresses, tag, sizeof tag);
  return tagged;
}

}  // namespace

PacketDevice::PacketDevice(std::string device, bool together)
    : device_(std::move(device)), together_(together), messages_{} {
  for (size_t i = 0; i < burst; ++i) {
    messages_[i].msg_hdr.msg_iov = &parts_[i];
    messages_[i].msg_hdr.msg_iovlen = 1;
  }
}

PacketDevice::~PacketDevice() = default;

std::optional<std::string> PacketDevice::attach(const Link& link) {
  if (isOpen() && link.index != index_) detach();
  if (isOpen()) return std::nullopt;
  auto wrong = openOn(link);
  // The kernel may tell of a device that is just going away. Its next message says that the device is gone.
  if (wrong && errno == ENODEV) return std::nullopt;
  return wrong;
}

void PacketDevice::detach() {
  if (isOpen()) dropsAdd();
  ring_.close();
  socket_.reset();
}

std::string PacketDevice::failed(std::string_view doing) {
  const int error = errno;
  detach();
  errno = error;
  return failureOf(fmt::format("{}: {}", device_, doing));
}

std::optional<std::string> PacketDevice::openOn(const Link& link) {
  // Without a protocol nothing is received before the socket is bound to its interface.
  socket_ = Descriptor(socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!isOpen()) return failed("no packet socket");
  constexpr int on = 1;
  constexpr int version = TPACKET_V2;
  if (!packetOptionIs(fd(), PACKET_VERSION, version) || !packetOptionIs(fd(), PACKET_VNET_HDR, on) ||
      !packetOptionIs(fd(), PACKET_IGNORE_OUTGOING, on) || !packetOptionIs(fd(), PACKET_COPY_THRESH, on)) {
    return failed("no options of a packet socket");
  }
  // A process with the right to do so may have more than the usual limit.
  for (const auto& [force, plain] : {std::pair(SO_RCVBUFFORCE, SO_RCVBUF), {SO_SNDBUFFORCE, SO_SNDBUF}}) {
    if (!optionIs(fd(), SOL_SOCKET, force, socketBuffer)) optionIs(fd(), SOL_SOCKET, plain, socketBuffer);
  }
  if (!ring_.open(fd(), link.mtu)) return failed("no receive ring");
  next_ = received_ = 0;

  packet_mreq membership{};
  membership.mr_ifindex = link.index;
  membership.mr_type = PACKET_MR_PROMISC;
  if (!packetOptionIs(fd(), PACKET_ADD_MEMBERSHIP, membership)) return failed("not promiscuous");
  // A socket on its own receives everything: it receives nothing until it has its share.
  if (together_ && !filterIs(fd(), noFrames)) return failed("no filter");
  const sockaddr_ll address = addressOf(link.index);
  if (bind(fd(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0)
    return failed("not bound");
  index_ = link.index;
  return together_ ? join(link.index) : std::nullopt;
}

std::optional<std::string> PacketDevice::join(int index) {
  // One agent has an interface, so that the number of the interface is that of the group, too.
  const auto group = static_cast<uint16_t>(index);
  constexpr uint16_t byFlow = PACKET_FANOUT_HASH;
  // Kernels that do not know it receive what is sent by the interface, too; the filter leaves that out.
  constexpr uint16_t ignoreOutgoing = 0x4000;
  bool joined = false;
  for (const uint16_t how : {uint16_t{byFlow | ignoreOutgoing}, byFlow}) {
    const int fanout = group | how << 16;
    joined = joined || packetOptionIs(fd(), PACKET_FANOUT, fanout);
  }
  // What comes to this one until its filter is open, microseconds, is lost: a filter that was open before
  // would have it take what the others have, too.
  if (!joined) return failed("not in the group of those that have the interface together");
  if (!filterIs(fd(), incomingFrames)) return failed("no filter");
  return std::nullopt;
}

PortDevice::Received PacketDevice::receive(Frames frames) {
  Received received;
  if (!isOpen()) return received;
  while (received_ < burst) {
    uint8_t* slot = ring_.slot(next_ + received_);
    if (!PacketRing::isFilled(slot)) return received;
    ++received_;
    // The kernel has written the frames on another processor. They are fetched while earlier ones are
    // looked at.
    const uint8_t* soon = ring_.slot(next_ + received_ + lookAhead);
    __builtin_prefetch(soon);
    __builtin_prefetch(soon + cacheLine);
    const bool large = (reinterpret_cast<tpacket2_hdr*>(slot)->tp_status & TP_STATUS_COPY) != 0;
    if (const auto frame = frameIn(slot))
      frames[received.count++] = *frame;
    else
      ++counts_.rxTooLarge;
    if (large) break;  // there is room for a single large frame
  }
  received.more = true;
  return received;
}

std::optional<LiveFrame> PacketDevice::frameIn(uint8_t* slot) {
  const auto& header = *reinterpret_cast<const tpacket2_hdr*>(slot);
  size_t size = header.tp_len;
  uint8_t* bytes = slot + header.tp_mac;
  if ((header.tp_status & TP_STATUS_COPY) != 0) {
    bytes = readLarge(size);
    if (!bytes) return std::nullopt;
  } else if (header.tp_snaplen < size) {
    return std::nullopt;
  }
  Offload offload;
  std::memcpy(&offload, bytes - sizeof offload, sizeof offload);
  if ((header.tp_status & TP_STATUS_VLAN_VALID) != 0 && size >= addresses) {
    bytes = withTag(bytes, header);
    size += tagSize;
    if ((offload.flags & Offload::needsChecksum) != 0) offload.checksumStart += tagSize;
    if (offload.headerLength != 0) offload.headerLength += tagSize;
  }
  return LiveFrame{{bytes, size}, offload};
}

uint8_t* PacketDevice::readLarge(size_t size) {
  large_.resize(largestFrame);
  // Room for a tag is left in front.
  const size_t room = large_.size() - tagSize;
  const ssize_t got = recv(fd(), &large_[tagSize], room, MSG_DONTWAIT);
  if (got != static_cast<ssize_t>(sizeof(Offload) + size)) return nullptr;
  return &large_[tagSize + sizeof(Offload)];
}

void PacketDevice::release() {
  if (!isOpen()) return;
  for (; received_ > 0; --received_, ++next_) PacketRing::giveBack(ring_.slot(next_));
}

size_t PacketDevice::send(std::span<const LiveFrame> frames, int& error) {
  const size_t count = std::min(frames.size(), burst);
  for (size_t i = 0; i < count; ++i) parts_[i] = frames[i].withOffload();
  for (;;) {
    const int sent = sendmmsg(fd(), messages_.data(), static_cast<unsigned>(count), MSG_DONTWAIT);
    if (sent >= 0) return static_cast<size_t>(sent);
    error = errno;
    if (error != EINTR) return 0;
  }
}

void PacketDevice::clearError() {
  int error = 0;
  socklen_t size = sizeof error;
  getsockopt(fd(), SOL_SOCKET, SO_ERROR, &error, &size);
}

void PacketDevice::stopReceiving() {
  if (isOpen()) filterIs(fd(), noFrames);
}

void PacketDevice::dropsAdd() const {
  tpacket_stats stats{};
  socklen_t size = sizeof stats;
  // The kernel sets its counts to zero when they are read.
  if (getsockopt(fd(), SOL_PACKET, PACKET_STATISTICS, &stats, &size) == 0) {
    counts_.drops += stats.tp_drops;
  }
}

DeviceCounts PacketDevice::counts() const {
  if (isOpen()) dropsAdd();
  return counts_;
}

}  // namespace Agent
