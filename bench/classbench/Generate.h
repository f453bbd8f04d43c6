#pragma once

#include "classbench/Tuples.h"

namespace Bench {

/// The three kinds of rule sets that ClassBench tells apart: access lists of providers (long prefixes, exact
/// destination ports), firewalls (short prefixes and wildcards, ranges in both ports), chains of hosts
/// (in between, many pairs of networks).
enum class Style { acl, fw, ipc };
constexpr Style styles[] = {Style::acl, Style::fw, Style::ipc};
const char* nameOf(Style style);

/// `count` different rules of a style; the same ones for the same seed.
std::vector<TupleRule> generateRules(Style style, size_t count, uint64_t seed);

/// Headers at a random corner of a random rule, repeated as often as a Pareto distribution says: the way of
/// ClassBench, with bursts.
std::vector<TupleHeader> cornerHeaders(const std::vector<TupleRule>& rules, size_t count, uint64_t seed);
/// Headers anywhere inside a random rule, without repetition; one in 16 is fully random.
std::vector<TupleHeader> uniformHeaders(const std::vector<TupleRule>& rules, size_t count, uint64_t seed);

/// Both, as the traces of a set.
std::vector<Trace> tracesFor(const std::vector<TupleRule>& rules, size_t headers, uint64_t seed);

/// A set of a style with both traces.
RuleSet generateSet(Style style, size_t rules, size_t headers, uint64_t seed);

/// A set of the kind of another one and so many times as large, with traces of its own: the same rules
/// several times, each time with other addresses, whose prefixes nest as they did.
RuleSet grownSet(const RuleSet& set, size_t times, size_t headers, uint64_t seed);

}  // namespace Bench
