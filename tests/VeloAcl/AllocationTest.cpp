#include <cstdlib>
#include <new>

#include "../support/Sanitizers.h"
#include "World.h"

namespace {
size_t allocations = 0;
}

// GCC takes the pair below apart when it inlines one of them.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmismatched-new-delete"
#endif

void* operator new(size_t size) {
  ++allocations;
  if (void* place = std::malloc(size ? size : 1)) return place;
  throw std::bad_alloc();
}
void* operator new(size_t size, std::align_val_t align) {
  ++allocations;
  const size_t unit = static_cast<size_t>(align);
  if (void* place = std::aligned_alloc(unit, (size + unit - 1) / unit * unit)) return place;
  throw std::bad_alloc();
}
void operator delete(void* place) noexcept { std::free(place); }
void operator delete(void* place, size_t) noexcept { std::free(place); }
void operator delete(void* place, std::align_val_t) noexcept { std::free(place); }
void operator delete(void* place, size_t, std::align_val_t) noexcept { std::free(place); }

namespace {

using namespace TestSupport;

class Silent final : public Velo::MirrorTarget {
 public:
  void sendMirrored(const Kelp::Ptr<Velo::PacketContext>&, const Kelp::String&, const IntfId&) override {
    ++copies;
  }
  uint64_t copies = 0;
};

class Allocation : public World {
 protected:
  Allocation() {
    for (const char* intf : {"eth1", "po1"}) {
      for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) {
        for (AclDirection direction : {AclDirection::in, AclDirection::out}) bind(type, direction, intf);
      }
    }
    for (AclType type : {AclType::ip, AclType::ipv6, AclType::mac}) rule(type, 5, Action::permit, "W");
    Acl::IpRule noUdp;
    noUdp.sequence = 1, noUdp.action = Action::deny, noUdp.filter.protocolNamed = true,
    noUdp.filter.protocol = 17;
    list(AclType::ip)->ipRuleByIdIs(Kiv::UniqueId(uint64_t{6}), noUdp);
    bind(AclType::ipv6, AclDirection::in, "eth1", "EMPTY");
    list(AclType::ipv6, "EMPTY");
    implicitId(AclType::ipv6, Kiv::UniqueId(uint64_t{77}), "EMPTY");
    Velo::MirroringStepHelper::singleton()->targetIs(&silent);
  }

  /// Four packets each way: matched and mirrored, denied, implicitly dropped, no IP; with and without a
  /// port-channel.
  void round() {
    for (const bool member : {false, true}) {
      for (const Bytes* bytes : {&tcp, &udp, &six, &other}) {
        packet(*bytes);
        if (member) {
          ctx->ingressPortChannelIs(po1);
          ctx->egressPortChannelIs(po1);
        }
        plugin->aclHelper()->processPkt(ctx, AclDirection::in, eth1);
        plugin->aclHelper()->processPkt(ctx, AclDirection::out, eth1);
        calls += 2;
      }
    }
    agent.clock.advance(Kelp::Duration(0.001));
  }

  Silent silent;
  const Bytes tcp = tcp4(), udp = ip4().udp(1, 2), six = tcp6(), other = arp();
  const IntfId eth1{"eth1"}, po1{"po1"};
  uint64_t calls = 0;

  const Kelp::Ptr<Velo::PacketContext>& packet(const Bytes& bytes) {
    ctx->pkt()->assign(bytes, static_cast<uint32_t>(bytes.size()), 0);
    ctx->begin(eth1);
    return ctx;
  }
};

TEST_F(Allocation, ThePacketPathTakesNoMemoryOnceItsCountersExist) {
  round();
  const size_t countersAfterFirst = counted().size();
  calls = 0;
  const size_t before = allocations;
  constexpr uint64_t enough = casesOf(1'000'000);
  while (calls < enough) round();
  EXPECT_EQ(allocations - before, 0u) << "in " << calls << " calls";
  EXPECT_EQ(counted().size(), countersAfterFirst);
  EXPECT_GT(silent.copies, calls / 2) << "mirroring was part of it";
  EXPECT_EQ(named().size(), 2u) << "and so were both kinds of drop";
}

TEST_F(Allocation, TheCountIsReal) {
  const size_t before = allocations;
  round();
  EXPECT_GT(allocations, before) << "the first packets make counters";
}

}  // namespace
