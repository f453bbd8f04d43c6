#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/Model.h>

#include <string_view>

namespace Config {

/// Reads a rule from its action to the end of the line, in the form of its kind of list. Fills in everything
/// except the sequence number and the remark.
bool readIpRule(Cursor& at, Acl::IpRule* rule);
bool readIpRule(Cursor& at, Acl::Ip6Rule* rule);
bool readStandardRule(Cursor& at, Acl::IpRule* rule);
bool readMacRule(Cursor& at, Acl::MacRule* rule);

// Parts that several kinds of rule have.

bool readAction(Cursor& at, Acl::RuleBase* rule);
bool readVlan(Cursor& at, Acl::VlanMatch* vlan);
/// Reads `[log] [mirror session NAME]` to the end of the line. `before`: what else could have stood there,
/// for the mistake.
bool readTail(Cursor& at, Acl::RuleBase* rule, std::string_view before = {});

/// Whether a word ends the conditions of a rule: `log` or `mirror`.
inline bool isTailWord(std::string_view word) { return word == "log" || word == "mirror"; }

}  // namespace Config
