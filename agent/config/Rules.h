#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/Groups.h>
#include <agent/config/Model.h>

#include <span>
#include <string_view>

namespace Config {

/// Reads a rule from its action to the end of the line, in the form of its kind of list. Fills in everything
/// except the sequence number and the remark. Groups that the rule names are given back; what they stand for
/// is no part of the rule yet.
bool readIpRule(Cursor& at, Acl::IpRule* rule, GroupNames* groups);
bool readIpRule(Cursor& at, Acl::Ip6Rule* rule, GroupNames* groups);
bool readStandardRule(Cursor& at, Acl::IpRule* rule, GroupNames* groups);
/// The same, and a bare address is a host: `permit 192.0.2.1`. Its text has `host` in front of the address,
/// as any standard list takes it.
bool readNumberedStandardRule(Cursor& at, Acl::IpRule* rule, GroupNames* groups);
bool readMacRule(Cursor& at, Acl::MacRule* rule, GroupNames* groups);

// Parts that several kinds of rule have.

bool readAction(Cursor& at, Acl::RuleBase* rule);
bool readVlan(Cursor& at, Acl::VlanMatch* vlan);
/// Reads `[log] [mirror session NAME]` to the end of the line. `before` is what else could have stood there,
/// and `names` the names of that, for the mistake.
bool readTail(Cursor& at, Acl::RuleBase* rule, std::string_view before = {},
              std::span<const std::string_view> names = {});

/// Whether a word ends the conditions of a rule: `log` or `mirror`.
inline bool isTailWord(std::string_view word) { return word == "log" || word == "mirror"; }

}  // namespace Config
