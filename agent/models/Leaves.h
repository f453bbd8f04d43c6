#pragma once

#include <agent/models/Found.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace Models {

/// What is at a path of a model, and of which type.
enum class Kind {
  number,    ///< a number
  digits,    ///< a number that is written as a text
  text,      ///< any text
  identity,  ///< a name that the model or, with `why`, another one defines
  any,       ///< a number or a text
  whole,     ///< an object that is read by a table of its own
  values,    ///< any number of texts or numbers
  entries,   ///< any number of objects, told apart by their keys
  inside,    ///< an object; its own leaves have rows of their own
  ignored,   ///< without effect on traffic, whatever it has inside
  refused,   ///< what no list can do, whatever it has inside
};

/// What becomes of one leaf: a model is a table of these. What has no row, and no rows below it, is no part
/// of it.
template <class Target>
struct Row {
  std::string_view path;  ///< below the object that the table is for
  Kind kind;
  /// Carries the leaf over; or refuses it, see Found::refuse.
  void (*take)(Target& target, const Found& found) = nullptr;
  std::string_view why{};      ///< refused: the reason. entries: the leaves that are the key, with commas
  uint32_t low = 0, high = 0;  ///< of numbers
};

template <class Target>
constexpr Row<Target> number(std::string_view path, uint32_t low, uint32_t high,
                             void (*take)(Target&, const Found&)) {
  return {path, Kind::number, take, {}, low, high};
}
template <class Target>
constexpr Row<Target> digits(std::string_view path, uint32_t low, uint32_t high,
                             void (*take)(Target&, const Found&)) {
  return {path, Kind::digits, take, {}, low, high};
}

/// Reads an object by its table: every member once, of the right type, in the order of the table, whatever
/// the order of the document.
template <class Target, size_t size>
void readLeaves(const Found& object, const Row<Target> (&table)[size], Target& target) {
  std::vector<Leaf> leaves;
  for (const auto& row : table) leaves.push_back({row.path, row.kind, row.why, row.low, row.high});
  readLeaves(object, leaves, [&](size_t row, const Found& found) {
    if (table[row].take) table[row].take(target, found);
  });
}

}  // namespace Models
