#include <agent/show/Documents.h>
#include <agent/show/StatusPieces.h>

#include <string>

namespace Agent {

using Json = nlohmann::ordered_json;

namespace {

std::string textOf(const Kelp::String& text) { return text.str(); }
std::string textOf(const Nimnet::IntfId& intf) { return intf.name().str(); }
std::string textOf(const Kiv::UniqueId& id) { return id.str(); }
template <Acl::NamedEnum E>
std::string textOf(E value) {
  return std::string(Acl::stringValue(value));
}

Json jsonOf(const Kelp::String& text) { return text.view(); }
Json jsonOf(const Kiv::UniqueId& id) { return id.str(); }
Json jsonOf(const Acl::RuleStatus& rule) {
  return {{"hardwareMatches", rule.hardwareMatches},
          {"packets", rule.packets},
          {"lastMatch", rule.lastMatch},
          {"installed", rule.installed}};
}
Json jsonOf(const Acl::AclIntf& bindings);
Json jsonOf(const Acl::AclStatus& list);
Json jsonOf(const Acl::AclTypeStatus& lists);
template <class T>
Json jsonOf(const Zeb::Owned<T>& child) {
  return jsonOf(*child);
}

/// An object for any collection: its keys are the members.
template <class Map>
Json jsonOfMap(const Map& map) {
  Json object = Json::object();
  for (auto at = map.begin(); at; at.next()) object[textOf(at.key())] = jsonOf(at.value());
  return object;
}

Json jsonOf(const Acl::AclIntf& bindings) { return {{"intf", jsonOfMap(bindings.intf())}}; }

/// Everything about a list except its rules.
Json smallPartOf(const Acl::AclStatus& list) {
  return {{"implicitRuleStatus", jsonOfMap(list.implicitRuleStatus())},
          {"implicitRuleId", jsonOfMap(list.implicitRuleId())},
          {"counterUpdateTime", list.counterUpdateTime().seconds()}};
}

Json jsonOf(const Acl::AclStatus& list) {
  Json whole = smallPartOf(list);
  whole["ruleStatus"] = jsonOfMap(list.ruleStatus());
  return whole;
}

Json jsonOf(const Acl::AclTypeStatus& lists) {
  return {{"acl", jsonOfMap(lists.acl())}, {"intf", jsonOfMap(lists.intf())}};
}

}  // namespace

Json capabilitiesJson(const Acl::StatusDp& status) {
  Json object = Json::object();
  for (const Zeb::TypeData* type = &status.typeData(); type; type = type->base()) {
    for (const Zeb::Attribute* attribute : type->attributes()) {
      const std::any value = attribute->get(status);
      if (const bool* flag = std::any_cast<bool>(&value)) object[std::string(attribute->name())] = *flag;
    }
  }
  return object;
}

Json statusJson(const Acl::StatusDp& status) {
  Json object = capabilitiesJson(status);
  object["status"] = jsonOfMap(status.status());
  return object;
}

Json ruleStatusJson(const Acl::RuleStatus& rule) { return jsonOf(rule); }

Json listStatusJson(const Acl::AclStatus& list) { return smallPartOf(list); }

Json bindingsStatusJson(const Acl::AclTypeStatus& lists) { return jsonOfMap(lists.intf()); }

}  // namespace Agent
