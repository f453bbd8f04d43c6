#include <agent/change/Apply.h>
#include <agent/forward/Forwarder.h>
#include <gtest/gtest.h>

#include "../../support/Frames.h"
#include "../../support/Sanitizers.h"
#include "../support/AllocationCount.h"
#include "../support/ModelOf.h"

#include <set>

namespace {

using namespace TestSupport;

/// Remembers how often frames were sent, and the last of them.
class Sink final : public Agent::FrameSink {
 public:
  void send(const Nimnet::Pkt& pkt) override {
    ++count;
    lastSize = pkt.size();
  }
  uint64_t count = 0;
  uint32_t lastSize = 0;
};

class ForwarderTest : public testing::Test {
 protected:
  void SetUp() override {
    const auto refusal = core_.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
    ASSERT_FALSE(refusal) << *refusal;
  }
  void configure(const std::string& text, const std::map<std::string, std::string>& inputs = {}) {
    std::map<std::string, Config::Model> models;
    for (const auto& [name, input] : inputs) models[name] = modelOf(input);
    const auto wrong = Agent::putInForce(core_, {modelOf(text), models});
    ASSERT_FALSE(wrong) << *wrong;
    forwarder_.portsOfConfigurationIs();
  }
  void patch(const char* a, const char* b) {
    const auto wrong = forwarder_.patchIs(a, b);
    ASSERT_FALSE(wrong) << *wrong;
  }
  Agent::Verdict receive(const char* port, const Bytes& frame) {
    return receive(forwarder_.portIs(port), frame);
  }
  Agent::Verdict receive(Agent::Port& port, const Bytes& frame) {
    forwarder_.packet().assign(frame, static_cast<uint32_t>(frame.size()), 1.0);
    return forwarder_.receive(port);
  }
  /// The port by which a frame would leave.
  std::string leavesBy(const char* port, const Bytes& frame) {
    const auto verdict = receive(port, frame);
    return verdict.egress ? verdict.egress->id.name().str() : "none";
  }
  bool defined(const char* list) const {
    const auto lists = core_.inForce().lists()->config(Acl::AclType::ip);
    return lists && lists->acl(list);
  }

