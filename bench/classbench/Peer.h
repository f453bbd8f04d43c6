#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "classbench/Measure.h"
#include "classbench/Packets.h"
#include "classbench/Run.h"

namespace Bench {

/// What the peer's memory is made of: large pages, as it usually has, or what our lists have as well.
enum class Pages { large, ordinary };
inline Pages peerPages = Pages::large;  ///< set before the peer is first used

/// librte_acl with the same rules, reading the same packets. Of a build without it there is none.
class Peer {
 public:
  /// Whether this build has the peer; starts it on first use. Says why not in `why`.
  static bool available(std::string* why);

  /// Null when it cannot build such a list; says why. With a lift, the same rules in IPv6.
  static std::unique_ptr<Peer> make(const std::vector<TupleRule>& rules, std::optional<Lift> lift,
                                    std::string* why);
  ~Peer();

  /// The packets to answer: each one's first octet of the IP header. They outlive the runs.
  template <class Packet>
  void packetsAre(const std::vector<Packet>& packets) {
    headers_.clear();
    for (const Packet& packet : packets) headers_.push_back(reinterpret_cast<const uint8_t*>(&packet));
  }

  /// The first rule that matches a packet, or noRule.
  int32_t lookUp(size_t packet) const;
  /// The answers to a portion of the packets, one a call.
  uint64_t lookUps(Portion portion) const;
  /// The same with 64 packets a call; of neighbours, whatever the portion's stride.
  uint64_t batches(Portion portion) const;

  double buildNs() const { return buildNs_; }  ///< rules in, ready to answer; processor time
  int64_t bytes() const { return bytes_; }     ///< of its memory, its rules included

 private:
  struct Context;
  Peer() = default;

  std::unique_ptr<Context> context_;
  std::vector<const uint8_t*> headers_;
  double buildNs_ = 0;
  int64_t bytes_ = 0;
};

/// What it took to build the peer; nothing without one.
inline std::optional<PeerBuild> buildOf(const std::unique_ptr<Peer>& peer) {
  return peer ? std::optional(PeerBuild{peer->buildNs(), peer->bytes()}) : std::nullopt;
}

}  // namespace Bench
