#pragma once

#include <optional>
#include <string>
#include <vector>

#include "classbench/Checks.h"
#include "classbench/Peer.h"

namespace Bench {

/// The look-ups of librte_acl as a contender beside ours. Where there is no peer, nobody joins in, and what
/// tables show of it is empty. The peer and the packets outlive it.
class PeerLookUps {
 public:
  template <class Packet>
  PeerLookUps(Peer* peer, const std::vector<Packet>& packets) : peer_(peer) {
    if (peer_) peer_->packetsAre(packets);
  }
  PeerLookUps(const PeerLookUps&) = delete;
  PeerLookUps& operator=(const PeerLookUps&) = delete;

  /// Throws WrongAnswer, see check().
  void checkAgainst(const std::vector<int32_t>& expected, const std::string& where) const {
    if (peer_) check("librte_acl", where, expected, [this](size_t i) { return peer_->lookUp(i); });
  }
  void joinIn(std::vector<Contender*>& all) {
    if (peer_) all.push_back(&contender_);
  }

  /// When it has been timed: ns of a look-up, and in how many of ours that time goes.
  Cell ns() const { return peer_ ? Cell(contender_.ns) : Cell(); }
  std::optional<double> ratioTo(const Contender& ours) const {
    return peer_ ? std::optional(ratioOf(contender_, ours)) : std::nullopt;
  }
  /// How many times as long as a look-up of the peer something takes, in ns.
  std::optional<double> timesAsLong(double ns) const {
    return peer_ ? std::optional(ns / contender_.ns.median) : std::nullopt;
  }

 private:
  Peer* const peer_;
  Contender contender_{"rte_acl", [this](Portion portion) { return peer_->lookUps(portion); }};
};

/// Notes a ratio that there is, and returns it for a table.
inline Cell noted(const std::optional<double>& ratio, std::vector<double>& all) {
  if (!ratio) return {};
  all.push_back(*ratio);
  return Number{*ratio, 2};
}

}  // namespace Bench
