#pragma once

#include "../../Acl/DifferentialModel.h"
#include "../../support/Dice.h"

#include <vector>

namespace TestSupport {

/// A few conditions, and a few operands for each, so that some thousand packets stand for all that there can
/// be: no rule made here tells two packets apart that the same one of `packets` stands for.
template <class Rule>
struct SmallWorld {
  explicit SmallWorld(Dice& dice);

  Rule rule(uint32_t sequence);
  std::vector<Differential::Fields> packets() const;

 private:
  enum Condition : unsigned {
    source,
    destination,
    vlan,
    protocol,
    trafficClass,
    hops,
    later,
    sourcePort,
    destinationPort,
    icmp,
    flags,
    etherType,
    conditions
  };
  bool has(Condition condition) const { return asked_ & (1u << condition); }
  bool asks(Condition condition) { return has(condition) && dice_.once(2); }
  bool needsL4() const { return has(sourcePort) || has(destinationPort) || has(icmp) || has(flags); }
  Acl::PortMatch ports();
  template <class Filter>
  void addressesOf(Filter& filter);
  void baseOf(Acl::IpFilterBase& filter);

  Dice& dice_;
  unsigned asked_ = 0;
};

extern template struct SmallWorld<Acl::IpRule>;
extern template struct SmallWorld<Acl::Ip6Rule>;
extern template struct SmallWorld<Acl::MacRule>;

}  // namespace TestSupport
