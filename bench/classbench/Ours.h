#pragma once

#include <Acl/Match.h>

#include <optional>

#include "classbench/Measure.h"
#include "classbench/Packets.h"

namespace Bench {

/// One of our lists in force, with what is measured of it. Rule i of those it was made from has the sequence
/// number i + 1.
template <class Rule>
class OurList {
 public:
  using Packet = PacketOf<Rule>;

  /// Fills the list, compiles it and puts it in force.
  explicit OurList(const std::vector<Rule>& rules);

  /// The first rule that matches, or noRule: by the look-up, and by the matcher, which gives the rule out.
  int32_t lookUp(const Packet& packet) const;
  int32_t match(const Packet& packet) const;
  /// The same of all packets, in bursts.
  std::vector<int32_t> lookUpBursts(const std::vector<Packet>& packets) const;
  /// The same by trying the rules in order.
  int32_t inOrder(const Packet& packet) const;

  /// The answers to a portion of the packets, as a number that depends on all of them.
  uint64_t lookUps(const std::vector<Packet>& packets, Portion portion) const;
  uint64_t matches(const std::vector<Packet>& packets, Portion portion) const;
  /// The same with 64 packets a call; of neighbours, whatever the portion's stride.
  uint64_t bursts(const std::vector<Packet>& packets, Portion portion) const;
  uint64_t inOrder(const std::vector<Packet>& packets, Portion portion) const;

  /// Takes rule i out of the list, or puts it in (again); the list stays in force.
  void ruleDel(size_t i);
  void ruleIs(size_t i);

  double fillNs() const { return fillNs_; }        ///< to put the rules in, processor time
  double compileNs() const { return compileNs_; }  ///< from then on until the compiled form is there
  int64_t bytes() const { return bytes_; }         ///< of heap that all of it took, the rules included
  int64_t lookUpBytes() const;                     ///< of the compiled form

 private:
  template <class Take>
  void eachBurst(const std::vector<Packet>& packets, size_t count, const Take& take) const;

  const std::vector<Rule> rules_;
  Kelp::Ptr<Acl::AclSubConfig> filled_;
  Kelp::Ptr<const Acl::AclConfig> list_;
  double fillNs_ = 0, compileNs_ = 0;
  int64_t bytes_ = 0;
};

extern template class OurList<Acl::IpRule>;
extern template class OurList<Acl::Ip6Rule>;
extern template class OurList<Acl::MacRule>;

}  // namespace Bench
