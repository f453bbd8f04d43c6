// What a scrape of 10,000 rules takes: on the loop, where packets wait for a piece of it, and until who asked
// has the answer.
#include <agent/control/ControlPlane.h>
#include <agent/metrics/Metrics.h>
#include <agent/metrics/Scrapes.h>
#include <arpa/inet.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <ctime>
#include <filesystem>
#include <thread>

namespace {

constexpr int ruleCount = 10000;
constexpr int rounds = 7;

double cpuSeconds(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

std::string rules() {
  std::string text = "ip access-list EDGE-IN\n";
  for (int i = 0; i < ruleCount; ++i)
    text += fmt::format(" {} permit tcp 10.{}.{}.0/24 any eq {}\n", 10 * (i + 1), i / 256, i % 256, 1 + i);
  return text + "interface eth1\n ip access-group EDGE-IN in\ninterface eth2\n ip access-group EDGE-IN out\n";
}

/// Octets of the answer.
size_t httpGet(int port) {
  const int fd = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in to{};
  to.sin_family = AF_INET;
  to.sin_port = htons(static_cast<uint16_t>(port));
  to.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  size_t octets = 0;
  if (connect(fd, reinterpret_cast<const sockaddr*>(&to), sizeof(to)) == 0) {
    const std::string_view request =
        "GET /metrics HTTP/1.1\r\nHost: localhost\r\nAccept-Encoding: gzip\r\nConnection: close\r\n\r\n";
    char part[65536];
    if (send(fd, request.data(), request.size(), MSG_NOSIGNAL) > 0) {
      for (ssize_t got; (got = recv(fd, part, sizeof(part), 0)) > 0;) octets += static_cast<size_t>(got);
    }
  }
  close(fd);
  return octets;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main() {
  Agent::EventLoop loop;
  Agent::Core core;
  Agent::Forwarder forwarder(core, Velo::MalformedPolicy::drop);
  const auto plugin = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "VeloAcl.so";
  if (const auto wrong = core.loadPlugin(plugin.string())) throw std::runtime_error(*wrong);
  Agent::ControlPlane plane(core, forwarder, loop, Agent::ConfigFiles(), {});
  bool applied = false;
  plane.configuration().apply({.texts = {{"t", rules()}}, .leave = {.openings = true}},
                              [&](const auto& outcome) { applied = outcome.applied; });
  while (!applied) loop.turn(1);
  loop.settle();

  const Agent::ChangeCounts changes;
  const Agent::Watched watched{plane.operations().world(), loop, changes};
  std::vector<double> onLoop, pieces, whole, processor;
  Agent::Ledger ledger(4 * Agent::mostRuleMetrics);
  for (int round = 0; round < rounds; ++round) {
    const double begun = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    Agent::Gathering gathering(watched, Agent::RuleChoice::all, Agent::mostRuleMetrics, ledger);
    double longest = 0, before = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
    for (bool more = true; more;) {
      more = gathering.next();
      const double now = cpuSeconds(CLOCK_THREAD_CPUTIME_ID);
      longest = std::max(longest, now - before);
      before = now;
    }
    onLoop.push_back(before - begun);
    pieces.push_back(longest);
  }
  size_t octets = 0;
  for (int round = 0; round < rounds; ++round) {
    // Each with a server of its own, so that nothing is kept from the scrape before.
    Agent::Metrics metrics(loop, watched, {.address = "127.0.0.1:0"});
    if (const auto wrong = metrics.listen()) throw std::runtime_error(*wrong);
    const std::string place = metrics.place();
    const int port = std::stoi(place.substr(place.rfind(':') + 1));
    std::atomic<bool> done = false;
    const double begun = Kiv::steadyClock().now().seconds(), used = cpuSeconds(CLOCK_PROCESS_CPUTIME_ID);
    std::thread client([&] {
      octets = httpGet(port);
      done = true;
    });
    while (!done) loop.turn(1);
    client.join();
    whole.push_back(Kiv::steadyClock().now().seconds() - begun);
    processor.push_back(cpuSeconds(CLOCK_PROCESS_CPUTIME_ID) - used);
  }
  fmt::print("{} rules, both directions, medians of {} in ms:\n", ruleCount, rounds);
  fmt::print("  on the loop {:.1f}, its longest piece {:.2f}\n", 1e3 * median(onLoop), 1e3 * median(pieces));
  fmt::print("  a scrape: processor {:.1f}, until it is there {:.1f}; {} octets packed\n",
             1e3 * median(processor), 1e3 * median(whole), octets);
}
