#pragma once

#include <VeloAcl/VeloDpAclStatusSm/StatusTrace.h>
#include <VeloAcl/VeloDpAclStatusSm/Streams.h>
#include <Zeb/System.h>

#include <string_view>

/// Values that several streams use.
namespace Velo::VeloAcl {

inline const char* text(const ListCfg& list) { return list ? "present" : "absent"; }
inline std::string_view text(const std::optional<Kelp::String>& name) {
  return name ? name->view() : std::string_view("absent");
}

/// The status of a new rule.
inline Acl::RuleStatus freshRuleStatus() { return {0, 0, Zeb::System::currentTime().seconds(), true}; }

/// The one implicit rule that this dataplane has.
inline constexpr auto dropType = Acl::ImplicitRuleType::drop;

}  // namespace Velo::VeloAcl
