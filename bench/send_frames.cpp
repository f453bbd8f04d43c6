// Sends UDP frames of 64 flows or more by an interface, as fast as it goes or at a rate, and prints how many
// it sent.
//
// usage: send_frames DEV OCTETS SECONDS [FRAMES-A-SECOND [FLOWS]]
// (octets of a frame without its check sequence, 46 to 1514; a rate of 0 is as fast as it goes; 64 to
// 16777216 flows: they differ in the source port, and in the source when there are more than 64512)
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <thread>
#include <vector>

namespace {

constexpr unsigned burst = 64;
constexpr unsigned firstPort = 1024, ports = 65536 - firstPort;
constexpr unsigned mostFlows = 1 << 24;

void write16(uint8_t* at, size_t value) {
  at[0] = static_cast<uint8_t>(value >> 8);
  at[1] = static_cast<uint8_t>(value);
}

/// 203.0.113.1 to 198.51.100.7, UDP from 1024 on to 443; to a station that is nobody's.
std::vector<uint8_t> frameOf(unsigned flow, size_t size) {
  std::vector<uint8_t> frame(size, 0);
  const uint8_t head[] = {2, 0, 0x5e, 0, 0, 2,  2,  0, 0x5e, 0,   0, 1,   8, 0,   0x45, 0,   0,
                          0, 0, 0,    0, 0, 64, 17, 0, 0,    203, 0, 113, 1, 198, 51,   100, 7};
  std::copy(std::begin(head), std::end(head), frame.begin());
  uint8_t* ip = &frame[14];
  write16(ip + 2, size - 14);
  uint32_t sum = 0;
  for (int i = 0; i < 20; i += 2) sum += static_cast<uint32_t>(ip[i] << 8 | ip[i + 1]);
  while (sum >> 16) sum = (sum & 0xffff) + (sum >> 16);
  write16(ip + 10, ~sum & 0xffff);
  write16(ip + 20, firstPort + flow);
  write16(ip + 22, 443);
  write16(ip + 24, size - 34);
  return frame;
}

}  // namespace

int main(int argc, char** argv) {
  const size_t size = argc >= 4 && argc <= 6 ? static_cast<size_t>(std::atoi(argv[2])) : 0;
  const unsigned flows = argc == 6 ? static_cast<unsigned>(std::atoi(argv[5])) : burst;
  if (size < 46 || size > 1514 || flows < burst || flows > mostFlows) {
    std::fprintf(stderr, "usage: send_frames DEV OCTETS SECONDS [FRAMES-A-SECOND [FLOWS]]\n");
    return 2;
  }
  const int fd = socket(AF_PACKET, SOCK_RAW, 0);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = static_cast<int>(if_nametoindex(argv[1]));
  if (fd < 0 || bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    std::perror(argv[1]);
    return 1;
  }
  std::vector<std::vector<uint8_t>> frames;
  iovec parts[burst];
  mmsghdr messages[burst] = {};
  for (unsigned flow = 0; flow < burst; ++flow) {
    frames.push_back(frameOf(flow, size));
    parts[flow] = {frames.back().data(), size};
    messages[flow].msg_hdr.msg_iov = &parts[flow];
    messages[flow].msg_hdr.msg_iovlen = 1;
  }
  using Clock = std::chrono::steady_clock;
  const auto begin = Clock::now();
  const auto end = begin + std::chrono::duration<double>(std::atof(argv[3]));
  const double rate = argc >= 5 ? std::atof(argv[4]) : 0;
  uint64_t sent = 0;
  unsigned next = 0;
  for (auto now = begin; now < end; now = Clock::now()) {
    if (rate > 0) {
      const double due =
          std::chrono::duration<double>(now - begin).count() * rate - static_cast<double>(sent);
      // A burst is full before it is sent. Who sleeps leaves the processor to others.
      if (due < burst) {
        std::this_thread::sleep_for(std::chrono::duration<double>((burst - due) / rate));
        continue;
      }
    }
    for (std::vector<uint8_t>& each : frames) {
      write16(&each[28], 0x7101 + next / ports);
      write16(&each[34], firstPort + next % ports);
      next = (next + 1) % flows;
    }
    const int done = sendmmsg(fd, messages, burst, 0);
    if (done > 0) sent += static_cast<uint64_t>(done);
  }
  std::printf("%llu\n", static_cast<unsigned long long>(sent));
}
