// A state file whose octets or values were damaged: what is in it is taken as it stands, or it is set aside
// with a message; and an agent that starts over it counts on from what the file says, or from nothing.

#include "../tests/agent/config/RandomText.h"
#include "../tests/agent/support/CaptureBytes.h"
#include "../tests/agent/support/Run.h"
#include "../tests/support/RandomFrames.h"
#include "Target.h"

#include <Acl/RuleKinds.h>
#include <agent/change/Apply.h>
#include <agent/config/Reader.h>
#include <agent/core/TaskLoop.h>
#include <agent/state/StateFile.h>
#include <agent/state/Successor.h>
#include <fmt/format.h>

#include <filesystem>
#include <set>

namespace {

using namespace Agent;
using Fuzz::Dice;

constexpr const char* configuration =
    "ip access-list A\n 10 permit tcp any any\n 20 deny udp any any eq 53\nip access-list B\n 10 permit ip "
    "any any\n"
    "ipv6 access-list A\n 10 permit ipv6 any any\nmac access-list A\n 10 permit any any\n"
    "interface eth1\n ip access-group A in\n";
constexpr const char* texts[] = {"permit tcp any any", "permit  tcp any any", "deny udp any any eq domain",
                                 "permit ip any any",  "permit any any",      "\x01"};
constexpr const char* lists[] = {"A", "B", "GONE"};
constexpr const char* collections[] = {"DpAclInRuleMatches", "DpAclMacOutRuleMatches", "NoCollection"};
constexpr Acl::AclType types[] = {Acl::AclType::ip, Acl::AclType::ipv6, Acl::AclType::mac};
constexpr Acl::AclDirection directions[] = {Acl::AclDirection::in, Acl::AclDirection::out};

Saved::State someState(Dice& dice) {
  Saved::State state;
  std::set<std::tuple<Acl::AclType, std::string, uint32_t>> known;
  uint64_t id = 1000;
  for (auto rows = dice.below(8); rows > 0; --rows) {
    Saved::Rule rule{"cli", dice.of(types), dice.of(lists), static_cast<uint32_t>(10 + 10 * dice.below(2)),
                     ++id,  dice.of(texts)};
    if (!known.emplace(rule.type, rule.list, rule.sequence).second) continue;
    state.rules.push_back(rule);
    state.ruleStatus.push_back({rule.type, rule.list, id, dice.below(1000), 1e9});
    state.counters.push_back({dice.of(collections), dice.of(directions), rule.type, rule.list, id,
                              dice.below(1000), dice.any() >> 1, 1e9});
  }
  for (const Acl::AclType type : types) {
    if (dice.once(2)) state.lists.push_back({type, dice.of(lists), 1e9, ++id, dice.below(1000), 1e9});
    if (dice.once(2)) state.bindings.push_back({type, dice.of(directions), "eth1", dice.of(lists)});
  }
  state.highestId = id;
  return state;
}

constexpr const char* columns[] = {
    "rule source",       "rule type",          "rule list",         "rule sequence",   "rule id",
    "rule text",         "counter collection", "counter id",        "counter packets", "counter bytes",
    "counter lastMatch", "list name",          "list implicitId",   "list packets",    "ruleStatus id",
    "ruleStatus type",   "binding direction",  "binding interface", "binding list",    "ids given"};
constexpr const char* values[] = {
    "NULL",    "''",         "'x'", "0",    "-5",   "2.5",    "1e300",
    "x'00ff'", "4294967306", "20",  "1001", "'in'", "'ipv6'", "9223372036854775807"};
constexpr const char* statements[] = {"DROP TABLE counter",
                                      "DELETE FROM ids",
                                      "INSERT INTO ids VALUES(7)",
                                      "DROP TABLE ids",
                                      "ALTER TABLE rule ADD COLUMN more",

                                      "ALTER TABLE rule RENAME COLUMN text TO words",
                                      "PRAGMA user_version = 2",
                                      "PRAGMA application_id = 1",
                                      "DELETE FROM rule",
                                      "CREATE TABLE other(x)",
                                      "UPDATE rule SET id = 1001"};

void damageValues(const std::string& path, Dice& dice) try {
  Database database(path);
  for (auto changes = 1 + dice.below(3); changes > 0; --changes) {
    if (dice.once(3)) {
      database.run(dice.of(statements));
      continue;
    }
    const std::string_view column = dice.of(columns);
    const char* value = dice.of(values);
    const size_t blank = column.find(' ');
    database.run(fmt::format("UPDATE OR IGNORE {} SET {} = {}", column.substr(0, blank),
                             column.substr(blank + 1), value));
  }
} catch (const DatabaseError&) {
  // What SQLite does not take changes nothing.
}

void damageOctets(const std::string& path, Dice& dice) {
  const std::string text = TestSupport::readFile(path);
  TestSupport::Bytes bytes(text.begin(), text.end());
  TestSupport::damage(bytes, dice);
  TestSupport::writeFile(path, bytes);
  if (!dice.once(4)) return;
  TestSupport::Bytes beside(dice.below(200), static_cast<uint8_t>(dice.below(256)));
  TestSupport::writeFile(path + (dice.once(2) ? "-wal" : "-journal"), beside);
}

bool isKnown(const std::vector<Saved::Counter>& rows, std::string_view collection,
             const Velo::Counter::VeloDpAclCounterKey& key, const Velo::Counter::VeloDpAclCounter& counter) {
  return std::any_of(rows.begin(), rows.end(), [&](const Saved::Counter& row) {
    return row.collection == collection && row.direction == key.direction && row.type == key.aclType &&
           row.list == key.aclName.view() && row.packets == counter.packets() && row.bytes == counter.bytes();
  });
}

void startOver(const Saved::State& state) {
  Kiv::ManualClock clock;
  TaskLoop tasks(clock);
  Core core;
  Successor successor(state);
  successor.publish(core);
  const auto memory = [&](const std::string& source, const Config::List& list) {
    return successor.idsOf(source, list);
  };
  const auto model = *Config::read({{"t", configuration}}).model;
  const auto wrong = putInForce(core, {model, {}}, memory);
  Fuzz::require(!wrong, wrong.value_or(""));
  const auto refusal = core.loadPlugin(std::string(VELO_BIN_DIR) + "/VeloAcl.so");
  Fuzz::require(!refusal, refusal.value_or(""));
  successor.countRules(core);
  tasks.settle();
  clock.advance(Kelp::Duration(1.1));
  tasks.settle();
  const auto missing = core.inForce().unpublished();
  Fuzz::require(!missing, missing.value_or(""));
  successor.countImplicitDrops(core);

  for (const auto& collection : core.inForce().counters()) {
    for (auto counter = collection->counterCollection().begin(); counter; counter.next()) {
      if (counter.value()->packets() == 0 && counter.value()->bytes() == 0) continue;
      Fuzz::require(isKnown(state.counters, collection->name().view(), counter.key(), *counter.value()), [&] {
        return fmt::format("{} of {} counts what was never counted", counter.key(), collection->name());
      });
    }
  }
  std::set<Kiv::UniqueId> ids;
  for (const auto& [key, list] : model.lists) {
    const auto rules = core.inForce().list(key.first, Kelp::String(key.second))->currCfg();
    Acl::withRuleKind(key.first, [&](auto kind) {
      for (auto rule = kind.rules(*rules).begin(); rule; rule.next())
        Fuzz::require(ids.insert(rule.key()).second, "two rules of one id");
    });
  }
}

/// The numbers of a column as SQLite has them, and as they were read.
template <class Row, class Number>
void requireRead(Database& database, const char* query, const std::vector<Row>& rows, Number Row::*member) {
  std::multiset<int64_t> there, read;
  for (const Row& row : rows) read.insert(static_cast<int64_t>(row.*member));
  Statement statement = database.statement(query);
  while (statement.step()) there.insert(statement.integer(0));
  Fuzz::require(there == read, [&] { return std::string("not what stands there: ") + query; });
}

}  // namespace

