#pragma once

#include <agent/state/Columns.h>
#include <agent/state/Database.h>
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

/// Stores the rows of Saved::State in database tables.
namespace Agent::Saved {

/// A table for rows of one kind.
template <class Row, size_t Columns>
class Table {
 public:
  constexpr Table(std::string_view name, const std::array<const char*, Columns>& columns,
                  std::vector<Row> State::*rows)
      : rowsOf(rows), name_(name), columns_(columns) {}

  std::vector<Row> State::*const rowsOf;

  /// The statement that makes the table. The database keeps its text, so that it can be compared later.
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
    // The database sorts words as their values are sorted here, so that rows are in order already. Sorting
    // them again would delay the start of an agent.
    if (!std::is_sorted(rows.begin(), rows.end(), keyLess<Row>))
      std::sort(rows.begin(), rows.end(), keyLess<Row>);
    return rows;
  }

  /// Changes the table, which has the rows `before`, so that it has the rows `now`. Both are in the order of
  /// their keys.
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
