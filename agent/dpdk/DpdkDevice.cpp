#include <agent/dpdk/DpdkDevice.h>
#include <agent/dpdk/Environment.h>
#include <agent/dpdk/StaleSocket.h>
#include <fmt/format.h>
#include <rte_bus_pci.h>
#include <rte_dev.h>
#include <rte_errno.h>
#include <rte_ethdev.h>
#include <rte_mbuf.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

namespace Agent {

namespace {

constexpr uint16_t descriptors = 1024;
/// What may wait in a queue when the port is to be closed: some drivers have more than the descriptors, such
/// as rings of the kernel.
constexpr uint32_t mostWaiting = 16384;
constexpr unsigned buffersAQueue = 16384;
constexpr unsigned cachedBuffers = 256;
constexpr unsigned looksBetween = 25;

/// The home of all frames that lie in buffers of this environment.
constexpr char home = 0;

/// Of "net_pcap0,rx_pcap=a.pcap" the name, and the rest.
std::pair<std::string, std::string> split(const std::string& device) {
  const size_t comma = std::min(device.find(','), device.size());
  return {device.substr(0, comma), device.substr(std::min(comma + 1, device.size()))};
}

int tellRemoved(uint16_t, rte_eth_event_type, void* flag, void*) {
  static_cast<std::atomic<bool>*>(flag)->store(true, std::memory_order_relaxed);
  return 0;
}

}  // namespace

std::unique_ptr<PortDevice> DpdkDevice::of(const PortWhat& what, const PortSetup& setup, std::string& wrong) {
  uint16_t queues = 1;
  if (const auto given = what.options.find("queues"); given != what.options.end()) {
    const uint64_t number = wholeNumber(given->second).value_or(0);
    if (number == 0 || number > mostQueues) {
      wrong = fmt::format("queues={} is no number from 1 to {}", given->second, mostQueues);
      return nullptr;
    }
    queues = static_cast<uint16_t>(number);
  }
  auto [name, arguments] = split(what.device);
  return std::make_unique<DpdkDevice>(std::move(name), std::move(arguments), queues, setup.dpdkArguments);
}

DpdkDevice::DpdkDevice(std::string name, std::string arguments, uint16_t queues, std::string environment)
    : name_(std::move(name)),
      arguments_(std::move(arguments)),
      environment_(std::move(environment)),
      queues_(queues),
      received_{} {}

// The pool stays: frames of it may wait in the queues of other devices.
DpdkDevice::~DpdkDevice() { detach(); }

std::optional<std::string> DpdkDevice::failed(std::string_view doing, int error) {
  return fmt::format("{}: {}: {}", name_, doing, rte_strerror(error < 0 ? -error : error));
}

std::optional<std::string> DpdkDevice::make() {
  // look() goes on to look for the device. Until it is there this is what keeps the port closed.
  if (pool_) return known_ ? std::nullopt : missing_;
  if (auto failed = Dpdk::begin(environment_)) return failed;
  const std::string pool =
      fmt::format("velo-{}", static_cast<const void*>(this)).substr(0, RTE_MEMPOOL_NAMESIZE - 1);
  pool_ = rte_pktmbuf_pool_create(pool.c_str(), buffersAQueue * queues_ - 1, cachedBuffers, 0,
                                  RTE_MBUF_DEFAULT_BUF_SIZE, SOCKET_ID_ANY);
  if (!pool_) return failed("no memory for frames (-m of --dpdk-args has it larger)", rte_errno);
  return missing_ = find();
}

std::optional<std::string> DpdkDevice::find() {
  if (rte_eth_dev_get_port_by_name(name_.c_str(), &port_) != 0) {
    const std::string device = arguments_.empty() ? name_ : name_ + "," + arguments_;
    takeStaleSocketAway(name_, arguments_);
    if (const int error = rte_dev_probe(device.c_str()); error != 0)
      return failed("no such device, or its driver refuses it", error);
    if (const int error = rte_eth_dev_get_port_by_name(name_.c_str(), &port_); error != 0)
      return failed("the device has no port", error);
  }
  rte_eth_dev_info info{};
  if (rte_eth_dev_info_get(port_, &info) == 0 && info.driver_name) driver_ = info.driver_name;
  removed_ = false;
  rte_eth_dev_callback_register(port_, RTE_ETH_EVENT_INTR_RMV, tellRemoved, &removed_);
  known_ = true;
  return std::nullopt;
}

std::optional<Link> DpdkDevice::look() {
  if (!pool_ || removed_.load(std::memory_order_relaxed)) return std::nullopt;
  // The environment tells of every device that it does not find.
  if (!known_ && (++looks_ % looksBetween != 0 || find())) return std::nullopt;
  Link link{.name = name_, .index = port_, .up = false, .mtu = 0};
  uint16_t mtu = 0;
  if (rte_eth_dev_get_mtu(port_, &mtu) != 0) return std::nullopt;
  link.mtu = mtu;
  rte_eth_link state{};
  link.up = open_ && rte_eth_link_get_nowait(port_, &state) == 0 && state.link_status == RTE_ETH_LINK_UP;
  return link;
}

std::optional<std::string> DpdkDevice::attach(const Link&) {
  if (open_) return std::nullopt;
  return start();
}

int DpdkDevice::setUp(std::string& doing) {
  rte_eth_dev_info info{};
  doing = "it tells nothing of itself";
  if (const int error = rte_eth_dev_info_get(port_, &info); error != 0) return error;
  doing = fmt::format("no {} receive queues (it has {})", queues_, info.max_rx_queues);
  if (queues_ > info.max_rx_queues) return EINVAL;
  rte_eth_conf conf{};
  uint16_t mtu = 0;
  if (rte_eth_dev_get_mtu(port_, &mtu) == 0) conf.rxmode.mtu = mtu;
  // Drivers tell that a card is gone when they are asked to, and may refuse what they cannot.
  conf.intr_conf.rmv = (*info.dev_flags & RTE_ETH_DEV_INTR_RMV) != 0 ? 1 : 0;
  if (queues_ > 1) {
    conf.rxmode.mq_mode = RTE_ETH_MQ_RX_RSS;
    conf.rx_adv_conf.rss_conf.rss_hf =
        (RTE_ETH_RSS_IP | RTE_ETH_RSS_TCP | RTE_ETH_RSS_UDP) & info.flow_type_rss_offloads;
    if (conf.rx_adv_conf.rss_conf.rss_hf == 0) conf.rxmode.mq_mode = RTE_ETH_MQ_RX_NONE;
  }
  doing = "not configured";
  if (const int error = rte_eth_dev_configure(port_, queues_, 1, &conf); error != 0) return error;
  uint16_t rx = descriptors, tx = descriptors;
  doing = "no descriptors";
  if (const int error = rte_eth_dev_adjust_nb_rx_tx_desc(port_, &rx, &tx); error != 0) return error;
  const auto socket = static_cast<unsigned>(std::max(rte_eth_dev_socket_id(port_), 0));
  doing = "no receive queue";
  for (uint16_t queue = 0; queue < queues_; ++queue) {
    if (const int error = rte_eth_rx_queue_setup(port_, queue, rx, socket, nullptr, pool_); error != 0)
      return error;
  }
  doing = "no send queue";
  if (const int error = rte_eth_tx_queue_setup(port_, 0, tx, socket, nullptr); error != 0) return error;
  doing = "not started";
  return rte_eth_dev_start(port_);
}

std::optional<std::string> DpdkDevice::start() {
  std::string doing;
  if (const int error = setUp(doing); error != 0) return failed(doing, error);
  // Drivers that hand over every frame anyway refuse this.
  if (const int error = rte_eth_promiscuous_enable(port_); error != 0 && error != -ENOTSUP) {
    rte_eth_dev_stop(port_);
    return failed("not promiscuous", error);
  }
  rte_eth_stats_reset(port_);
  open_ = true;
  return std::nullopt;
}

void DpdkDevice::detach() {
  release();
  if (open_) before_ = countsNow();
  if (open_) rte_eth_dev_stop(port_);
  open_ = false;
  if (!std::exchange(known_, false)) return;
  rte_eth_dev_callback_unregister(port_, RTE_ETH_EVENT_INTR_RMV, tellRemoved, &removed_);
  rte_eth_dev_info info{};
  rte_device* device = rte_eth_dev_info_get(port_, &info) == 0 ? info.device : nullptr;
  rte_eth_dev_close(port_);
  if (device) rte_dev_remove(device);
  removed_ = false;
}

PortDevice::Received DpdkDevice::receive(Frames frames) {
  Received received;
  if (!open_ || leftToDrain_ == 0u) return received;
  for (uint16_t asked = 0; asked < queues_ && held_ < burst; ++asked) {
    held_ = static_cast<uint16_t>(
        held_ + rte_eth_rx_burst(port_, nextQueue_, &received_[held_], static_cast<uint16_t>(burst - held_)));
    nextQueue_ = static_cast<uint16_t>((nextQueue_ + 1) % queues_);
  }
  for (uint16_t i = 0; i < held_; ++i) {
    rte_mbuf* buffer = received_[i];
    if (buffer->nb_segs > 1 && rte_pktmbuf_linearize(buffer) != 0) {
      ++rxTooLarge_;
      continue;
    }
    frames[received.count++] = {
        {rte_pktmbuf_mtod(buffer, const uint8_t*), buffer->data_len}, {}, &home, buffer};
  }
  if (leftToDrain_) *leftToDrain_ -= std::min<uint32_t>(*leftToDrain_, held_);
  received.more = held_ > 0;
  return received;
}

void DpdkDevice::release() { rte_pktmbuf_free_bulk(received_.data(), std::exchange(held_, uint16_t{0})); }

rte_mbuf* DpdkDevice::bufferOf(const LiveFrame& frame, int& error) const {
  if (frame.home == &home) {
    auto* buffer = static_cast<rte_mbuf*>(frame.buffer);
    rte_mbuf_refcnt_update(buffer, 1);
    return buffer;
  }
  rte_mbuf* buffer = rte_pktmbuf_alloc(pool_);
  if (!buffer) return nullptr;
  char* to = frame.bytes.size() <= UINT16_MAX
                 ? rte_pktmbuf_append(buffer, static_cast<uint16_t>(frame.bytes.size()))
                 : nullptr;
  if (!to) {
    error = EMSGSIZE;
    rte_pktmbuf_free(buffer);
    return nullptr;
  }
  std::memcpy(to, frame.bytes.data(), frame.bytes.size());
  return buffer;
}

size_t DpdkDevice::send(std::span<const LiveFrame> frames, int& error) {
  std::array<rte_mbuf*, burst> buffers;
  uint16_t count = 0;
  int wrong = ENOBUFS;  // with the first frame that is not offered
  for (const LiveFrame& frame : frames.first(std::min(frames.size(), burst))) {
    buffers[count] = bufferOf(frame, wrong);
    if (!buffers[count]) break;
    ++count;
  }
  const uint16_t sent = rte_eth_tx_burst(port_, 0, buffers.data(), count);
  if (sent < count) rte_pktmbuf_free_bulk(&buffers[sent], static_cast<unsigned>(count - sent));
  if (sent < frames.size()) error = sent == count ? wrong : ENOBUFS;
  return sent;
}

void DpdkDevice::stopReceiving() {
  if (!leftToDrain_) leftToDrain_ = mostWaiting * queues_;
}

DeviceCounts DpdkDevice::countsNow() const {
  DeviceCounts counts = before_;
  rte_eth_stats stats{};
  if (!open_ || rte_eth_stats_get(port_, &stats) != 0) return counts;
  counts.drops += stats.imissed + stats.rx_nombuf;
  counts.rxErrors += stats.ierrors;
  return counts;
}

DeviceCounts DpdkDevice::counts() const {
  DeviceCounts counts = countsNow();
  counts.rxTooLarge = rxTooLarge_;
  return counts;
}

std::string DpdkDevice::how() const {
  return queues_ == 1 ? driver_ : fmt::format("{}, {} queues", driver_, queues_);
}

}  // namespace Agent
