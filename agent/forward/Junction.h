#pragma once

#include <Nimnet/EthHdr.h>
#include <Nimnet/IntfId.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace Agent {

struct Port;
class Junction;

/// An interface as a way in and out: a port, or a port-channel with its members. The Forwarder owns it and
/// keeps its members; it stays where it is as long as it belongs to a junction.
struct End {
  Nimnet::IntfId id;
  Junction* junction = nullptr;  ///< what it belongs to; null: frames from here go nowhere
  std::vector<Port*> members;    ///< a port is its own only member
  std::vector<Port*> usable;     ///< the members that are up; all of them when none is
};

/// What joins ends: says by which of them a frame leaves that came in at another. It knows ends, not frames'
/// fates: a frame passes the egress pipeline of each end on its own.
class Junction {
 public:
  virtual ~Junction() = default;

  /// Takes note of who sent a frame that passed on its way in; `vlan` is the id of its outer tag, 0 for none.
  virtual void learn(End& from, const Nimnet::EthHdr& eth, uint16_t vlan);
  /// The ends that such a frame leaves by; `from` may be among them and is to be left out. Empty: it goes
  /// nowhere. Holds until the next call of anything; changes nothing.
  virtual std::span<End* const> targets(const End& from, const Nimnet::EthHdr& eth, uint16_t vlan) const = 0;
  /// Forgets what was learned of an end, which is down.
  virtual void forget(const End& end);
  /// What an end of it is, for people: "patched to eth2".
  virtual std::string text(const End& end) const = 0;
};

inline void Junction::learn(End&, const Nimnet::EthHdr&, uint16_t) {}
inline void Junction::forget(const End&) {}

/// Two ends: what comes in at the one leaves by the other.
class Patch final : public Junction {
 public:
  Patch(End& a, End& b) : ends_{&a, &b} {}
  std::span<End* const> targets(const End& from, const Nimnet::EthHdr&, uint16_t) const override {
    return {&other(from), 1};
  }
  std::string text(const End& end) const override { return "patched to " + other(end)->id.name().str(); }

 private:
  End* const& other(const End& end) const { return ends_[&end == ends_[0] ? 1 : 0]; }

  End* const ends_[2];
};

}  // namespace Agent
