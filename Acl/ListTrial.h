#pragma once

#include <Acl/RuleConfig.h>
#include <Acl/Types.h>
#include <Kiv/UniqueId.h>
#include <Velo/PacketContext.h>

namespace Acl {

/// One list that a packet was held against.
struct AskedList {
  enum class Outcome { undefined, matched, noMatch };

  AclDirection direction;
  const Nimnet::IntfId& intf;
  AclType type;
  const Kelp::String& list;
  Outcome outcome;                   ///< a list that is bound but not defined lets the packet pass
  Kiv::UniqueId ruleId{};            ///< of noMatch the implicit drop's, empty when there is none yet
  const RuleConfig* rule = nullptr;  ///< of matched, for the call
};

/// A trial that also hears of every access list that the packet is held against, in the order in which they
/// are asked. The lists' counters stay as they are.
class ListTrial : public Velo::PacketTrial {
 public:
  ~ListTrial() override;
  virtual void handleAsked(const AskedList& asked) = 0;
};

}  // namespace Acl