  Agent::Core core_;
  Agent::Forwarder forwarder_{core_, Velo::MalformedPolicy::drop};
};

Bytes flow(int number) {
  return frame().eth().ip4("192.0.2.1", "198.51.100.7").udp(static_cast<uint16_t>(1024 + number), 53).bytes();
}

TEST_F(ForwarderTest, AFlowStaysOnOneMemberAndFlowsSpread) {
  configure("port-channel po1 members eth2 eth3 eth4\n");
  patch("eth1", "po1");
  std::map<std::string, int> members;
  for (int i = 0; i < 300; ++i) {
    const std::string member = leavesBy("eth1", flow(i));
    ++members[member];
    EXPECT_EQ(leavesBy("eth1", flow(i)), member) << "the flow's next frame leaves as its first did";
  }
  ASSERT_EQ(members.size(), 3u);
  for (const auto& [member, count] : members) EXPECT_GT(count, 60) << member << " has less than its share";
}

TEST_F(ForwarderTest, FragmentsOfADatagramLeaveByOneMember) {
  configure("port-channel po1 members eth2 eth3 eth4 eth5\n");
  patch("eth1", "po1");
  for (int host = 1; host < 50; ++host) {
    const std::string source = "192.0.2." + std::to_string(host);
    const auto ip = frame().eth().ip4(source, "198.51.100.7");
    const std::string first = leavesBy("eth1", FrameBuilder(ip).fragment(0, true).udp(1024, 53).payload(8));
    EXPECT_EQ(leavesBy("eth1", FrameBuilder(ip).fragment(2, false).protocol(17).payload(8)), first) << source;
  }
}

TEST_F(ForwarderTest, BothDirectionsOfAPatchedPortChannelWork) {
  configure("port-channel po1 members eth2 eth3\n");
  patch("po1", "eth1");
  EXPECT_EQ(leavesBy("eth2", flow(1)), "eth1");
  EXPECT_EQ(leavesBy("eth3", flow(1)), "eth1");
  EXPECT_NE(leavesBy("eth1", flow(1)), "none");
}

TEST_F(ForwarderTest, PatchesThatCannotBeAreRefused) {
  configure("port-channel po1 members eth2 eth3\nport-channel po2 members eth4\n");
  EXPECT_TRUE(forwarder_.patchIs("eth1", "eth1")) << "to itself";
  EXPECT_TRUE(forwarder_.patchIs("po1", "eth2")) << "a port-channel to its own member";
  EXPECT_TRUE(forwarder_.patchIs("eth2", "po1")) << "a port-channel to its own member";
  patch("po1", "eth1");
  EXPECT_TRUE(forwarder_.patchIs("eth1", "eth9")) << "a port has one other end";
  EXPECT_TRUE(forwarder_.patchIs("eth3", "eth9"))
      << "its port-channel is patched, so frames would have two ways to go";
  patch("eth4", "eth8");
  EXPECT_TRUE(forwarder_.patchIs("po2", "eth9")) << "its member is patched";
}

TEST_F(ForwarderTest, AMirroredCopyLeavesThePacketAsItWas) {
  configure(
      "ip access-list A\n permit ip any any mirror session S\ninterface eth1\n ip access-group A in\n"
      "ip access-list OUT\n permit udp any any eq 53\ninterface eth2\n ip access-group OUT out\n"
      "mirror session S destination po9 eth8\nport-channel po9 members eth9\n");
  patch("eth1", "eth2");
  Sink copies, sent;
  forwarder_.portIs("eth9").sink = &copies;
  forwarder_.portIs("eth2").sink = &sent;
  const Bytes whole = frame().eth().vlan(7).ip4("192.0.2.1", "192.0.2.2").udp(1, 53).payload(100);
  const auto verdict = receive("eth1", whole);
  EXPECT_TRUE(verdict.passed());
  EXPECT_EQ(copies.count, 1u);
  EXPECT_EQ(copies.lastSize, whole.size());
  EXPECT_EQ(sent.count, 1u);
  EXPECT_EQ(forwarder_.portIs("eth8").mirrored, 1u);
  EXPECT_EQ(forwarder_.portIs("eth9").mirrored, 1u);
  EXPECT_EQ(forwarder_.portIs("eth2").mirrored, 0u);
}

TEST_F(ForwarderTest, AnotherConfigurationTakesTheOldOnesPlace) {
  configure(
      "ip access-list A\n permit ip any any mirror session S\ninterface eth1\n ip access-group A in\n"
      "mirror session S destination eth9\nport-channel po1 members eth1\n");
  EXPECT_TRUE(receive("eth1", flow(1)).passed());
  EXPECT_EQ(forwarder_.portIs("eth9").mirrored, 1u);
  configure("ip access-list A\n deny ip any any\ninterface eth1\n ip access-group A in\n");
  EXPECT_FALSE(receive("eth1", flow(1)).passed());
  EXPECT_EQ(forwarder_.portIs("eth9").mirrored, 1u);
  EXPECT_TRUE(core_.portChannels().all().empty());
  configure("");
  EXPECT_TRUE(receive("eth1", flow(1)).passed()) << "no list is bound";
  EXPECT_FALSE(defined("A"));
}

TEST_F(ForwarderTest, WhenASourceOfTheDirectoryGoesTheNextTakesOver) {
  const std::string bound = "interface eth1\n ip access-group A in\n";
  configure(bound,
            {{"a", "ip access-list A\n deny ip any any\n"}, {"b", "ip access-list A\n permit ip any any\n"}});
  EXPECT_FALSE(receive("eth1", flow(1)).passed()) << "the first by name";
  configure(bound, {{"b", "ip access-list A\n permit ip any any\n"}});
  EXPECT_TRUE(receive("eth1", flow(1)).passed());
  configure(bound + "ip access-list A\n deny udp any any\n",
            {{"b", "ip access-list A\n permit ip any any\n"}});
  EXPECT_FALSE(receive("eth1", flow(1)).passed()) << "the command line";
  configure(bound, {});
  EXPECT_FALSE(defined("A"));
  EXPECT_TRUE(receive("eth1", flow(1)).passed()) << "bound, but not defined";
}

TEST_F(ForwarderTest, AConfigurationWithImpossiblePortChannelsChangesNothing) {
  configure(
      "ip access-list A\n deny ip any any\ninterface eth1\n ip access-group A in\nport-channel po1 members "
      "eth2\n");
  struct Row {
    const char* why;
    const char* commandLine;
    const char* input;
  };
  for (const Row& row :
       {Row{"one member of two", "port-channel po1 members eth2\n", "port-channel po2 members eth2\n"},
        Row{"a port-channel within another", "port-channel po1 members eth2\n",
            "port-channel po2 members po1\n"}}) {
    EXPECT_TRUE(Agent::putInForce(core_, {modelOf(row.commandLine), {{"b", modelOf(row.input)}}})) << row.why;
    EXPECT_EQ(core_.portChannels().all().size(), 1u) << row.why;
    EXPECT_FALSE(receive("eth1", flow(1)).passed()) << row.why;
  }
}

TEST_F(ForwarderTest, ARuleThatStaysKeepsItsCountAndAnotherBeginsAtZero) {
  const std::string bound = "interface eth1\n ip access-group A in\n";
  const auto matches = [this] {
    uint64_t sum = 0;
    std::set<Kiv::UniqueId> ids;
    for (const auto* rule :
         core_.inForce().lists()->config(Acl::AclType::ip)->acl("A")->currCfg()->ipRuleById().ordered()) {
      ids.insert(rule->key);
    }
    for (const auto& counters : core_.inForce().counters()) {
      for (auto at = counters->counterCollection().begin(); at; at.next()) {
        if (ids.contains(at.key().ruleId)) sum += at.value()->packets();
      }
    }
    return sum;
  };
  configure(bound + "ip access-list A\n 10 permit ip any any\n");
  receive("eth1", flow(1));
  receive("eth1", flow(2));
  EXPECT_EQ(matches(), 2u);
  configure(bound + "ip access-list A\n remark kept\n 10 permit ip any any\n 20 deny ip any any\n");
  receive("eth1", flow(1));
  EXPECT_EQ(matches(), 3u) << "the remark changes nothing";
  configure(bound + "ip access-list A\n 10 permit udp any any\n");
  receive("eth1", flow(1));
  EXPECT_EQ(matches(), 1u) << "a rule of its own";
}

/// Steps that have only process(), and write down when they are asked.
template <class Base, class Context>
class Watching final : public Base {
  ZEB_ENTITY(Watching, Base)
 public:
  Watching(const char* name, std::vector<std::string>& calls) : Base(name, 2000), calls_(calls) {
    this->stepFlagsIs(Base::enabled);
  }
  bool process(const Kelp::Ptr<Context>& ctx) override {
    const Velo::PacketContext* packet;
    if constexpr (requires { ctx->packetContext(); }) {
      packet = ctx->packetContext().get();
    } else {
      packet = ctx.get();
    }
    calls_.push_back(fmt::format("{} {}", this->name(), packet->traceId()));
    return packet->traceId() != 2;
  }

