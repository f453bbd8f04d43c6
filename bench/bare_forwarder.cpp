// What a forwarder between two interfaces costs that looks at nothing: the same rings and batches as the
// agent's ports, and no parsing, no lists, no counters. The mark that bench/live.sh compares the agent with.
//
// usage: bare_forwarder DEV DEV
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/mman.h>
#include <sys/socket.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace {

constexpr unsigned slots = 4096, slotSize = 2048, burst = 64;

[[noreturn]] void fail(const char* what) {
  std::perror(what);
  std::exit(1);
}

struct Port {
  int fd = -1;
  uint8_t* ring = nullptr;
  unsigned next = 0;

  explicit Port(const char* device) {
    fd = socket(AF_PACKET, SOCK_RAW, 0);
    const int version = TPACKET_V2, on = 1, buffer = 4 << 20;
    const tpacket_req request{1 << 18, slots / ((1 << 18) / slotSize), slotSize, slots};
    if (setsockopt(fd, SOL_PACKET, PACKET_VERSION, &version, sizeof version) != 0 ||
        setsockopt(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on) != 0 ||
        setsockopt(fd, SOL_SOCKET, SO_SNDBUFFORCE, &buffer, sizeof buffer) != 0 ||
        setsockopt(fd, SOL_PACKET, PACKET_RX_RING, &request, sizeof request) != 0) {
      fail(device);
    }
    ring = static_cast<uint8_t*>(mmap(nullptr, slots * slotSize, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0));
    sockaddr_ll address{};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_ALL);
    address.sll_ifindex = static_cast<int>(if_nametoindex(device));
    packet_mreq membership{};
    membership.mr_ifindex = address.sll_ifindex;
    membership.mr_type = PACKET_MR_PROMISC;
    if (ring == MAP_FAILED || address.sll_ifindex == 0 ||
        setsockopt(fd, SOL_PACKET, PACKET_ADD_MEMBERSHIP, &membership, sizeof membership) != 0 ||
        bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
      fail(device);
    }
  }

  tpacket2_hdr* slot(unsigned at) const {
    return reinterpret_cast<tpacket2_hdr*>(ring + size_t{at % slots} * slotSize);
  }
};

std::atomic_ref<uint32_t> statusOf(tpacket2_hdr* slot) { return std::atomic_ref<uint32_t>(slot->tp_status); }

/// Moves a burst from one port to the other. Returns whether there may be more.
bool forward(Port& from, const Port& to) {
  iovec parts[burst];
  mmsghdr messages[burst] = {};
  unsigned count = 0;
  for (; count < burst; ++count) {
    tpacket2_hdr* slot = from.slot(from.next + count);
    if ((statusOf(slot).load(std::memory_order_acquire) & TP_STATUS_USER) == 0) break;
    const auto* soon = reinterpret_cast<const uint8_t*>(from.slot(from.next + count + 4));
    __builtin_prefetch(soon);
    __builtin_prefetch(soon + 64);
    parts[count] = {reinterpret_cast<uint8_t*>(slot) + slot->tp_mac, slot->tp_snaplen};
    messages[count].msg_hdr.msg_iov = &parts[count];
    messages[count].msg_hdr.msg_iovlen = 1;
  }
  for (unsigned sent = 0; sent < count;) {
    const int done = sendmmsg(to.fd, messages + sent, count - sent, MSG_DONTWAIT);
    sent += done > 0 ? static_cast<unsigned>(done) : 1;
  }
  for (unsigned i = 0; i < count; ++i) {
    statusOf(from.slot(from.next++)).store(TP_STATUS_KERNEL, std::memory_order_release);
  }
  return count == burst;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bare_forwarder DEV DEV\n");
    return 2;
  }
  Port a(argv[1]), b(argv[2]);
  pollfd waiting[] = {{a.fd, POLLIN, 0}, {b.fd, POLLIN, 0}};
  for (;;) {
    const bool moreA = forward(a, b), moreB = forward(b, a);
    if (!moreA && !moreB) poll(waiting, 2, -1);
  }
}
