#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// A place in a configuration text that could not be read, and why. Readers collect mistakes as values and
/// return all of them, in the order of the text, at most one for each line; a document may have several in
/// one.
struct Mistake {
  std::string file;
  int line = 0;    ///< from 1
  int column = 0;  ///< of the first byte of the wrong word, from 1; a tab counts as one
  std::string found;
  std::string expected;

  /// "FILE:LINE:COLUMN: found ..., expected ...". Printable: control characters of the text are not in it.
  std::string str() const;
  bool operator==(const Mistake&) const = default;
};

/// All of them as texts: in answers and documents of JSON a mistake is its text, too.
std::vector<std::string> textsOf(const std::vector<Mistake>& mistakes);

/// "found ..., expected ...": what is said of a mistake behind its place.
std::string mistakeText(std::string_view found, std::string_view expected);

/// A word of the text in quotation marks, cut short when it is very long.
std::string quote(std::string_view word);

/// The choices as a text: "a", "a or b", "a, b or c".
std::string anyOf(const std::vector<std::string_view>& choices);

}  // namespace Config
