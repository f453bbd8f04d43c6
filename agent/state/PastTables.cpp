#include <agent/state/PastTables.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <set>
#include <utility>

namespace Agent::PastTables {

namespace {

// Texts are stored beside a word that says whether there is one.
enum Column { number, time, what, who, source, summary, hasText, text, hasDifference, difference };

void bindShared(Statement& statement, int has, const SharedText& shared) {
  statement.bind(has, int64_t{shared != nullptr});
  statement.bind(has + 1, shared ? std::string_view(*shared) : std::string_view());
}

SharedText sharedIn(const Statement& statement, int has) {
  std::string stored = statement.text(has + 1);
  if (statement.integer(has) == 0) return nullptr;
  return std::make_shared<const std::string>(std::move(stored));
}

std::shared_ptr<const Change> changeIn(const Statement& row) {
  Change change;
  change.number = static_cast<uint64_t>(row.integer(number));
  change.time = row.real(time);
  change.what = row.text(what);
  change.who = row.text(who);
  change.source = row.text(source);
  change.summary = row.text(summary);
  change.text = sharedIn(row, hasText);
  change.difference = sharedIn(row, hasDifference);
  if (change.difference && !nlohmann::ordered_json::accept(*change.difference))
    throw DatabaseError(SQLITE_CORRUPT, "a difference is none");
  return std::make_shared<const Change>(std::move(change));
}

void put(Statement& statement, const Change& change) {
  statement.bind(number, static_cast<int64_t>(change.number));
  statement.bind(time, change.time);
  statement.bind(what, std::string_view(change.what));
  statement.bind(who, std::string_view(change.who));
  statement.bind(source, std::string_view(change.source));
  statement.bind(summary, std::string_view(change.summary));
  bindShared(statement, hasText, change.text);
  bindShared(statement, hasDifference, change.difference);
  statement.run();
}

void writeUnconfirmed(Database& database, const std::optional<Unconfirmed>& unconfirmed) {
  database.run("DELETE FROM unconfirmed");
  if (!unconfirmed) return;
  Statement statement = database.statement("INSERT INTO unconfirmed VALUES(?, ?)");
  statement.bind(0, std::string_view(*unconfirmed->refused));
  statement.bind(1, std::string_view(*unconfirmed->before));
  statement.run();
}

/// The row without a name says that the files are known, also when there are none.
void writeFiles(Database& database, const std::optional<FileDigests>& files) {
  database.run("DELETE FROM file");
  if (!files) return;
  Statement statement = database.statement("INSERT INTO file VALUES(?, ?)");
  const auto put = [&statement](std::string_view name, uint64_t digest) {
    statement.bind(0, name);
    statement.bind(1, static_cast<int64_t>(digest));
    statement.run();
  };
  put("", 0);
  for (const auto& [name, digest] : *files) put(name, digest);
}

std::optional<FileDigests> readFiles(Database& database) {
  std::optional<FileDigests> files;
  Statement rows = database.statement("SELECT name, digest FROM file");
  while (rows.step()) {
    if (!files) files.emplace();
    if (std::string name = rows.text(0); !name.empty())
      files->emplace(std::move(name), static_cast<uint64_t>(rows.integer(1)));
  }
  return files;
}

/// The row without a port says that it is known what is filtered, also when nothing is.
void writeFiltered(Database& database, const SharedFilteredPorts& filtered) {
  database.run("DELETE FROM filtered");
  if (!filtered) return;
  Statement statement = database.statement("INSERT INTO filtered VALUES(?, ?, ?, ?, ?, ?)");
  const auto put = [&statement](const Config::BindingKey& port, const PortFilter& filter) {
    statement.bind(0, Acl::stringValue(port.type));
    statement.bind(1, Acl::stringValue(port.direction));
    statement.bind(2, std::string_view(port.interface));
    statement.bind(3, std::string_view(filter.interface));
    statement.bind(4, std::string_view(filter.list));
    statement.bind(5, std::string_view(filter.source));
    statement.run();
  };
  put({}, {});
  for (const auto& [port, filters] : *filtered) {
    for (const PortFilter& filter : filters) put(port, filter);
  }
}

SharedFilteredPorts readFiltered(Database& database) {
  std::shared_ptr<FilteredPorts> filtered;
  Statement rows = database.statement(
      "SELECT type, direction, port, interface, list, source FROM filtered ORDER BY rowid");
  while (rows.step()) {
    if (!filtered) filtered = std::make_shared<FilteredPorts>();
    Config::BindingKey port;
    port.interface = rows.text(2);
    if (!Acl::sequenceToValue(rows.text(0), &port.type) ||
        !Acl::sequenceToValue(rows.text(1), &port.direction))
      throw DatabaseError(SQLITE_CORRUPT, "a word is not known");
    if (!port.interface.empty()) (*filtered)[port].push_back({rows.text(3), rows.text(4), rows.text(5)});
  }
  return filtered;
}

/// The row without a key has the revision and the version; the others have the texts in their order.
void writeFleet(Database& database, const SharedFleetContent& fleet) {
  database.run("DELETE FROM fleet");
  if (!fleet) return;
  Statement statement = database.statement("INSERT INTO fleet VALUES(?, ?, ?)");
  const auto put = [&statement](std::string_view key, int64_t revision, std::string_view text) {
    statement.bind(0, key);
    statement.bind(1, revision);
    statement.bind(2, text);
    statement.run();
  };
  put("", fleet->revision, fleet->version);
  for (const auto& [key, text] : fleet->texts) put(key, 0, text);
}

SharedFleetContent readFleet(Database& database) {
  std::shared_ptr<FleetContent> fleet;
  Statement rows = database.statement("SELECT key, revision, text FROM fleet ORDER BY rowid");
  while (rows.step()) {
    if (!fleet) {
      fleet = std::make_shared<FleetContent>();
      fleet->revision = rows.integer(1);
      fleet->version = rows.text(2);
      if (!rows.text(0).empty()) throw DatabaseError(SQLITE_CORRUPT, "the fleet has no revision");
    } else {
      fleet->texts.push_back({rows.text(0), rows.text(2)});
    }
  }
  return fleet;
}

bool same(const SharedFilteredPorts& a, const SharedFilteredPorts& b) {
  return a == b || (a && b && *a == *b);
}

bool same(const std::optional<Unconfirmed>& a, const std::optional<Unconfirmed>& b) {
  if (!a || !b) return !a && !b;
  return a->refused == b->refused && a->before == b->before;
}

}  // namespace

std::vector<std::string> definitions() {
  return {
      "CREATE TABLE change(number INTEGER PRIMARY KEY, time NOT NULL, what NOT NULL, who NOT NULL, "
      "source NOT NULL, summary NOT NULL, hasText NOT NULL, text NOT NULL, hasDifference NOT NULL, "
      "difference NOT NULL)",
      "CREATE TABLE unconfirmed(refused NOT NULL, before NOT NULL)",
      "CREATE TABLE file(name PRIMARY KEY NOT NULL, digest NOT NULL) WITHOUT ROWID",
      "CREATE TABLE filtered(type NOT NULL, direction NOT NULL, port NOT NULL, interface NOT NULL, "
      "list NOT NULL, source NOT NULL)",
      "CREATE TABLE fleet(key NOT NULL, revision NOT NULL, text NOT NULL)"};
}

Past read(Database& database) {
  Past past;
  Statement changes = database.statement("SELECT * FROM change ORDER BY number");
  while (changes.step()) past.changes.push_back(changeIn(changes));
  Statement unconfirmed = database.statement("SELECT * FROM unconfirmed");
  while (unconfirmed.step()) {
    past.unconfirmed = Unconfirmed{std::make_shared<const std::string>(unconfirmed.text(0)),
                                   std::make_shared<const std::string>(unconfirmed.text(1))};
  }
  past.files = readFiles(database);
  past.filtered = readFiltered(database);
  past.fleet = readFleet(database);
  return past;
}

void write(Database& database, const Past& before, const Past& now) {
  const std::set<std::shared_ptr<const Change>> known(before.changes.begin(), before.changes.end());
  std::set<uint64_t> numbers;
  Statement statement =
      database.statement("INSERT OR REPLACE INTO change VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
  for (const auto& change : now.changes) {
    numbers.insert(change->number);
    if (!known.contains(change)) put(statement, *change);
  }
  Statement forget = database.statement("DELETE FROM change WHERE number = ?");
  for (const auto& change : before.changes) {
    if (numbers.contains(change->number)) continue;
    forget.bind(0, static_cast<int64_t>(change->number));
    forget.run();
  }
  if (!same(before.unconfirmed, now.unconfirmed)) writeUnconfirmed(database, now.unconfirmed);
  if (before.files != now.files) writeFiles(database, now.files);
  if (!same(before.filtered, now.filtered)) writeFiltered(database, now.filtered);
  if (before.fleet != now.fleet) writeFleet(database, now.fleet);
}

}  // namespace Agent::PastTables
