#pragma once

#include <nlohmann/json.hpp>

#include <string>
#include <variant>
#include <vector>

#include "classbench/Measure.h"

namespace Bench {

/// A number with as many digits behind the point as it is worth.
struct Number {
  double value;
  int digits = 1;
};
/// A held goal, or one that is not.
struct Verdict {
  bool met;
};
/// What a table shows in one place; nothing is shown as "-".
using Cell = std::variant<std::monostate, std::string, Number, Spread, Verdict>;

/// Figures under headings, for people as aligned text and for programs as JSON.
class Table {
 public:
  explicit Table(std::string title, std::vector<std::string> headings)
      : title_(std::move(title)), headings_(std::move(headings)) {}

  /// As many cells as there are headings.
  void rowIs(std::vector<Cell> cells) { rows_.push_back(std::move(cells)); }
  /// A sentence below the table.
  void noteIs(std::string note) { notes_.push_back(std::move(note)); }
  bool empty() const { return rows_.empty() && notes_.empty(); }

  /// Columns aligned; a spread as "median (low-high)"; verdicts in colour when asked.
  std::string text(bool coloured) const;
  /// Rows as objects by heading; a spread as {"median", "p10", "p90"}.
  nlohmann::json json() const;

 private:
  std::string title_;
  std::vector<std::string> headings_;
  std::vector<std::vector<Cell>> rows_;
  std::vector<std::string> notes_;
};

}  // namespace Bench
