#pragma once

#include <memory>
#include <string>
#include <vector>

#include "classbench/Measure.h"
#include "classbench/Tuples.h"

namespace Bench {

/// DBTable with the same rules: five-tuples only, asked with keys that are ready in its own form. Of a build
/// that was not pointed to its sources there is none.
class DbTable {
 public:
  /// Null when there is none; says why. Takes the working folder and standard output of the process
  /// meanwhile, for it writes to both what nobody has asked for.
  static std::unique_ptr<DbTable> make(const std::vector<TupleRule>& rules, std::string* why);
  ~DbTable();

  /// The headers to answer.
  void headersAre(const std::vector<TupleHeader>& headers);

  /// The first rule that matches a header, or noRule.
  int32_t lookUp(size_t header) const;
  /// The answers to a portion of the headers.
  uint64_t lookUps(Portion portion) const;

 private:
  struct Context;
  DbTable();

  std::unique_ptr<Context> context_;
};

}  // namespace Bench
