#pragma once

#include <agent/state/Database.h>
#include <agent/state/State.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <concepts>
#include <limits>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

/// How the rows of Saved::State are kept in tables: a further kind of row is a description of its columns
/// here and a line in StateFile.cpp.
namespace Agent::Saved {

// A row's columns; the first `keys` of them tell it from all others.

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

/// A table for rows of one kind.
template <class Row, size_t Columns>
class Table {
 public:
  constexpr Table(std::string_view name, const std::array<const char*, Columns>& columns,
                  std::vector<Row> State::*rows)
      : rowsOf(rows), name_(name), columns_(columns) {}

  std::vector<Row> State::*const rowsOf;

  /// The statement that makes it, which the database remembers to the letter.
  std::string definition() const {
    std::string text = fmt::format("CREATE TABLE {}(", name_);
    for (const char* column : columns_) text += fmt::format("{} NOT NULL, ", column);
    return text + fmt::format("PRIMARY KEY({})) WITHOUT ROWID", join(keys, ", "));
  }

  /// All rows, in the order of their keys.
  std::vector<Row> read(Database& database) const {
    std::vector<Row> rows;
    Statement query = database.statement(fmt::format("SELECT {} FROM {}", join(Columns, ", "), name_));
    while (query.step()) {
      Row row;
      int column = 0;
      const auto take = [&](auto&... fields) { (readField(query, column++, fields), ...); };
      std::apply(take, mutableFields(row));
      rows.push_back(std::move(row));
    }
    // The words of a column sort as their values do, so that rows come in order; a start waits for this.
    if (!std::is_sorted(rows.begin(), rows.end(), keyLess<Row>))
      std::sort(rows.begin(), rows.end(), keyLess<Row>);
    return rows;
  }

  /// Makes the table, which has the rows `before`, have the rows `now`; both in the order of their keys.
  void write(Database& database, const std::vector<Row>& before, const std::vector<Row>& now) const {
    Statement put =
        database.statement(fmt::format("INSERT OR REPLACE INTO {} VALUES({})", name_, questions()));
    Statement take =
        database.statement(fmt::format("DELETE FROM {} WHERE {} = ?", name_, join(keys, " = ? AND ")));
    auto old = before.begin();
    for (const Row& row : now) {
      for (; old != before.end() && keyLess(*old, row); ++old) run(take, key(*old));
      const bool known = old != before.end() && key(*old) == key(row);
      if (!known || value(*old) != value(row)) run(put, std::tuple_cat(key(row), value(row)));
      if (known) ++old;
    }
    for (; old != before.end(); ++old) run(take, key(*old));
  }

 private:
  static constexpr size_t keys = std::tuple_size_v<decltype(key(std::declval<const Row&>()))>;

  static auto mutableFields(Row& row) {
    const auto all = std::tuple_cat(key(std::as_const(row)), value(std::as_const(row)));
    return std::apply(
        [](const auto&... fields) {
          return std::tie(const_cast<std::remove_cvref_t<decltype(fields)>&>(fields)...);
        },
        all);
  }

  static void readField(const Statement& query, int column, std::string& field) {
    field = query.text(column);
  }
  static void readField(const Statement& query, int column, double& field) {
    field = query.real(column);
    if (!std::isfinite(field)) throw DatabaseError(SQLITE_CORRUPT, "a number is out of its range");
  }
  template <std::unsigned_integral T>
  static void readField(const Statement& query, int column, T& field) {
    const int64_t value = query.integer(column);
    if (!std::in_range<T>(value)) throw DatabaseError(SQLITE_CORRUPT, "a number is out of its range");
    field = static_cast<T>(value);
  }
  static void readField(const Statement& query, int column, Id& field) {
    field = static_cast<uint64_t>(query.integer(column));
  }
  template <Acl::NamedEnum E>
  static void readField(const Statement& query, int column, E& field) {
    if (!Acl::sequenceToValue(query.text(column), &field))
      throw DatabaseError(SQLITE_CORRUPT, "a word is not known");
  }

  static void bindField(Statement& statement, int at, const std::string& field) { statement.bind(at, field); }
  static void bindField(Statement& statement, int at, double field) { statement.bind(at, field); }
  template <std::unsigned_integral T>
  static void bindField(Statement& statement, int at, T field) {
    constexpr uint64_t most = std::numeric_limits<int64_t>::max();
    statement.bind(at, static_cast<int64_t>(std::min<uint64_t>(field, most)));
  }
  static void bindField(Statement& statement, int at, Id field) {
    statement.bind(at, static_cast<int64_t>(uint64_t{field}));
  }
  template <Acl::NamedEnum E>
  static void bindField(Statement& statement, int at, E field) {
    statement.bind(at, Acl::stringValue(field));
  }
  template <class Fields>
  static void run(Statement& statement, const Fields& fields) {
    int at = 0;
    std::apply([&](const auto&... field) { (bindField(statement, at++, field), ...); }, fields);
    statement.run();
  }

  std::string join(size_t count, std::string_view between) const {
    return fmt::format("{}", fmt::join(columns_.data(), columns_.data() + count, between));
  }
  static std::string questions() {
    std::string text;
    for (size_t i = 0; i < Columns; ++i) text += i ? ", ?" : "?";
    return text;
  }

  const std::string_view name_;
  const std::array<const char*, Columns> columns_;
};

}  // namespace Agent::Saved
