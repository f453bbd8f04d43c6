#pragma once

#include "classbench/Run.h"
#include "classbench/Tuples.h"

/// What velo-bench measures, a table each. Every one checks all answers before it times them and throws
/// WrongAnswer when one is wrong.
namespace Bench {

/// One list against librte_acl, by set and trace, with the goals of the four sizes.
void measureSets(Run& run, const std::vector<RuleSet>& sets);
/// What it takes to build a list, what it occupies, and what a change of one rule costs.
void measureChanges(Run& run, const std::vector<RuleSet>& sets);
/// The same rules in IPv6, against themselves in IPv4 and against librte_acl.
void measureIp6(Run& run, const std::vector<RuleSet>& sets);
/// MAC lists against IPv4 lists of the same size.
void measureMac(Run& run, const std::vector<RuleSet>& sets);
/// Lists some of whose rules ask for more than the five fields, against the same lists without.
void measureFields(Run& run, const std::vector<RuleSet>& sets);
/// Lists of 1,000 rules and traffic that work against the structure, against benign ones and the rules in
/// order.
void measureWorst(Run& run, const std::vector<RuleSet>& sets);
/// Lists of a few rules against the rules in order.
void measureSmall(Run& run, const std::vector<RuleSet>& sets);
/// The whole verdict on a packet against the bare look-up of librte_acl.
void measurePath(Run& run, const std::vector<RuleSet>& sets);

}  // namespace Bench
