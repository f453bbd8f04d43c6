// What telling of matches costs packets: the whole way of a packet through the agent, from its octets at one
// port to the other port of a patch. The devices themselves are left out, and so are the turns of the loop,
// in which at most a hundred lines a second are made.
#include <agent/change/Apply.h>
#include <agent/change/ConfigFiles.h>
#include <agent/config/Reader.h>
#include <agent/observe/MatchLog.h>
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <optional>
#include <stdexcept>

#include "support/Allocations.h"
#include "support/Frames.h"
#include "support/Ratios.h"

namespace {

using TestSupport::Bytes;
using TestSupport::frame;

enum class Log { absent, onOtherRules, onTheRule };

/// Rules of which the packets meet the last one.
std::string configuration(Log log) {
  std::string text = "ip access-list L\n";
  for (int i = 1; i < 10; ++i) text += fmt::format("  {} permit tcp any any eq {} log\n", i * 10, 2000 + i);
  text +=
      log == Log::onTheRule ? "  100 permit tcp any any eq 443 log\n" : "  100 permit tcp any any eq 443\n";
  return text + "interface eth1\n  ip access-group L in\n";
}

class World {
 public:
  World(Log log, uint32_t flows, uint32_t rate)
      : frame_(frame().eth().ip4("10.0.0.1", "198.51.100.7").tcp(1024, 443).payload(100)),
        frames_(Velo::PacketBurst::most, frame_),
        flowMask_(flows - 1) {
    const auto plugin = std::filesystem::read_symlink("/proc/self/exe").parent_path() / "VeloAcl.so";
    if (const auto wrong = core_.loadPlugin(plugin.string())) throw std::runtime_error(*wrong);
    Agent::ConfigFiles files;
    files.commandLineIs(Config::read({{"t", configuration(log)}}).model.value());
    if (const auto wrong = Agent::putInForce(core_, files.sources())) throw std::runtime_error(*wrong);
    if (const auto wrong = forwarder_.patchIs("eth1", "eth2")) throw std::runtime_error(*wrong);
    port_ = &forwarder_.portIs("eth1");
    loop_.settle();
    if (log == Log::absent) return;
    matches_.emplace(core_, forwarder_, loop_, Agent::MatchLogOptions{.rate = rate}, [](const auto&) {});
  }

  void receive() {
    flow_ = (flow_ + 1) & flowMask_;
    for (size_t octet = 0; octet < 3; ++octet)
      frame_[27 + octet] = static_cast<uint8_t>(flow_ >> (16 - 8 * octet));
    forwarder_.packet().assign(frame_, static_cast<uint32_t>(frame_.size()), 1.0);
    forwarder_.receive(*port_);
  }
  /// A burst of packets of the next flows.
  void receiveBurst() {
    Velo::PacketBurst& burst = forwarder_.burst();
    burst.countIs(Velo::PacketBurst::most);
    for (uint32_t i = 0; i < Velo::PacketBurst::most; ++i) {
      Bytes& octets = frames_[i];
      flow_ = (flow_ + 1) & flowMask_;
      for (size_t octet = 0; octet < 3; ++octet)
        octets[27 + octet] = static_cast<uint8_t>(flow_ >> (16 - 8 * octet));
      burst.pkt(i).refer(octets, static_cast<uint32_t>(octets.size()), 1.0);
    }
    forwarder_.receiveBurst(*port_);
  }
  uint64_t sent() { return forwarder_.portIs("eth2").sent; }
  size_t flows() const { return matches_ ? matches_->flows() : 0; }

 private:
  Agent::EventLoop loop_;
  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
  Agent::Port* port_ = nullptr;
  Bytes frame_;
  std::vector<Bytes> frames_;
  const uint32_t flowMask_;
  uint32_t flow_ = 0;
  std::optional<Agent::MatchLog> matches_;
};

/// Packets of so many flows in turn, a power of two; `rate`: lines a second.
void run(benchmark::State& state, Log log, uint32_t flows, uint32_t rate, bool inBursts) {
  World world(log, flows, rate);
  // Until the table is full, and every page of it was touched.
  for (int i = 0; i < 2 * 65536; ++i) world.receive();
  const uint64_t sent = world.sent();
  const uint64_t before = Bench::allocations().count;
  if (inBursts) {
    while (state.KeepRunningBatch(Velo::PacketBurst::most)) world.receiveBurst();
  } else {
    for (auto _ : state) world.receive();
  }
  const uint64_t taken = Bench::allocations().count - before;
  if (world.sent() - sent != static_cast<uint64_t>(state.iterations()))
    return state.SkipWithError("a packet was lost");
  if (log == Log::onTheRule ? world.flows() < std::min(flows, rate) : world.flows() > 0)
    return state.SkipWithError("other flows were told");
  state.counters["allocations"] = static_cast<double>(taken) / static_cast<double>(state.iterations());
}
void matches(benchmark::State& state, Log log, uint32_t flows, uint32_t rate) {
  run(state, log, flows, rate, false);
}
void bursts(benchmark::State& state, Log log, uint32_t flows, uint32_t rate) {
  run(state, log, flows, rate, true);
}
constexpr uint32_t usual = 100;
constexpr uint32_t all = 1 << 20;
#define MATCHES(name, ...) \
  BENCHMARK_CAPTURE(matches, name, __VA_ARGS__)->Repetitions(9)->ReportAggregatesOnly()
MATCHES(one_flow_no_log, Log::absent, 1, usual);
MATCHES(one_flow_rule_without_log, Log::onOtherRules, 1, usual);
MATCHES(one_flow_rule_with_log, Log::onTheRule, 1, usual);
MATCHES(known_flows_no_log, Log::absent, 65536, all);
MATCHES(known_flows_rule_without_log, Log::onOtherRules, 65536, all);
MATCHES(known_flows_rule_with_log, Log::onTheRule, 65536, all);
MATCHES(new_flows_no_log, Log::absent, 1 << 24, usual);
MATCHES(new_flows_rule_without_log, Log::onOtherRules, 1 << 24, usual);
MATCHES(new_flows_rule_with_log, Log::onTheRule, 1 << 24, usual);
#undef MATCHES
#define BURSTS(name, ...) BENCHMARK_CAPTURE(bursts, name, __VA_ARGS__)->Repetitions(9)->ReportAggregatesOnly()
BURSTS(one_flow_no_log, Log::absent, 1, usual);
BURSTS(one_flow_rule_without_log, Log::onOtherRules, 1, usual);
BURSTS(one_flow_rule_with_log, Log::onTheRule, 1, usual);
BURSTS(known_flows_no_log, Log::absent, 65536, all);
#undef BURSTS

[[maybe_unused]] const bool ratios = [] {
  for (const char* flows : {"one_flow", "known_flows", "new_flows"}) {
    const auto name = [flows](const char* what) { return fmt::format("matches/{}_{}", flows, what); };
    Bench::ratio(fmt::format("{}: rule without log against no log at all", flows), name("rule_without_log"),
                 name("no_log"), 1.02);
  }
  return true;
}();

}  // namespace
