#pragma once

#include <agent/config/Cursor.h>

#include <initializer_list>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace Config {

/// The names that a word was most likely meant to be: at most three, all of the same and least distance, in
/// their order. None when all are far off. Characters that are left out, too many, wrong or exchanged with
/// the next one count 1 each, and so does all that a shortened name leaves out; capitals count nothing.
std::vector<std::string_view> nearestNames(std::string_view word, std::span<const std::string_view> names);

/// A sentence, and behind it what was probably meant, if that is known: "... (did you mean af13?)".
std::string orMeant(std::string sentence, std::string_view meant);

/// What was expected, and behind it the nearest names: "a DSCP name or 0 to 63 (did you mean af13?)".
std::string orNearest(std::string expected, std::string_view word, std::span<const std::string_view> names);

/// Keeps a mistake at the next word, with the nearest of some names, and returns false.
bool failNear(Cursor& at, std::string expected, std::initializer_list<std::string_view> names);

/// The names of a table.
template <class Table>
std::vector<std::string_view> namesOf(const Table& table) {
  std::vector<std::string_view> names;
  for (const auto& row : table) names.push_back(row.name);
  return names;
}

}  // namespace Config
