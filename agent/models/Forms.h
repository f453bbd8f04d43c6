#pragma once

#include <agent/config/Model.h>
#include <agent/models/Entries.h>

#include <map>
#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace Models {

using Json = nlohmann::ordered_json;

/// A list of a model with its entries in the order in which they are tried.
struct WrittenList {
  const Config::List* list;
  std::vector<Json> entries;
};

/// Something of a model: what lists and rules it can say, and how.
struct Form {
  std::string_view name;
  bool notEqual = false;      ///< it can ask for all ports but one
  bool logs = false;          ///< its rules can be logged
  bool remarks = false;       ///< its rules have remarks
  bool oneNameSpace = false;  ///< lists of all kinds have different names
  /// Why it has no such list; empty: it has.
  std::string (*whyNoList)(const Config::List& list, const Config::Model& model);
  /// An entry with an action, and log and remark if it has those; or why it cannot say what the entry asks
  /// for. A null entry is the end of a list, which drops the rest.
  Json (*entry)(const Entry& entry, std::string* why);
  Json (*end)(const Config::List& list);
  /// The whole document, with the bindings of the lists that it has.
  Json (*document)(const std::vector<WrittenList>& lists,
                   const std::map<Config::BindingKey, std::string>& bindings);
};

const Form& ietfForm();
const Form& openConfigForm();
const Form& sonicForm();

// What forms share.

/// The one port of a range of one; nothing for others.
inline std::optional<uint16_t> onePort(const Acl::PortMatch& match) {
  if (match.op != Acl::Compare::range || match.ports[0] != match.ports[1]) return std::nullopt;
  return match.ports[0];
}

/// The DSCP and ECN that are compared, if each is compared as a whole.
struct TrafficClass {
  bool right = true;
  std::optional<uint8_t> dscp{}, ecn{};
};
inline TrafficClass trafficClassOf(const Acl::IpFilterBase& filter) {
  TrafficClass all;
  const uint8_t dscpMask = filter.trafficClassMask & 0xfc, ecnMask = filter.trafficClassMask & 0x03;
  all.right = (dscpMask == 0 || dscpMask == 0xfc) && (ecnMask == 0 || ecnMask == 0x03);
  if (dscpMask) all.dscp = static_cast<uint8_t>(filter.trafficClass >> 2);
  if (ecnMask) all.ecn = static_cast<uint8_t>(filter.trafficClass & 0x03);
  return all;
}

/// "host" bits of a MAC address: the address, and the mask unless all bits are compared.
inline void writeMac(Json& into, const char* name, const char* mask, const Nimnet::EthAddr& address,
                     const Nimnet::EthAddr& bits) {
  if (bits.value() == 0) return;
  into[name] = address.str();
  if (bits.value() != 0xffffffffffff) into[mask] = bits.str();
}

}  // namespace Models
