#pragma once

#include <Acl/Types.h>
#include <agent/models/Found.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace Models {

// Why documents of several models have something refused.
inline constexpr const char* noFlowLabel = "a rule cannot ask for a flow label";
inline constexpr const char* noInterface = "a rule cannot ask for an interface: lists are bound to them";
inline constexpr const char* noPacketLength = "a rule cannot ask for the length of a packet";
inline constexpr const char* onlyEthernet = "no such header in a list of Ethernet rules";

/// A condition on ports, as models have it.
struct PortWords {
  std::string words;  ///< of the language; empty: no condition
  At at;              ///< of the condition
  std::string path;

  bool given() const { return !words.empty(); }
};

/// The MAC address of one side of an Ethernet rule. Empty texts: not given.
struct MacLeaves {
  std::string address{}, mask{};  ///< the set bits of the mask are compared
};

/// What a model calls what becomes of a packet; empty: it has no such word.
struct ActionNames {
  std::string_view permit, deny, reject{};
  std::string_view log{}, noLog{};
};

/// A rule on its way from a document into the words of the configuration text, which say for every kind of
/// model what a rule is. Members that are not set ask for nothing.
struct RuleWords {
  Acl::AclType list = Acl::AclType::ip;
  std::optional<Acl::Action> action{};
  std::optional<uint16_t> vlan{};
  std::optional<uint8_t> protocol{};
  std::string source{}, destination{};  ///< `A/LENGTH`, of an IP rule
  MacLeaves sourceMac{}, destinationMac{};
  PortWords sourcePorts{}, destinationPorts{};
  std::optional<uint8_t> icmpType{}, icmpCode{};
  std::optional<uint8_t> dscp{}, ecn{}, hops{};
  std::string tcp{};  ///< `established`, or flags
  bool fragments = false;
  std::optional<uint16_t> etherType{};
  bool log = false;

  /// Whether it is for every packet of its kind of list.
  bool isEverything() const;
  /// The words behind the number. Keeps a mistake at the rule when they do not go together.
  std::string text(const Found& rule) const;

  /// Sets a protocol that a leaf asks for or implies; refuses the leaf when another one is set.
  void protocolIs(uint8_t number, const Found& found);
  /// Refuses a header that lists of this kind do not look at.
  void headerIs(Acl::AclType header, const Found& found) const;
  /// Sets the action, or whether it is logged, by a word of the model; refuses any other word.
  void actionIs(const ActionNames& names, const Found& found);
  void logIs(const ActionNames& names, const Found& found);
  /// Refuses a type that no rule can ask for.
  void etherTypeIs(uint16_t type, const Found& found);

 private:
  std::string protocolWord() const;
  std::string trafficClass(const Found& rule) const;
  void checkPorts(const PortWords& ports, const Found& rule) const;
  std::string ethernetText() const;
};

/// The text of a leaf that is to be `A/LENGTH` of the kind of list, empty for every address; refuses any
/// other.
std::string prefixWords(Acl::AclType list, const Found& found);

/// The text of a leaf that is to be a MAC address; refuses any other, and is empty then.
std::string macText(const Found& found);

/// What a rule for every packet of its kind of list has behind the action.
std::string everything(Acl::AclType list);
/// The kind of header that a list looks at, for people.
std::string_view typeText(Acl::AclType list);

/// The number of the ICMP protocol of a kind of list.
uint8_t icmpOf(Acl::AclType list);
/// Whether it is an extension header, which rules look behind.
bool isExtensionHeader(Acl::AclType list, uint8_t protocol);

}  // namespace Models
