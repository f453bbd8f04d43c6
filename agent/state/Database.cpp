#include <agent/state/Database.h>

namespace Agent {

namespace {

void require(bool is) {
  if (!is) throw DatabaseError(SQLITE_CORRUPT, "a value is not of its column's type");
}

}  // namespace

Statement::Statement(sqlite3* database, std::string_view text) : database_(database) {
  sqlite3_stmt* made = nullptr;
  check(sqlite3_prepare_v2(database, text.data(), static_cast<int>(text.size()), &made, nullptr));
  statement_.reset(made);
}

void Statement::check(int result) const {
  if (result != SQLITE_OK) throw DatabaseError(result, sqlite3_errmsg(database_));
}

void Statement::bind(int parameter, std::string_view value) {
  // With a null pointer SQLite would store NULL instead of an empty text.
  check(sqlite3_bind_text(statement_.get(), parameter + 1, value.empty() ? "" : value.data(),
                          static_cast<int>(value.size()), SQLITE_TRANSIENT));
}
void Statement::bind(int parameter, int64_t value) {
  check(sqlite3_bind_int64(statement_.get(), parameter + 1, value));
}
void Statement::bind(int parameter, double value) {
  check(sqlite3_bind_double(statement_.get(), parameter + 1, value));
}

bool Statement::step() {
  const int result = sqlite3_step(statement_.get());
  if (result == SQLITE_ROW) return true;
  const int failed = sqlite3_reset(statement_.get());
  if (result != SQLITE_DONE) check(failed == SQLITE_OK ? result : failed);
  return false;
}

std::string Statement::text(int column) const {
  require(sqlite3_column_type(statement_.get(), column) == SQLITE_TEXT);
  const auto* bytes = reinterpret_cast<const char*>(sqlite3_column_text(statement_.get(), column));
  return {bytes, static_cast<size_t>(sqlite3_column_bytes(statement_.get(), column))};
}
int64_t Statement::integer(int column) const {
  require(sqlite3_column_type(statement_.get(), column) == SQLITE_INTEGER);
  return sqlite3_column_int64(statement_.get(), column);
}
double Statement::real(int column) const {
  require(sqlite3_column_type(statement_.get(), column) == SQLITE_FLOAT);
  return sqlite3_column_double(statement_.get(), column);
}

Database::Database(const std::string& path) {
  sqlite3* opened = nullptr;
  const int result =
      sqlite3_open_v2(path.c_str(), &opened, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
  database_.reset(opened);
  if (result != SQLITE_OK) throw DatabaseError(result, opened ? sqlite3_errmsg(opened) : "no memory");
}

int64_t Database::integer(const std::string& text) {
  Statement query = statement(text);
  if (!query.step()) throw DatabaseError(SQLITE_CORRUPT, "a value is missing");
  return query.integer(0);
}

}  // namespace Agent
