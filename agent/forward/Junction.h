#pragma once

#include <Nimnet/EthHdr.h>
#include <Nimnet/IntfId.h>
#include <Velo/ParsedPacket.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Agent {

struct Port;
class Junction;

/// A place where frames enter and leave a junction: a port, or a port-channel with its members. Owned by the
/// forwarder, which keeps the members up to date. Its address does not change while it belongs to a junction.
struct End {
  Nimnet::IntfId id;
  Junction* junction = nullptr;  ///< what it belongs to; null: frames from here go nowhere
  std::vector<Port*> members;    ///< a port is its own only member
  std::vector<Port*> usable;     ///< the members that are up; all of them when none is
};

/// Joins ends: says by which ends a frame leaves that came in at another. Whether the frame then passes is
/// not its business: the egress pipeline is asked for each end separately.
class Junction {
 public:
  virtual ~Junction() = default;

  /// Learns from a frame that came in at an end and passed there. `vlan` is the id of its outer tag, 0 for
  /// none.
  virtual void learn(End& from, const Nimnet::EthHdr& eth, uint16_t vlan);
  /// The ends that such a frame leaves by; empty when it goes nowhere. `from` may be among them, and the
  /// caller leaves it out. The result is valid until the next call of any function.
  virtual std::span<End* const> targets(const End& from, const Nimnet::EthHdr& eth, uint16_t vlan) const = 0;
  /// The header that it is asked with. It stands for that of a malformed frame that was let through without
  /// one, too: from nobody, to nobody.
  static const Nimnet::EthHdr& headerOf(const Velo::ParsedPacket& packet) {
    static constexpr Nimnet::EthHdr none{};
    const Nimnet::EthHdr* found = packet.ethPacket()->ethHdr();
    return found ? *found : none;
  }
  /// Whether it asks for the addresses of a frame.
  virtual bool asksAddresses() const { return true; }
  /// Forgets what was learned about an end, because it is down.
  virtual void forget(const End& end);
  /// How an end is joined, for people: "patched to eth2".
  virtual std::string text(const End& end) const = 0;
};

inline void Junction::learn(End&, const Nimnet::EthHdr&, uint16_t) {}
inline void Junction::forget(const End&) {}

/// Joins two ends: frames that come in at one leave by the other.
class Patch final : public Junction {
 public:
  Patch(End& a, End& b) : ends_{&a, &b} {}
  std::span<End* const> targets(const End& from, const Nimnet::EthHdr&, uint16_t) const override {
    return {&other(from), 1};
  }
  bool asksAddresses() const override { return false; }
  std::string text(const End& end) const override { return "patched to " + other(end)->id.name().str(); }

 private:
  End* const& other(const End& end) const { return ends_[&end == ends_[0] ? 1 : 0]; }

  End* const ends_[2];
};

}  // namespace Agent
