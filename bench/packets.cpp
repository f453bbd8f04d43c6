#include <VeloAcl/VeloPlugin/AclBurst.h>
#include <benchmark/benchmark.h>

#include <functional>

#include "support/Allocations.h"
#include "support/Frames.h"

/// What a packet costs: the parse alone, and the access lists of one interface on top of it, alone and in a
/// burst. Times are a packet's; `allocations` is what the measured packets took from the heap, a packet.
namespace {

using Acl::AclDirection;
using Acl::AclType;
using Nimnet::IntfId;
using TestSupport::Bytes;
using TestSupport::frame;

Bytes ip4Tcp() { return frame().eth().ip4("192.0.2.1", "198.51.100.7").tcp(1024, 443).payload(100); }

class World {
 public:
  World() : ctx(MemSlab::make<Velo::PacketContext>(MemSlab::make<Velo::VeloNamedCounters>())) {}

  void begin(const Bytes& bytes) {
    ctx->pkt()->assign(bytes, static_cast<uint32_t>(bytes.size()), 0);
    ctx->begin(eth1);
  }
  /// The rules of IPv4 list `name`, none of which but the one at `hit` (of no list when it is negative)
  /// matches the packet of ip4Tcp().
  void ipList(const char* name, int rules, int hit) {
    const auto made = MemSlab::make<Acl::AclSubConfig>();
    for (int i = 0; i < rules; ++i) {
      Acl::IpRule rule;
      rule.sequence = static_cast<uint32_t>(10 * (i + 1));
      rule.filter.protocolNamed = true;
      rule.filter.protocol = 6;
      rule.filter.destinationPort.op = Acl::Compare::eq;
      rule.filter.destinationPort.count = 1;
      rule.filter.destinationPort.ports[0] = static_cast<uint16_t>(i == hit ? 443 : 2000 + i);
      made->ipRuleByIdIs(Kiv::UniqueId(uint64_t{1} + static_cast<uint64_t>(i)), rule);
    }
    made->compile(AclType::ip);
    config->configIs(AclType::ip)->aclIs(name)->currCfgIs(made);
  }
  /// A MAC list that passes everything.
  void macList(const char* name) {
    const auto made = MemSlab::make<Acl::AclSubConfig>();
    Acl::MacRule rule;
    rule.sequence = 10;
    made->macRuleByIdIs(Kiv::UniqueId(uint64_t{5}), rule);
    made->compile(AclType::mac);
    config->configIs(AclType::mac)->aclIs(name)->currCfgIs(made);
  }
  void bind(AclType type, const char* intf, const char* name) {
    bindings->configIs(type)->intfIs(AclDirection::in)->intfIs(IntfId(intf), name);
  }

  const IntfId eth1{"eth1"};
  const Kelp::Ptr<Acl::Config> config = MemSlab::make<Acl::Config>("config");
  const Kelp::Ptr<Acl::IntfConfig> bindings = MemSlab::make<Acl::IntfConfig>("bindings");
  const Kelp::Ptr<Acl::StatusDp> status = MemSlab::make<Acl::StatusDp>("status");
  const Kelp::Ptr<Velo::VeloAcl::DataplaneAclHelper> helper = Velo::VeloAcl::dataplaneAclHelperFactory(
      config, bindings, status, collection("in"), collection("macOut"), collection("ipOut"),
      collection("ip6Out"));
  const Kelp::Ptr<Velo::PacketContext> ctx;

