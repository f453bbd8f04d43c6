#pragma once

#include "../support/Dice.h"
#include "DifferentialModel.h"

namespace TestSupport::Differential {

/// Rules and packets of one list that have to do with each other: addresses below a few heads, so that
/// prefixes nest and cross; ports, hops and the like from what other rules ask, and one beside that. What a
/// list is made of mostly (prefixes, wildcards, ports, ...) is drawn once for it.
template <class Rule>
class Generator {
 public:
  explicit Generator(Dice& dice);

  /// How many rules this list has to start with: nothing, a handful, or up to some thousand.
  size_t size() const { return size_; }
  /// Any sequence number: in some lists few, so that rules share them.
  uint32_t sequence();
  Kiv::UniqueId id();
  Rule rule();
  /// A packet that is inside, at the edge of, or next to some of the rules so far.
  Fields packet();

 private:
  struct Column {
    U128 value = 0, mask = 0;
  };
  struct Made {
    Column source, destination;
    Rule rule;
  };

  Column column();
  U128 near(const Column& column, bool inside);
  void baseNear(Fields& packet, const Acl::IpFilterBase& filter, bool inside);
  uint16_t portNear(const Acl::PortMatch& match, bool inside);
  void baseOf(Acl::IpFilterBase& filter);
  template <class Filter>
  void someAlternatives(Filter& filter);
  void someVlan(Acl::VlanMatch& vlan);
  Acl::PortMatch ports();
  uint16_t port();
  const Made* someMade() { return made_.empty() ? nullptr : &dice_.of(made_); }

  Dice& dice_;
  std::vector<U128> heads_;
  std::vector<unsigned> kinds_;  // of address columns: each place a kind, drawn from
  std::vector<uint16_t> portPool_;
  bool marksOnly_;      // rules tell packets apart by TTL and traffic class alone
  unsigned moreIn_;     // one rule in so many asks something of the other fields; 0: none does
  uint32_t sequences_;  // up to this number
  size_t size_;
  std::vector<Made> made_;  // the latest ones
  size_t nextMade_ = 0;
};

extern template class Generator<Acl::IpRule>;
extern template class Generator<Acl::Ip6Rule>;
extern template class Generator<Acl::MacRule>;

}  // namespace TestSupport::Differential
