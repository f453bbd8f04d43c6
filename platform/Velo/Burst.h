#pragma once

#include <Nimnet/IntfId.h>
#include <Velo/NamedCounters.h>
#include <Velo/ParsedPacket.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cstdint>

namespace Velo {

/// Packets of a burst, a bit each: bit i is packet i.
using PacketSet = uint64_t;

/// Calls visit(i) for the packets of a set, in order.
template <class Visit>
[[gnu::always_inline]] inline void forEachPacket(PacketSet set, const Visit& visit) {
  for (; set != 0; set &= set - 1) visit(static_cast<uint32_t>(std::countr_zero(set)));
}

/// The packets from `begin` to before `end`.
constexpr PacketSet packetsFrom(uint32_t begin, uint32_t end) {
  const auto below = [](uint32_t n) { return n < 64 ? (PacketSet{1} << n) - 1 : ~PacketSet{0}; };
  return below(end) & ~below(begin);
}

/// Packets that one port has received at once, all parsed before the first of them is judged. Made once and
/// filled again; owns no frame.
class PacketBurst {
 public:
  static constexpr uint32_t most = 64;

  struct Packet {
    Nimnet::Pkt pkt;
    ParsedPacket parsed;
  };

  explicit PacketBurst(Kelp::Ptr<VeloNamedCounters> namedCounters)
      : namedCounters_(std::move(namedCounters)) {}

  /// How many packets there are; their frames are then given to pkt(i).
  void countIs(uint32_t count) { count_ = count; }
  uint32_t count() const { return count_; }
  Nimnet::Pkt& pkt(uint32_t i) { return packets_[i].pkt; }

  /// Parses all packets.
  void parse();

  const Packet& packet(uint32_t i) const { return packets_[i]; }
  Packet& packet(uint32_t i) { return packets_[i]; }
  PacketSet all() const { return packetsFrom(0, count_); }
  // By what the parse has found.
  PacketSet ethernet() const { return ethernet_; }
  PacketSet ip() const { return ip_; }
  PacketSet ip6() const { return ip6_; }
  PacketSet malformed() const { return malformed_; }

  /// Those that packet contexts have, too.
  VeloNamedCounters& namedCounters() const { return *namedCounters_; }

 private:
  const Kelp::Ptr<VeloNamedCounters> namedCounters_;
  uint32_t count_ = 0;
  PacketSet ethernet_ = 0, ip_ = 0, ip6_ = 0, malformed_ = 0;
  std::array<Packet, most> packets_;
};

/// Where packets are judged: the port that they have come in by, or leave by, and its port-channel, the empty
/// id for none.
struct BurstPlace {
  Nimnet::IntfId intf;
  Nimnet::IntfId portChannel;
};

/// What a step says of packets of a burst.
struct BurstVerdicts {
  PacketSet dropped = 0;  ///< process() would return false
  PacketSet alone = 0;    ///< this is not said of them: process() is to be called, each in its turn
};

/// The burst form of a step: finds out for many packets what process() would make of them, before anything is
/// done. It serves speed only. process() is the reference, and the packets of a burst are still handled in
/// order: whatever somebody is told of one of them, he sees what was done with the packets before it, and
/// what he changes holds for the packets behind it.
///
/// So judge() does nothing that can be noticed. A packet of which somebody would be told - a subscriber, a
/// mirror session, a trace - it leaves `alone`. What process() would do with the others nobody sees happen,
/// and act() does it for many of them at once. A step whose process() can change what packets are judged by
/// has no burst form. Packets of trials are in no burst, nor are mirrored copies.
class BurstForm {
 public:
  /// Forgets what was judged.
  virtual void begin() = 0;
  /// Judges the packets `asked` at a place. Packets may be judged at several places, one after the other.
  virtual BurstVerdicts judge(const PacketBurst& burst, PacketSet asked, const BurstPlace& place) = 0;
  /// Whether judge() would say the same again, of all that was judged since begin().
  virtual bool holds() const = 0;
  /// Does for the packets `done` what process() would have done beside its verdict, each once. They have been
  /// judged since begin(), and the verdicts hold.
  virtual void act(const PacketBurst& burst, PacketSet done) = 0;

 protected:
  ~BurstForm() = default;
};

/// The burst forms of the steps of a direction.
class BurstForms {
 public:
  static constexpr size_t most = 8;

  void clear() { count_ = 0; }
  /// False when there is no room.
  bool add(BurstForm* form) {
    if (count_ == most) return false;
    forms_[count_++] = form;
    return true;
  }

  // What BurstForm has, of all steps together: a packet that one of them drops, or leaves alone, the next are
  // not asked about.
  void begin();
  BurstVerdicts judge(const PacketBurst& burst, PacketSet asked, const BurstPlace& place);
  bool holds() const;
  void act(const PacketBurst& burst, PacketSet done);

  bool operator==(const BurstForms& other) const {
    return std::equal(forms_.begin(), forms_.begin() + count_, other.forms_.begin(),
                      other.forms_.begin() + other.count_);
  }

 private:
  size_t count_ = 0;
  std::array<BurstForm*, most> forms_{};
};

}  // namespace Velo
