#pragma once

#include <VeloAcl/VeloDpAclStatusSm/AclWalkers.h>
#include <VeloAcl/VeloDpAclStatusSm/CurrCfgWalkers.h>
#include <VeloAcl/VeloDpAclStatusSm/IntfWalkers.h>
#include <VeloAcl/VeloDpAclStatusSm/RuleIdWalkers.h>

/// All walkers. Each one declares what it watches, its key in its parent, and what it does with an
/// element, with the parts of WalkerRow.h. The common code is in TreeWalker.h; how elements are scanned is in
/// Walker.h, how children are kept in Children.h, and how tasks are used in TopWalker.h. Operations with a
/// scan's number in their name (handle..., ...Reactor, task...) are the walkers' interface, one by one; what
/// they do is common code.
///
///   walker             watches                          elements                 child        scans
///   AclIntfConfigSm0   Acl::IntfConfig                  config[aclType]          ConfigSm1    0
///   ConfigSm1          Acl::IntfTypeConfig              intf[direction]          IntfSm2      0
///   IntfSm2            Acl::AclIntf                     intf[intfId]             -            0
///   AclConfigSm3       Acl::Config                      config[aclType]          ConfigSm4    1 2 3 4
///   ConfigSm4          Acl::AclTypeConfig               acl[aclName]             AclSm5 (2-4) 1 2 3 4
///   AclSm5             Acl::AclConfig                   currCfg                  CurrCfgSm6   2 3 4
///   CurrCfgSm6         Acl::AclSubConfig                ipRuleById[uid]          -            2
///                                                       ip6RuleById[uid]         -            3
///                                                       macRuleById[uid]         -            4
///   RuleIdsByAclSm7    LocalAttrStore                   ruleIdsByAcl[key]        RuleIdsByAclSm8   5
///   RuleIdsByAclSm8    the entry's holder               value                    ValueSm9     5
///   ValueSm9           Velo::Counter::RuleIdSet         ruleIds[uid]             -            5