 private:
  std::vector<std::string>& calls_;
};

TEST_F(ForwarderTest, AStepWithoutABurstFormIsAskedForOnePacketAfterTheOther) {
  configure("");
  patch("eth1", "eth2");
  std::vector<std::string> calls;
  const auto& pipeline = core_.manager().pipeline();
  pipeline->addStep(Kelp::Ptr<Velo::InputPipelineStep>(
      MemSlab::make<Watching<Velo::InputPipelineStep, Velo::PacketContext>>("in", calls)));
  pipeline->addStep(Kelp::Ptr<Velo::OutputPipelineStep>(
      MemSlab::make<Watching<Velo::OutputPipelineStep, Velo::OutputPipelineContext>>("out", calls)));
  const Bytes frame = flow(1);
  forwarder_.burst().countIs(3);
  for (uint32_t i = 0; i < 3; ++i)
    forwarder_.burst().pkt(i).refer(frame, static_cast<uint32_t>(frame.size()), 1.0);
  EXPECT_EQ(forwarder_.receiveBurst(forwarder_.portIs("eth1")), 0b101u);
  EXPECT_EQ(calls, (std::vector<std::string>{"in 1", "out 1", "in 2", "in 3", "out 3"}));
  EXPECT_EQ(forwarder_.portIs("eth2").sent, 2u);
}

/// The allocations of `packets` packets, one by one and as many in bursts, once each frame has come in at
/// each port.
class AllocationTest : public ForwarderTest {
 protected:
  uint64_t allocationsOf(const std::vector<Bytes>& frames, const std::vector<const char*>& names,
                         uint64_t packets) {
    std::vector<Agent::Port*> ports;
    for (const char* name : names) ports.push_back(&forwarder_.portIs(name));
    const auto run = [&](uint64_t count) {
      for (uint64_t i = 0; i < count; i += frames.size()) {
        Agent::Port& port = *ports[i / frames.size() % ports.size()];
        for (const Bytes& each : frames) receive(port, each);
      }
      const auto size = static_cast<uint32_t>(frames.size());
      for (uint64_t i = 0; i < count; i += size) {
        forwarder_.burst().countIs(size);
        for (uint32_t f = 0; f < size; ++f) {
          forwarder_.burst().pkt(f).refer(frames[f], static_cast<uint32_t>(frames[f].size()), 1.0);
        }
        forwarder_.receiveBurst(*ports[i / size % ports.size()]);
      }
    };
    uint64_t before = allocationCount();
    run(frames.size() * ports.size());
    EXPECT_GT(allocationCount() - before, 0u)
        << "the counters were made: the libraries' allocations are counted";
    before = allocationCount();
    run(packets);
    return allocationCount() - before;
  }
};

TEST_F(AllocationTest, NothingIsAllocatedForAPacket) {
  configure(
      "mac access-list M\n permit any any\n"
      "ip access-list IN\n 10 deny tcp any any eq 23 mirror session S\n 20 permit udp any any mirror session "
      "S\n"
      " 30 permit tcp any any\n"
      "ip access-list OUT\n 10 permit udp any any\n 20 deny tcp any any eq 25\n 30 permit ip any any\n"
      "ipv6 access-list SIX\n permit tcp any any\n"
      "interface eth1\n mac access-group M in\n ip access-group IN in\n ipv6 access-group SIX in\n"
      "interface po1\n mac access-group M out\n ip access-group OUT out\n"
      "interface eth2\n ip access-group OUT out\n"
      "interface eth4\n ip access-group UNDEFINED in\n"
      "port-channel po1 members eth2 eth3\nmirror session S destination eth9 po9\nport-channel po9 members "
      "eth8\n");
  patch("eth1", "po1");
  patch("eth4", "eth5");
  Sink sink;
  for (const char* port : {"eth2", "eth3", "eth5", "eth9"}) forwarder_.portIs(port).sink = &sink;
  const auto ip = frame().eth().ip4("192.0.2.1", "192.0.2.2");
  const auto ip6 = frame().eth().ip6("2001:db8::1", "2001:db8::2");
  const std::vector<Bytes> frames = {
      flow(1),
      flow(2),
      FrameBuilder(ip).tcp(1, 23),
      FrameBuilder(ip).tcp(1, 25).payload(1400),
      frame().eth().vlan(5).ip4("192.0.2.1", "192.0.2.2").tcp(1, 80),
      FrameBuilder(ip).icmp(8),
      FrameBuilder(ip6).hopByHop().tcp(1, 80),
      FrameBuilder(ip6).udp(1, 80),
      frame().eth().arp("192.0.2.1", "192.0.2.2"),
  };
  constexpr unsigned packets = casesOf(1000000);
  EXPECT_EQ(allocationsOf(frames, {"eth1", "eth4", "eth3"}, packets), 0u);
  EXPECT_GT(sink.count, packets / 10);
  EXPECT_GT(forwarder_.portIs("eth9").mirrored, packets / 10);
  EXPECT_GT(forwarder_.portIs("eth1").droppedIn, packets / 10);
}

TEST_F(AllocationTest, NothingIsAllocatedForAMalformedFrame) {
  configure("");
  const std::vector<Bytes> frames = {Bytes{1, 2, 3},
                                     frame().eth().ip4("192.0.2.1", "192.0.2.2").udp(1, 2).totalLength(21)};
  EXPECT_EQ(allocationsOf(frames, {"eth1"}, 1000), 0u);
}

}  // namespace
