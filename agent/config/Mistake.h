#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// A place in a configuration text that could not be taken, and why. A value: readers collect mistakes and
/// hand all of them back, in the order of the text, at most one a line.
struct Mistake {
  std::string file;
  int line = 0;    ///< from 1
  int column = 0;  ///< of the offending word's first byte, from 1; a tab is one column
  std::string found;
  std::string expected;

  /// "FILE:LINE:COLUMN: found ..., expected ...", printable: no control characters come from the text.
  std::string str() const;
  bool operator==(const Mistake&) const = default;
};

/// A word of the text between quotes, cut short when it is very long.
std::string quote(std::string_view word);

/// "a", "a or b", "a, b or c".
std::string anyOf(const std::vector<std::string_view>& choices);

}  // namespace Config
