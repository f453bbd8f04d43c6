// The part of the forwarder that handles many packets at once, see BurstPlan.
#include <agent/forward/Forwarder.h>

#include <algorithm>
#include <bit>

namespace Agent {

namespace {

using Velo::forEachPacket, Velo::packetsFrom, Velo::PacketSet;

/// When the plan of a burst does not hold for the second time, the rest is handled one by one: to plan costs
/// more than it saves where the configuration changes with every other packet.
constexpr int mostPlans = 2;
/// Where most packets are alone, because somebody follows what all of them meet, so many bursts go by before
/// another one is planned.
constexpr uint32_t burstsUnplanned = 15;

}  // namespace

PacketSet Forwarder::receiveBurst(Port& port) {
  const uint32_t count = plan_.packets.count();
  PacketSet passed = 0;
  uint32_t next = 0;
  if (port.unplanned > 0) {
    --port.unplanned;
  } else {
    for (int plans = 0; next < count && plans < mostPlans && planFrom(port, next); ++plans) {
      if (std::popcount(plan_.alone) * 4 > static_cast<int>(count) * 3) port.unplanned = burstsUnplanned;
      next = carryOut(port, next, passed);
    }
  }
  for (; next < count; ++next) passed |= PacketSet{receiveAlone(port, next)} << next;
  return passed;
}

bool Forwarder::receiveAlone(Port& port, uint32_t packet) {
  ctx_->pkt()->refer(plan_.packets.pkt(packet));
  return receive(port).passed();
}

bool Forwarder::planFrom(const Port& port, uint32_t first) {
  const Velo::AllGenericPipelineSteps& pipeline = *core_.manager().pipeline();
  if (observer_ || !pipeline.inputForms(plan_.in) || !pipeline.outputForms(plan_.out)) return false;
  if (first == 0) plan_.packets.parse();
  plan_.in.begin();
  plan_.out.begin();
  plan_.wiring = wiring_;
  const PacketSet asked = packetsFrom(first, plan_.packets.count());
  const Velo::BurstVerdicts in = plan_.in.judge(plan_.packets, asked, {port.id, port.portChannel});
  plan_.alone = in.alone;
  plan_.droppedIn = in.dropped;
  plan_.droppedOut = 0;
  planEgress(port, asked & ~(in.alone | in.dropped));
  return true;
}

void Forwarder::planEgress(const Port& port, PacketSet packets) {
  Port* all = port.entry && port.entry->junction ? egressOfAll(*port.entry, packets) : nullptr;
  plan_.egress.fill(all);
  if (all) return judgeEgress(*all, packets);
  if (!port.entry || !port.entry->junction) return;
  PacketSet leave = 0;
  forEachPacket(packets, [&](uint32_t i) {
    bool several = false;
    plan_.egress[i] = soleEgress(*port.entry, i, several);
    plan_.alone |= PacketSet{several} << i;
    leave |= PacketSet{plan_.egress[i] != nullptr} << i;
  });
  while (leave != 0) {
    const Port* to = plan_.egress[static_cast<uint32_t>(std::countr_zero(leave))];
    PacketSet here = 0;
    forEachPacket(leave, [&](uint32_t i) { here |= PacketSet{plan_.egress[i] == to} << i; });
    judgeEgress(*to, here);
    leave &= ~here;
  }
}

void Forwarder::judgeEgress(const Port& to, PacketSet packets) {
  const Velo::BurstVerdicts out = plan_.out.judge(plan_.packets, packets, {to.id, to.portChannel});
  plan_.alone |= out.alone;
  plan_.droppedOut |= out.dropped;
}

Port* Forwarder::egressOfAll(const End& entry, PacketSet packets) {
  if (packets == 0 || entry.junction->asksAddresses()) return nullptr;
  auto& [pkt, parsed] = plan_.packets.packet(static_cast<uint32_t>(std::countr_zero(packets)));
  const auto targets = entry.junction->targets(entry, Junction::headerOf(parsed), pkt.vlanId());
  if (targets.size() != 1 || targets.front() == &entry) return nullptr;
  return targets.front()->usable.size() == 1 ? targets.front()->usable.front() : nullptr;
}

Port* Forwarder::soleEgress(const End& entry, uint32_t packet, bool& several) {
  auto& [pkt, parsed] = plan_.packets.packet(packet);
  Port* sole = nullptr;
  for (const End* to : entry.junction->targets(entry, Junction::headerOf(parsed), pkt.vlanId())) {
    Port* egress = to == &entry ? nullptr : egressPort(*to, parsed);
    if (!egress) continue;
    if (sole) {
      several = true;
      return nullptr;
    }
    sole = egress;
  }
  return sole;
}

bool Forwarder::planHolds() const {
  const Velo::AllGenericPipelineSteps& pipeline = *core_.manager().pipeline();
  Velo::BurstForms in, out;
  return !observer_ && plan_.wiring == wiring_ && pipeline.inputForms(in) && in == plan_.in &&
         pipeline.outputForms(out) && out == plan_.out && plan_.in.holds() && plan_.out.holds();
}

uint32_t Forwarder::carryOut(Port& port, uint32_t first, PacketSet& passed) {
  const uint32_t count = plan_.packets.count();
  for (uint32_t next = first;;) {
    const PacketSet alone = plan_.alone & packetsFrom(next, count);
    uint32_t end = alone != 0 ? static_cast<uint32_t>(std::countr_zero(alone)) : count;
    end = learnUpTo(port, next, end);
    passed |= carryOutAll(port, packetsFrom(next, end));
    if (end == count) return count;
    for (next = end; next < count && (plan_.alone >> next & 1) != 0; ++next) {
      passed |= PacketSet{receiveAlone(port, next)} << next;
    }
    if (next == count || !planHolds()) return next;
  }
}

uint32_t Forwarder::learnUpTo(const Port& port, uint32_t first, uint32_t end) {
  End* entry = port.entry;
  if (!entry || !entry->junction || !entry->junction->asksAddresses()) return end;
  for (uint32_t i = first; i < end; ++i) {
    if ((plan_.droppedIn >> i & 1) != 0) continue;
    const auto& [pkt, parsed] = plan_.packets.packet(i);
    entry->junction->learn(*entry, Junction::headerOf(parsed), pkt.vlanId());
    bool several = false;
    if (soleEgress(*entry, i, several) == plan_.egress[i] && !several) continue;
    plan_.alone |= PacketSet{1} << i;
    return i;
  }
  return end;
}

PacketSet Forwarder::carryOutAll(Port& port, PacketSet packets) {
  const PacketSet in = packets & ~plan_.droppedIn;
  plan_.in.act(plan_.packets, packets);
  plan_.out.act(plan_.packets, in);
  port.received += static_cast<uint32_t>(std::popcount(packets));
  port.droppedIn += static_cast<uint32_t>(std::popcount(packets & plan_.droppedIn));
  forEachPacket(packets, [&](uint32_t i) {
    plan_.packets.pkt(i).traceIdIs(++lastTraceId_);
    if ((in >> i & 1) == 0) return;
    Port* egress = plan_.egress[i];
    if (!egress) {
      ++port.nowhere;
    } else if ((plan_.droppedOut >> i & 1) != 0) {
      ++egress->droppedOut;
    } else {
      ++egress->sent;
      if (egress->sink) egress->sink->send(plan_.packets.pkt(i));
    }
  });
  return in & ~plan_.droppedOut;
}

}  // namespace Agent
