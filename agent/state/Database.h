#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

namespace Agent {

/// What SQLite says about a file; stays within agent/state.
class DatabaseError : public std::runtime_error {
 public:
  DatabaseError(int what, const char* text) : std::runtime_error(text), code(what & 0xff) {}
  const int code;  ///< SQLITE_CORRUPT and so on, without its extension
};

/// A statement of a database, to be run any number of times. Columns and parameters are counted from 0.
class Statement {
 public:
  Statement(sqlite3* database, std::string_view text);

  void bind(int parameter, std::string_view value);
  void bind(int parameter, int64_t value);
  void bind(int parameter, double value);
  /// Goes to the next row; false, and ready to be run again, when there is none.
  bool step();
  /// Runs to the end.
  void run() {
    while (step()) {
    }
  }
  /// A column that has another type is no column of this agent's: DatabaseError.
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

/// An open database file of this process alone. One thread at a time. Everything throws DatabaseError.
class Database {
 public:
  explicit Database(const std::string& path);

  Statement statement(std::string_view text) { return {database_.get(), text}; }
  void run(const std::string& text) { statement(text).run(); }
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