 private:
  static Kelp::Ptr<Velo::VeloAcl::DataplaneAclHelper::Counters> collection(const char* name) {
    return MemSlab::make<Velo::VeloAcl::DataplaneAclHelper::Counters>(name, CtrPool::FeatureId(1));
  }
};

/// Runs packets, the first few of which make what is made once. Stops with an error when one gets the wrong
/// verdict.
void run(benchmark::State& state, World& world, const Bytes& bytes, bool judged) {
  const auto one = [&] {
    world.begin(bytes);
    if (judged) return world.helper->processPkt(world.ctx, AclDirection::in, world.eth1);
    world.ctx->parsedPacket().maybeDoFullParse();
    return world.ctx->parsedPacket().fault() == Velo::ParseFault::none;
  };
  for (int i = 0; i < 3; ++i) {
    if (!one()) return state.SkipWithError("the packet was dropped");
  }
  const uint64_t before = Bench::allocations().count;
  bool passed = true;
  for (auto _ : state) {
    passed = one() && passed;
    benchmark::DoNotOptimize(passed);
  }
  const uint64_t taken = Bench::allocations().count - before;
  if (!passed) return state.SkipWithError("a packet was dropped");
  state.counters["allocations"] = static_cast<double>(taken) / static_cast<double>(state.iterations());
}

void parse(benchmark::State& state, const std::function<Bytes()>& bytes) {
  World world;
  run(state, world, bytes(), false);
}
#define PARSE(name, ...) \
  BENCHMARK_CAPTURE(parse, name, [] { return Bytes(__VA_ARGS__); })->Repetitions(5)->ReportAggregatesOnly()
PARSE(ip4_tcp, ip4Tcp());
PARSE(ip6_tcp, frame().eth().ip6("2001:db8::1", "2001:db8::2").tcp(1024, 443).payload(100).bytes());
PARSE(ip6_extensions_tcp, frame()
                              .eth()
                              .ip6("2001:db8::1", "2001:db8::2")
                              .hopByHop()
                              .destinationOptions()
                              .routing()
                              .tcp(1024, 443)
                              .payload(100)
                              .bytes());
PARSE(vlan_ip4_tcp,
      frame().eth().vlan(100).ip4("192.0.2.1", "198.51.100.7").tcp(1024, 443).payload(100).bytes());
#undef PARSE

/// Parse and verdict of an IPv4/TCP packet.
void judge(benchmark::State& state, const std::function<void(World&)>& configure) {
  World world;
  configure(world);
  run(state, world, ip4Tcp(), true);
}
#define JUDGE(name, ...) \
  BENCHMARK_CAPTURE(judge, name, [](World& w) { __VA_ARGS__ })->Repetitions(5)->ReportAggregatesOnly()
JUDGE(no_list, static_cast<void>(w););
JUDGE(ip_10_rules_first_hits, w.ipList("L", 10, 0); w.bind(AclType::ip, "eth1", "L"););
JUDGE(ip_10_rules_last_hits, w.ipList("L", 10, 9); w.bind(AclType::ip, "eth1", "L"););
JUDGE(ip_1000_rules_first_hits, w.ipList("L", 1000, 0); w.bind(AclType::ip, "eth1", "L"););
JUDGE(ip_1000_rules_last_hits, w.ipList("L", 1000, 999); w.bind(AclType::ip, "eth1", "L"););
#undef JUDGE

/// MAC and IPv4 lists on a port-channel and on the member that received the packet: four lists.
void judgePortChannel(benchmark::State& state) {
  World world;
  world.ipList("L", 10, 9);
  world.macList("M");
  for (const char* intf : {"eth1", "po1"}) {
    world.bind(AclType::ip, intf, "L");
    world.bind(AclType::mac, intf, "M");
  }
  const Bytes bytes = ip4Tcp();
  const IntfId po1("po1");
  const auto one = [&] {
    world.begin(bytes);
    world.ctx->ingressPortChannelIs(po1);
    return world.helper->processPkt(world.ctx, AclDirection::in, world.eth1);
  };
  for (int i = 0; i < 3; ++i) {
    if (!one()) return state.SkipWithError("the packet was dropped");
  }
  const uint64_t before = Bench::allocations().count;
  for (auto _ : state) benchmark::DoNotOptimize(one());
  const uint64_t taken = Bench::allocations().count - before;
  state.counters["allocations"] = static_cast<double>(taken) / static_cast<double>(state.iterations());
}
BENCHMARK(judgePortChannel)->Repetitions(5)->ReportAggregatesOnly();

/// Parse and verdict of a burst of frames.
class BurstWorld : public World {
 public:
  explicit BurstWorld(const Bytes& bytes) : frames_(Velo::PacketBurst::most, bytes) {}

  /// Those that pass, without those that would have to be judged alone. A function of its own, whose
  /// instructions can be counted.
  [[gnu::noinline]] Velo::PacketSet judgeTogether(const Velo::BurstPlace& place) {
    burst_.countIs(Velo::PacketBurst::most);
    for (uint32_t i = 0; i < Velo::PacketBurst::most; ++i) {
      burst_.pkt(i).refer(frames_[i], static_cast<uint32_t>(frames_[i].size()), 0);
    }
    burst_.parse();
    form_.begin();
    const Velo::BurstVerdicts verdicts = form_.judge(burst_, burst_.all(), place);
    form_.act(burst_, burst_.all() & ~verdicts.alone);
    return burst_.all() & ~(verdicts.alone | verdicts.dropped);
  }

 private:
  const std::vector<Bytes> frames_;
  Velo::PacketBurst burst_{MemSlab::make<Velo::VeloNamedCounters>()};
  Velo::VeloAcl::AclBurst form_{helper.get(), AclDirection::in};
};

void burst(benchmark::State& state, const std::function<void(World&)>& configure, const char* portChannel) {
  const Bytes bytes = ip4Tcp();
  BurstWorld world(bytes);
  configure(world);
  const Velo::BurstPlace place{world.eth1, IntfId(portChannel)};
  world.begin(bytes);  // the counters are made
  world.ctx->ingressPortChannelIs(place.portChannel);
  world.helper->processPkt(world.ctx, AclDirection::in, world.eth1);
  const uint64_t before = Bench::allocations().count;
  bool passed = true;
  while (state.KeepRunningBatch(Velo::PacketBurst::most)) {
    passed = world.judgeTogether(place) == ~Velo::PacketSet{0} && passed;
  }
  const uint64_t taken = Bench::allocations().count - before;
  if (!passed) return state.SkipWithError("a packet was dropped, or would have to be judged alone");
  state.counters["allocations"] = static_cast<double>(taken) / static_cast<double>(state.iterations());
}
#define BURST(name, portChannel, ...)                         \
  BENCHMARK_CAPTURE(                                          \
      burst, name, [](World& w) { __VA_ARGS__ }, portChannel) \
      ->Repetitions(5)                                        \
      ->ReportAggregatesOnly()
BURST(no_list, "", static_cast<void>(w););
BURST(ip_10_rules_first_hits, "", w.ipList("L", 10, 0); w.bind(AclType::ip, "eth1", "L"););
BURST(ip_10_rules_last_hits, "", w.ipList("L", 10, 9); w.bind(AclType::ip, "eth1", "L"););
BURST(ip_1000_rules_first_hits, "", w.ipList("L", 1000, 0); w.bind(AclType::ip, "eth1", "L"););
BURST(ip_1000_rules_last_hits, "", w.ipList("L", 1000, 999); w.bind(AclType::ip, "eth1", "L"););
BURST(
    port_channel, "po1", w.ipList("L", 10, 9); w.macList("M"); for (const char* intf
                                                                    : {"eth1", "po1"}) {
      w.bind(AclType::ip, intf, "L");
      w.bind(AclType::mac, intf, "M");
    });
#undef BURST

}  // namespace
