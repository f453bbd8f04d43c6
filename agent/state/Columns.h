#pragma once

#include <agent/state/State.h>

#include <array>
#include <tuple>

/// How rows of Saved::State are stored in columns. A further kind of row is a description of its columns
/// here, and a line in StateFile.cpp.
namespace Agent::Saved {

// The columns of each kind of row: those of its key, which identify the row, and those of its value.

inline constexpr std::array ruleColumns{"source", "type", "list", "sequence", "id", "text"};
inline auto key(const Rule& row) { return std::tie(row.source, row.type, row.list, row.sequence); }
inline auto value(const Rule& row) { return std::tie(row.id, row.text); }

inline constexpr std::array counterColumns{"collection", "direction", "type",  "list",
                                           "id",         "packets",   "bytes", "lastMatch"};
inline auto key(const Counter& row) {
  return std::tie(row.collection, row.direction, row.type, row.list, row.id);
}
inline auto value(const Counter& row) { return std::tie(row.packets, row.bytes, row.lastMatch); }

inline constexpr std::array listColumns{"type",       "name",    "counterUpdateTime",
                                        "implicitId", "packets", "lastMatch"};
inline auto key(const List& row) { return std::tie(row.type, row.name); }
inline auto value(const List& row) {
  return std::tie(row.counterUpdateTime, row.implicitId, row.packets, row.lastMatch);
}

inline constexpr std::array ruleStatusColumns{"type", "list", "id", "packets", "lastMatch"};
inline auto key(const RuleStatus& row) { return std::tie(row.type, row.list, row.id); }
inline auto value(const RuleStatus& row) { return std::tie(row.packets, row.lastMatch); }

inline constexpr std::array bindingColumns{"type", "direction", "interface", "list"};
inline auto key(const Binding& row) { return std::tie(row.type, row.direction, row.interface); }
inline auto value(const Binding& row) { return std::tie(row.list); }

template <class Row>
bool keyLess(const Row& a, const Row& b) {
  return key(a) < key(b);
}

}  // namespace Agent::Saved
