#include <Kiv/UniqueId.h>
#include <agent/core/Memory.h>
#include <agent/core/Version.h>
#include <agent/state/PastTables.h>
#include <agent/state/StateFile.h>
#include <agent/state/Table.h>

#include <filesystem>
#include <iterator>
#include <new>
#include <optional>
#include <type_traits>
#include <utility>

namespace Agent {

namespace {

using Saved::State;
using Saved::Table;

/// Marks the file as one of this agent's ("velo").
constexpr int64_t applicationId = 0x76656c6f;
/// Ids are used before a state with them is written. So the file has a mark that is ahead of the highest id
/// in use, always by at least half of this.
constexpr uint64_t idsAhead = 1 << 20;
/// No agent uses so many ids. A mark above this would leave no room for new ones.
constexpr uint64_t mostIds = uint64_t{3} << 62;

/// How many tables of the past a file of an earlier version has; nothing if there was no such version.
constexpr std::optional<size_t> tablesOfPast(int64_t version) {
  constexpr size_t known[] = {0, 2, 3, 4};  // of version 1 and so on
  return version >= 1 && version <= std::ssize(known) ? std::optional(known[version - 1]) : std::nullopt;
}

constexpr const char* idsDefinition = "CREATE TABLE ids(given NOT NULL)";

constexpr auto tables =
    std::tuple(Table<Saved::Rule, 6>("rule", Saved::ruleColumns, &State::rules),
               Table<Saved::Counter, 8>("counter", Saved::counterColumns, &State::counters),
               Table<Saved::List, 6>("list", Saved::listColumns, &State::lists),
               Table<Saved::RuleStatus, 5>("ruleStatus", Saved::ruleStatusColumns, &State::ruleStatus),
               Table<Saved::Binding, 4>("binding", Saved::bindingColumns, &State::bindings));

template <class Visit>
void forEachTable(const Visit& visit) {
  std::apply([&](const auto&... table) { (visit(table), ...); }, tables);
}

/// Checks the ids of rules and lists: none may be a value that stands for "no id", and none may be above the
/// mark, or a new id could be the same.
void checkIds(const State& state) {
  if (state.highestId > mostIds) throw DatabaseError(SQLITE_CORRUPT, "the mark of used ids leaves none");
  const auto check = [&state](uint64_t id) {
    if (id == 0 || Kiv::UniqueId(id) == Kiv::UniqueId::unset())
      throw DatabaseError(SQLITE_CORRUPT, "an id is one that stands for none");
    if (id > state.highestId) throw DatabaseError(SQLITE_CORRUPT, "an id is beyond the mark of used ids");
  };
  for (const auto& row : state.rules) check(row.id);
  for (const auto& row : state.counters) check(row.id);
  for (const auto& row : state.ruleStatus) check(row.id);
  for (const auto& row : state.lists) {
    if (row.implicitId != 0) check(row.implicitId);  // 0: the list has none yet
  }
}

std::vector<std::string> definitions() {
  std::vector<std::string> all;
  forEachTable([&all](const auto& table) { all.push_back(table.definition()); });
  all.emplace_back(idsDefinition);
  for (std::string& definition : PastTables::definitions()) all.push_back(std::move(definition));
  return all;
}

/// Renames a file, and the files that SQLite keeps beside it.
void setAside(const std::string& path) {
  for (const char* part : {"", "-wal", "-shm", "-journal"}) {
    std::error_code missing;
    std::filesystem::rename(path + part, path + ".aside" + part, missing);
    if (missing) std::filesystem::remove(path + ".aside" + part, missing);
  }
}

/// Whether an error means that the content of the file is bad.
bool isDamage(const DatabaseError& error) {
  return error.code == SQLITE_CORRUPT || error.code == SQLITE_NOTADB || error.code == SQLITE_FORMAT ||
         error.code == SQLITE_ERROR || error.code == SQLITE_MISMATCH;
}

}  // namespace

std::unique_ptr<StateFile> StateFile::open(const std::string& path, std::string* message) {
  const auto attempt = [&path] { return std::unique_ptr<StateFile>(new StateFile(path)); };
  try {
    return attempt();
  } catch (const DatabaseError& error) {
    *message = fmt::format("{}: {}", path, error.what());
    if (!isDamage(error)) return nullptr;
  }
  setAside(path);
  *message += fmt::format("; it is set aside as {}.aside", path);
  try {
    return attempt();
  } catch (const DatabaseError& error) {
    *message += fmt::format("; a new one: {}", error.what());
    return nullptr;
  }
}

StateFile::StateFile(const std::string& path) : database_(path) {
  database_.run("PRAGMA locking_mode = EXCLUSIVE");
  database_.run("PRAGMA journal_mode = WAL");
  database_.run("PRAGMA synchronous = NORMAL");
  const bool fresh = database_.integer("SELECT count(*) FROM sqlite_schema") == 0;
  if (fresh) {
    create();
    writerIs();
    return;
  }
  const int64_t application = database_.integer("PRAGMA application_id");
  if (application != applicationId) throw DatabaseError(SQLITE_NOTADB, "no state of this agent");
  const int64_t found = database_.integer("PRAGMA user_version");
  if (const auto known = tablesOfPast(found)) {
    addTables(PastTables::definitions(), *known);
  } else if (found != version) {
    throw DatabaseError(SQLITE_NOTADB,
                        fmt::format("a state of version {}, not {}", found, int{version}).c_str());
  }
  Statement check = database_.statement("PRAGMA quick_check(1)");
  if (!check.step() || check.text(0) != "ok") throw DatabaseError(SQLITE_CORRUPT, "the file is damaged");
  check.run();
  checkTables();
  read();
  writerIs();
}

/// Who looks into the file is told which program has written it. Nothing here depends on it.
void StateFile::writerIs() {
  database_.run("CREATE TABLE IF NOT EXISTS program(version TEXT NOT NULL)");
  database_.run("DELETE FROM program");
  database_.run(fmt::format("INSERT INTO program VALUES('{}')", Agent::version()));
}

/// Makes a file of this version out of one that has only the first tables of the past.
void StateFile::addTables(const std::vector<std::string>& all, size_t there) {
  database_.run("BEGIN IMMEDIATE");
  for (size_t i = there; i < all.size(); ++i) database_.run(all[i]);
  database_.run(fmt::format("PRAGMA user_version = {}", int{version}));
  database_.run("COMMIT");
}

void StateFile::create() {
  database_.run("BEGIN IMMEDIATE");
  for (const std::string& definition : definitions()) database_.run(definition);
  database_.run("INSERT INTO ids VALUES(0)");
  database_.run(fmt::format("PRAGMA application_id = {}", applicationId));
  database_.run(fmt::format("PRAGMA user_version = {}", int{version}));
  database_.run("COMMIT");
}

/// A table with other columns would only be found out when a write to it fails.
void StateFile::checkTables() {
  const std::vector<std::string> wanted = definitions();
  Statement query =
      database_.statement("SELECT sql FROM sqlite_schema WHERE name != 'program' ORDER BY rowid");
  std::vector<std::string> found;
  while (query.step()) found.push_back(query.text(0));
  if (found != wanted) throw DatabaseError(SQLITE_CORRUPT, "its tables are not those of this version");
}

void StateFile::read() {
  forEachTable([this](const auto& table) { state_.*table.rowsOf = table.read(database_); });
  if (database_.integer("SELECT count(*) FROM ids") != 1)
    throw DatabaseError(SQLITE_CORRUPT, "there is not one mark of used ids");
  state_.highestId = static_cast<uint64_t>(database_.integer("SELECT given FROM ids"));
  checkIds(state_);
  past_ = PastTables::read(database_);
}

/// Carries out a write whole or not at all. Returns what went wrong.
template <class Write>
std::optional<std::string> StateFile::attempt(const Write& write) {
  try {
    write();
    return std::nullopt;
  } catch (const DatabaseError& error) {
    rollBack();
    return error.what();
  } catch (const std::bad_alloc&) {
    rollBack();
    return outOfMemory;
  }
}

std::optional<std::string> StateFile::write(State state) {
  forEachTable([&state](const auto& table) {
    auto& rows = state.*table.rowsOf;
    std::sort(rows.begin(), rows.end(), Saved::keyLess<typename std::decay_t<decltype(rows)>::value_type>);
  });
  const bool near = state.highestId + idsAhead / 2 > state_.highestId;
  state.highestId = near ? state.highestId + idsAhead : state_.highestId;
  if (auto wrong = attempt([&] { sync(state); })) return wrong;
  if (std::exchange(state.rulesUnchanged, false)) state.rules = std::move(state_.rules);
  state_ = std::move(state);
  return std::nullopt;
}

std::optional<std::string> StateFile::write(Past past) {
  const auto sync = [&] {
    rollBack();
    database_.run("BEGIN IMMEDIATE");
    PastTables::write(database_, past_, past);
    database_.run("COMMIT");
  };
  if (auto wrong = attempt(sync)) return wrong;
  past_ = std::move(past);
  return std::nullopt;
}

void StateFile::rollBack() noexcept {
  try {
    if (database_.inTransaction()) database_.run("ROLLBACK");
  } catch (const std::exception&) {
    // SQLite has rolled it back by itself, or the next write does.
  }
}

void StateFile::sync(const State& state) {
  rollBack();  // a write that could not be rolled back at its end
  database_.run("BEGIN IMMEDIATE");
  forEachTable([&](const auto& table) {
    if constexpr (std::is_same_v<decltype(table.rowsOf), std::vector<Saved::Rule> State::*const>) {
      if (state.rulesUnchanged) return;
    }
    table.write(database_, state_.*table.rowsOf, state.*table.rowsOf);
  });
  if (state.highestId != state_.highestId) {
    Statement ids = database_.statement("UPDATE ids SET given = ?");
    ids.bind(0, static_cast<int64_t>(state.highestId));
    ids.run();
  }
  database_.run("COMMIT");
}

}  // namespace Agent
