#pragma once

#include <Acl/Match.h>

#include <array>
#include <bitset>
#include <memory>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

/// A second opinion on the matchers that is quick enough for millions of packets: packets as plain numbers,
/// and an oracle that has been told the rules one by one. It shares no code with the matchers; conditions
/// become sets of allowed numbers here.
namespace TestSupport::Differential {

__extension__ using U128 = unsigned __int128;

enum class L4 : uint8_t { none, tcp, udp, sctp, icmp };

/// A packet as numbers. Addresses are in the low bits; what a kind of list does not look at is not used.
struct Fields {
  U128 source = 0, destination = 0;
  uint8_t protocol = 0;
  bool protocolKnown = true;  ///< always, but for IPv6
  uint8_t trafficClass = 0;
  uint8_t hops = 64;
  bool later = false;  ///< a non-first fragment
  uint16_t vlan = 0;
  bool vlanKnown = true, hopsKnown = true;
  L4 l4 = L4::none;
  uint16_t sourcePort = 0, destinationPort = 0;
  uint8_t flags = 0, icmpType = 0, icmpCode = 0;
  uint16_t etherType = 0;

  std::string str() const;
};

/// The rules of one list in their order, as the oracle sees them.
template <class Rule>
class Oracle {
 public:
  struct Answer {
    const Rule* rule;
    Kiv::UniqueId id;
  };

  void ruleIs(Kiv::UniqueId id, const Rule& rule);
  void ruleDel(Kiv::UniqueId id);
  void clear();
  size_t size() const { return sequences_.size(); }

  /// The first rule that a packet meets; null when there is none.
  Answer first(const Fields& packet) const;

 private:
  struct Conditions;
  struct Place {
    uint32_t sequence;
    Kiv::UniqueId id;
    std::array<U128, 2> value, mask;  // source, destination
    std::shared_ptr<const Conditions> conditions;
    bool operator<(const Place& other) const {
      return sequence != other.sequence ? sequence < other.sequence : id < other.id;
    }
  };

  std::vector<Place> places_;                         // in the order of trial
  std::unordered_map<uint64_t, uint32_t> sequences_;  // by id
};

extern template class Oracle<Acl::IpRule>;
extern template class Oracle<Acl::Ip6Rule>;
extern template class Oracle<Acl::MacRule>;

/// Asks the matcher of a kind of rule; the packet's headers are made of its numbers.
bool askMatcher(const Fields& packet, const Kelp::Ptr<const Acl::AclConfig>& list, Acl::IpRuleConfig* rule,
                Kiv::UniqueId* id);
bool askMatcher(const Fields& packet, const Kelp::Ptr<const Acl::AclConfig>& list, Acl::Ip6RuleConfig* rule,
                Kiv::UniqueId* id);
bool askMatcher(const Fields& packet, const Kelp::Ptr<const Acl::AclConfig>& list, Acl::MacRuleConfig* rule,
                Kiv::UniqueId* id);

/// Asks for a burst of packets what rules of a list they meet first, if any.
using BurstAnswers = std::vector<std::optional<Kiv::UniqueId>>;
BurstAnswers askBurst(const std::vector<Fields>& packets, const Acl::AclSubConfig& list, const Acl::IpRule&);
BurstAnswers askBurst(const std::vector<Fields>& packets, const Acl::AclSubConfig& list, const Acl::Ip6Rule&);
BurstAnswers askBurst(const std::vector<Fields>& packets, const Acl::AclSubConfig& list, const Acl::MacRule&);

/// What a list's rule says.
template <class Rule>
Rule saidBy(const typename Rule::Config& config) {
  Rule rule;
  static_cast<Acl::RuleBase&>(rule) = config.base();
  rule.filter = config.filter();
  return rule;
}

/// What a rule asks, short enough to be read.
std::string describe(const Acl::IpRule& rule);
std::string describe(const Acl::Ip6Rule& rule);
std::string describe(const Acl::MacRule& rule);

}  // namespace TestSupport::Differential
