#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Agent {

/// An error of SQLite. It is only thrown within this room.
class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(int what, const char* text) : std::runtime_error(text), code(what & 0xff) {}
  const int code;  ///< the primary result code: SQLITE_CORRUPT and others
};

/// A statement of a database, which can be run any number of times. Columns and parameters are counted from
/// 0.
class Statement {
 public:
  Statement(sqlite3* database, std::string_view text);

  void bind(int parameter, std::string_view value);
  void bind(int parameter, int64_t value);
  void bind(int parameter, double value);
  /// Goes to the next row. False when there is none; then the statement can be run again.
  bool step();
  /// Runs to the end.
  void run() {
    while (step()) {
    }
  }
  // The columns of the current row. A value of another type is an error: this agent has not written it.
  std::string text(int column) const;
  int64_t integer(int column) const;
  double real(int column) const;

 private:
  void check(int result) const;
  struct Finalize {
    void operator()(sqlite3_stmt* statement) const { sqlite3_finalize(statement); }
  };
  sqlite3* const database_;
  std::unique_ptr<sqlite3_stmt, Finalize> statement_;
};

/// An open database file that only this process uses. Used by one thread at a time. All functions throw
/// DatabaseError.
class Database {
 public:
  explicit Database(const std::string& path);

  Statement statement(std::string_view text) { return {database_.get(), text}; }
  void run(const std::string& text) { statement(text).run(); }
  /// The value that a query gives: one row with one integer.
  int64_t integer(const std::string& text);
  /// Whether a transaction is open.
  bool inTransaction() const { return sqlite3_get_autocommit(database_.get()) == 0; }

 private:
  struct Close {
    void operator()(sqlite3* database) const { sqlite3_close(database); }
  };
  std::unique_ptr<sqlite3, Close> database_;
};

}  // namespace Agent
