#pragma once

#include <agent/proof/Boxes.h>
#include <agent/proof/Condition.h>
#include <agent/study/PacketSearch.h>
#include <agent/study/PacketWay.h>
#include <nlohmann/json.hpp>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Agent {

/// The part of a question that is about packets of one kind. There is one at a time. All of it throws
/// Proof::LimitReached.
class SearchOfKind {
 public:
  /// `own`: of a question for what a rule decides about its list, which is on the way; else null.
  /// `limitsLeft`: those for the next piece of work.
  SearchOfKind(const PacketQuestion& asked, Acl::AclType type, const PacketWay& way, Proof::MetList own,
               const std::function<Proof::Limits()>& limitsLeft);

  /// Some packet is as the condition says.
  bool isPossible() const { return !among_.isEmpty(); }
  /// An element of `kinds`, see packetSearch(). That not all packets were found out is added to `unchecked`.
  nlohmann::ordered_json answer(nlohmann::ordered_json& unchecked) const;

 private:
  /// Packets that are wanted, and for which frames around them: those that the others let pass, or drop.
  struct Wanted {
    Proof::PacketSet packets;
    const Besides& besides;
    bool passes;
  };

  bool isOwn(size_t place) const { return own_ && lists_[place] == own_; }
  std::map<size_t, Besides> besidesOfPlaces(const PacketWay& way, Acl::AclType type,
                                            const std::function<Proof::Limits()>& limitsLeft) const;
  std::optional<Proof::Condition> conditionOf(Acl::AclType type) const;

  std::vector<Wanted> all() const;
  std::optional<std::string> one() const;
  std::optional<Proof::Packet> onePermitted(Proof::PacketSet among) const;
  std::optional<std::string> oneTakenOnWay() const;
  std::optional<std::string> exampleOf(const std::vector<Wanted>& wanted) const;
  nlohmann::ordered_json answerOf(const std::vector<Wanted>& wanted, nlohmann::ordered_json& unchecked) const;
  Proof::LooseBits loose() const;

  const PacketQuestion& asked_;
  const Proof::MetList own_;
  const PacketWay::Lists lists_;
  const std::map<size_t, Besides> besides_;  ///< by the place before which they are; made before the sets
  const Proof::RuleSets sets_;
  const std::optional<Proof::Condition> condition_;
  const Proof::PacketSet among_;
};

}  // namespace Agent
