#pragma once

#include <Acl/RuleConfig.h>
#include <Acl/Types.h>
#include <Kiv/UniqueId.h>
#include <Velo/PacketContext.h>

namespace Acl {

/// One list that was asked for a packet.
struct AskedList {
  enum class Outcome { undefined, matched, noMatch };

  AclDirection direction;
  const Nimnet::IntfId& intf;
  AclType type;
  const Kelp::String& list;
  Outcome outcome;                   ///< a list that is bound but not defined lets the packet pass
  Kiv::UniqueId ruleId{};            ///< for noMatch that of the implicit drop, or empty if it has none yet
  const RuleConfig* rule = nullptr;  ///< the rule that matched; valid during the call
};

/// A trial that is also told of every access list that is asked for the packet, in that order. The counters
/// of the lists are not changed.
class ListTrial : public Velo::PacketTrial {
 public:
  ~ListTrial() override;
  virtual void handleAsked(const AskedList& asked) = 0;
};

}  // namespace Acl
