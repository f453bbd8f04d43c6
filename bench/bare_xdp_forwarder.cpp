// What a forwarder between two interfaces costs that looks at nothing, by AF_XDP: the agent's devices, and no
// parsing, no lists, no counters. The mark that bench/ports.sh compares the agent with.
//
// usage: bare_xdp_forwarder DEV DEV
#include <agent/ports/XdpDevice.h>
#include <net/if.h>
#include <poll.h>

#include <cstdio>
#include <cstdlib>

namespace {

using namespace Agent;

class Port {
 public:
  explicit Port(const char* name) : device_(name, std::nullopt, XdpMode::any, std::nullopt), name_(name) {}

  /// All ports are made before one of them is opened: they have their memory in common.
  void make() { orDie(device_.make()); }
  void open() {
    constexpr uint32_t mtu = 1500;
    orDie(device_.attach({.name = name_,
                          .index = static_cast<int>(if_nametoindex(name_)),
                          .up = true,
                          .mtu = mtu,
                          .isOn = true}));
  }
  int fd() const { return device_.fd(); }

  /// Moves a burst to the other port. Returns whether there may be more.
  bool forward(Port& to) {
    const auto [count, more] = device_.receive(frames_);
    int error = 0;
    if (count > 0) to.device_.send({frames_.data(), count}, error);
    device_.release();
    return more;
  }

 private:
  static void orDie(const std::optional<std::string>& wrong) {
    if (!wrong) return;
    std::fprintf(stderr, "%s\n", wrong->c_str());
    std::exit(1);
  }

  XdpDevice device_;
  const char* const name_;
  std::array<LiveFrame, PortDevice::burst> frames_;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: bare_xdp_forwarder DEV DEV\n");
    return 2;
  }
  Port a(argv[1]), b(argv[2]);
  for (Port* port : {&a, &b}) port->make();
  for (Port* port : {&a, &b}) port->open();
  pollfd waiting[] = {{a.fd(), POLLIN, 0}, {b.fd(), POLLIN, 0}};
  for (;;) {
    const bool moreA = a.forward(b), moreB = b.forward(a);
    if (!moreA && !moreB) poll(waiting, 2, -1);
  }
}