void Fuzz::run(Dice& dice) {
  const TestSupport::TempDir dir(Fuzz::memoryPath());
  const std::string path = dir / "state";
  std::string message;
  auto file = StateFile::open(path, &message);
  require(file && message.empty(), message);
  const auto unwritten = file->write(someState(dice));
  require(!unwritten, unwritten.value_or(""));
  file.reset();

  const bool byValues = dice.once(2);
  byValues ? damageValues(path, dice) : damageOctets(path, dice);
  file = StateFile::open(path, &message);
  require(file || !message.empty(), "no file and no reason");
  if (!file) return;
  const Saved::State read = file->state();
  const bool aside = !message.empty();
  require(!aside || std::filesystem::exists(path + ".aside"), message);
  require(!aside || (read.rules.empty() && read.counters.empty()), "something of a file that was set aside");
  startOver(read);

  // A new state is written over whatever was there.
  Saved::State next = someState(dice);
  const auto failed = file->write(next);
  file.reset();
  if (failed) return require(!byValues, *failed);
  if (byValues && !aside) {
    Database database(path);
    requireRead(database, "SELECT sequence FROM rule", next.rules, &Saved::Rule::sequence);
    requireRead(database, "SELECT packets FROM counter", next.counters, &Saved::Counter::packets);
    requireRead(database, "SELECT bytes FROM counter", next.counters, &Saved::Counter::bytes);
  }
  file = StateFile::open(path, &message);
  require(file != nullptr, message);
}
