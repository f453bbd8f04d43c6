#pragma once

#include "classbench/Tuples.h"

#include <filesystem>
#include <stdexcept>

namespace Bench {

/// A file that cannot be read: says which, the line and why.
class FileError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Reads a ClassBench rule file, a rule a line, plain or compressed by gzip:
/// `@SRC/len DST/len LOW : HIGH LOW : HIGH PROTO/MASK ...`; what follows is not looked at. A protocol mask is
/// 0x00 (any) or 0xFF.
std::vector<TupleRule> readRules(const std::filesystem::path& path);

/// Reads a trace, a header a line in decimal numbers, plain or compressed by gzip: source, destination,
/// source port, destination port, protocol, a number that is not looked at, first matching rule or -1.
/// Without the last one, what the rules say is used.
Trace readTrace(const std::filesystem::path& path, const std::vector<TupleRule>& rules);

/// A rule file with its traces; the set is named like the file, its traces by what their names add to that.
RuleSet readSet(const std::filesystem::path& rules, const std::vector<std::filesystem::path>& traces);
/// Every NAME.rules of a directory with every NAME.*trace*, smallest set first.
std::vector<RuleSet> readSets(const std::filesystem::path& directory);

}  // namespace Bench
