#pragma once

#include <agent/config/Cursor.h>
#include <agent/config/Model.h>

#include <string_view>

namespace Config {

/// Reads a rule from its action to the end of the line, in the form of its kind of list. Fills everything but
/// the sequence number and the remark.
bool readIpRule(Cursor& at, Acl::IpRule* rule);
bool readIpRule(Cursor& at, Acl::Ip6Rule* rule);
bool readStandardRule(Cursor& at, Acl::IpRule* rule);
bool readMacRule(Cursor& at, Acl::MacRule* rule);

/// The parts that several kinds of rule share. readTail() reads `[log] [mirror session NAME]` to the end of
/// the line; `before` is what else could have stood there, for the mistake.
bool readAction(Cursor& at, Acl::RuleBase* rule);
bool readVlan(Cursor& at, Acl::VlanMatch* vlan);
bool readTail(Cursor& at, Acl::RuleBase* rule, std::string_view before = {});

/// `log` or `mirror`: what ends the conditions of a rule.
inline bool isTailWord(std::string_view word) { return word == "log" || word == "mirror"; }

}  // namespace Config
