#include <agent/state/StateFile.h>
#include <agent/state/StateWriter.h>
#include <agent/state/Table.h>
#include <gmock/gmock.h>

#include "../support/CaptureBytes.h"
#include "../support/Run.h"

#include <filesystem>
#include <fstream>
#include <thread>

namespace {

using namespace Agent;
using namespace TestSupport;
using testing::HasSubstr;
namespace fs = std::filesystem;

Saved::State someState() {
  Saved::State state;
  state.highestId = (uint64_t{1} << 63) + 7;
  state.rules = {{"cli", Acl::AclType::ip, "A", 10, state.highestId, "permit ip any any"},
                 {"cli", Acl::AclType::ip, "A", 4294967295, 5, "deny ip any any"},
                 {"input/cli", Acl::AclType::mac, "A", 10, 6, ""}};
  state.counters = {{"C", Acl::AclDirection::in, Acl::AclType::ip, "A", state.highestId, 3, INT64_MAX, 1.5},
                    {"C", Acl::AclDirection::out, Acl::AclType::ip, "A", state.highestId, 4, 400, 0.0}};
  state.lists = {{Acl::AclType::ip, "A", 12.25, 9, 1, 2.5}, {Acl::AclType::ipv6, "B", 0, 0, 0, 0}};
  state.ruleStatus = {{Acl::AclType::ip, "A", state.highestId, 3, 1.5}};
  state.bindings = {{Acl::AclType::mac, Acl::AclDirection::out, "eth1", "A"}};
  return state;
}

template <class Row>
void expectSame(const std::vector<Row>& a, const std::vector<Row>& b, const char* what) {
  ASSERT_EQ(a.size(), b.size()) << what;
  for (size_t i = 0; i < a.size(); ++i) {
    EXPECT_TRUE(Saved::key(a[i]) == Saved::key(b[i]) && Saved::value(a[i]) == Saved::value(b[i]))
        << what << " " << i;
  }
}

void expectSame(const Saved::State& a, const Saved::State& b) {
  expectSame(a.rules, b.rules, "rule");
  expectSame(a.counters, b.counters, "counter");
  expectSame(a.lists, b.lists, "list");
  expectSame(a.ruleStatus, b.ruleStatus, "rule status");
  expectSame(a.bindings, b.bindings, "binding");
}

class StateFileTest : public testing::Test {
 protected:
  std::unique_ptr<StateFile> open() {
    message_.clear();
    return StateFile::open(path_, &message_);
  }
  void written(const Saved::State& state) {
    const auto file = open();
    ASSERT_TRUE(file) << message_;
    const auto wrong = file->write(state);
    ASSERT_FALSE(wrong) << *wrong;
  }

  const TempDir dir_;
  const std::string path_ = dir_ / "state";
  std::string message_;
};

TEST_F(StateFileTest, WhatWasWrittenIsReadAgain) {
  written(someState());
  const auto file = open();
  ASSERT_TRUE(file);
  EXPECT_EQ(message_, "");
  expectSame(file->state(), someState());
}

TEST_F(StateFileTest, WhatIsGoneIsGoneAndWhatChangedIsChanged) {
  written(someState());
  Saved::State next = someState();
  next.rules.erase(next.rules.begin());  // the first, the last and one between
  next.rules.pop_back();
  next.rules.push_back({"aaa", Acl::AclType::ip, "A", 1, 11, "put before the others"});
  next.counters.front().packets = 77;
  next.lists.front().implicitId = 10;
  next.bindings.clear();
  written(next);
  std::swap(next.rules[0], next.rules[1]);
  const auto file = open();
  ASSERT_TRUE(file);
  expectSame(file->state(), next);
}

TEST_F(StateFileTest, ACountIsAtMostWhatTheFileCanHold) {
  Saved::State state = someState();
  state.counters.front().bytes = UINT64_MAX;
  written(state);
  expectSame(open()->state(), someState());
  EXPECT_EQ(message_, "");
}

TEST_F(StateFileTest, RulesThatDidNotChangeNeedNotBeRepeated) {
  const auto file = open();
  ASSERT_FALSE(file->write(someState()));
  Saved::State next = someState();
  next.counters.front().packets = 77;
  for (int i = 0; i < 2; ++i) {
    Saved::State without = next;
    without.rules.clear();
    without.rulesUnchanged = true;
    ASSERT_FALSE(file->write(without));
    expectSame(file->state(), next);
  }
}

TEST_F(StateFileTest, OfStatesThatComeTooFastTheLastCountsWithTheLastRules) {
  {
    StateWriter writer(open());
    for (int i = 1; i <= 100; ++i) {
      Saved::State state = someState();
      state.counters.front().packets = static_cast<uint64_t>(i);
      state.rulesUnchanged = i > 1;
      if (i > 1) state.rules.clear();
      writer.put(std::move(state));
    }
    EXPECT_FALSE(writer.takeFailure());
  }
  Saved::State last = someState();
  last.counters.front().packets = 100;
  expectSame(open()->state(), last);
}

TEST_F(StateFileTest, ItIsAheadOfTheIdsThatAreGivenOut) {
  written(someState());
  const uint64_t first = open()->state().highestId;
  EXPECT_GE(first, someState().highestId + 100000) << "those given out since the last write";
  written(someState());
  EXPECT_EQ(open()->state().highestId, first) << "far enough";
  Saved::State later = someState();
  later.highestId = first;
  written(later);
  EXPECT_GT(open()->state().highestId, first + 100000);
}

TEST_F(StateFileTest, AFileThatCannotBeUsedIsSetAside) {
  struct Row {
    const char* why;
    void (*damage)(const std::string& path);
    const char* text;
  };
  const auto sql = [](const std::string& path, const char* text) { Database(path).run(text); };
  static const auto run = sql;
  for (const Row& row : {
           Row{"it is no database", [](const std::string& path) { writeFile(path, std::string(9000, 'x')); },
               "not a database"},
           Row{"it is of another program",
               [](const std::string& path) { run(path, "PRAGMA application_id = 1"); },
               "no state of this agent"},
           Row{"it is of another version",
               [](const std::string& path) { run(path, "PRAGMA user_version = 99"); }, "of version 99"},
           Row{"a page is overwritten",
               [](const std::string& path) {
                 std::fstream file(path, std::ios::in | std::ios::out | std::ios::binary);
                 file.seekp(4096);
                 file << std::string(4096, '\xff');
               },
               ""},
           Row{"its end is missing",
               [](const std::string& path) { fs::resize_file(path, fs::file_size(path) / 2); }, ""},
           Row{"a table is missing", [](const std::string& path) { run(path, "DROP TABLE rule"); },
               "tables are not those"},
           Row{"a table has a column more",
               [](const std::string& path) { run(path, "ALTER TABLE rule ADD COLUMN more DEFAULT 0"); },
               "tables are not those"},
           Row{"a table has a column less",
               [](const std::string& path) { run(path, "ALTER TABLE counter DROP COLUMN bytes"); },
               "tables are not those"},
           Row{"there is a table more", [](const std::string& path) { run(path, "CREATE TABLE more(a)"); },
               "tables are not those"},
           Row{"a rule has the id that stands for none",
               [](const std::string& path) { run(path, "UPDATE rule SET id = 0"); }, "stands for none"},
           Row{"a rule has the largest id",
               [](const std::string& path) { run(path, "UPDATE rule SET id = -1 WHERE sequence = 10"); },
               "stands for none"},
           Row{"a counter has it",
               [](const std::string& path) {
                 run(path, "UPDATE counter SET id = -1 WHERE direction = 'in'");
               },
               "stands for none"},
           Row{"a rule's status has it",
               [](const std::string& path) { run(path, "UPDATE ruleStatus SET id = -1"); },
               "stands for none"},
           Row{"an implicit rule has it",
               [](const std::string& path) { run(path, "UPDATE list SET implicitId = -1"); },
               "stands for none"},
           Row{"the mark of used ids is the largest one",
               [](const std::string& path) { run(path, "UPDATE ids SET given = -1"); }, "leaves none"},
           Row{"the mark of used ids leaves no room",
               [](const std::string& path) { run(path, "UPDATE ids SET given = -1000"); }, "leaves none"},
           Row{"the mark of used ids is behind a rule",
               [](const std::string& path) { run(path, "UPDATE ids SET given = 9"); }, "beyond the mark"},
           Row{"it is behind an implicit rule alone",
               [](const std::string& path) {
                 for (const char* table : {"rule", "counter", "ruleStatus"})
                   Database(path).run(fmt::format("DELETE FROM {}", table));
                 run(path, "UPDATE ids SET given = 8");
               },
               "beyond the mark"},
           Row{"there is no mark of used ids", [](const std::string& path) { run(path, "DELETE FROM ids"); },
               "not one mark"},
           Row{"there are two", [](const std::string& path) { run(path, "INSERT INTO ids VALUES(7)"); },
               "not one mark"},
           Row{"a time has no end",
               [](const std::string& path) { run(path, "UPDATE list SET lastMatch = 9e999"); },
               "out of its range"},
           Row{"a value is of another type",
               [](const std::string& path) { run(path, "UPDATE counter SET packets = 'many'"); }, "type"},
           Row{"a number is larger than its field",
               [](const std::string& path) {
                 run(path, "UPDATE rule SET sequence = 4294967306 WHERE id = 5");
               },
               "out of its range"},
           Row{"a number is below none",
               [](const std::string& path) { run(path, "UPDATE rule SET sequence = -1 WHERE id = 5"); },
               "out of its range"},
           Row{"a count is below none",
               [](const std::string& path) { run(path, "UPDATE counter SET packets = -5"); },
               "out of its range"},
           Row{"a word is not known",
               [](const std::string& path) { run(path, "UPDATE list SET type = 'ipx'"); }, "word"},
       }) {
    SCOPED_TRACE(row.why);
    fs::remove(path_);
    fs::remove(path_ + ".aside");
    written(someState());
    row.damage(path_);
    {
      const auto file = open();
      ASSERT_TRUE(file) << message_;
      EXPECT_THAT(message_, HasSubstr(path_));
      EXPECT_THAT(message_, HasSubstr(row.text));
      EXPECT_THAT(message_, HasSubstr("set aside as " + path_ + ".aside"));
      EXPECT_TRUE(fs::exists(path_ + ".aside"));
      EXPECT_TRUE(file->state().rules.empty());
      EXPECT_FALSE(file->write(someState()));
    }
    expectSame(open()->state(), someState());
    EXPECT_EQ(message_, "");
  }
}

TEST_F(StateFileTest, AFileInUseIsLeftAlone) {
  const auto first = open();
  ASSERT_FALSE(first->write(someState()));
  EXPECT_FALSE(open());
  EXPECT_THAT(message_, HasSubstr("locked"));
  EXPECT_FALSE(fs::exists(path_ + ".aside"));
}

TEST_F(StateFileTest, APlaceWhereNoFileCanBeIsSaid) {
  std::string message;
  EXPECT_FALSE(StateFile::open(dir_ / "no/such/folder", &message));
  EXPECT_THAT(message, HasSubstr("unable to open"));
}

SharedText shared(std::string text) { return std::make_shared<const std::string>(std::move(text)); }

Past somePast() {
  Past past;
  past.changes = {
      std::make_shared<const Change>(Change{3, 1.5, "apply", "uid 0, pid 1 (velo)", "cli", "+1 list",
                                            shared("ip access-list A\n"), shared("{}")}),
      std::make_shared<const Change>(
          Change{4, 2.5, "gone", "the directory", "edge.acl", "1 list removed", nullptr, shared("{}")}),
      std::make_shared<const Change>(
          Change{5, 3.5, "file", "the directory", "edge.acl", "+1 list", shared(""), nullptr})};
  past.unconfirmed = Unconfirmed{shared("refused"), shared("before")};
  past.files = Agent::FileDigests{{"edge.acl", ~uint64_t{0}}, {"other", 7}};
  past.filtered = std::make_shared<const Agent::FilteredPorts>(Agent::FilteredPorts{
      {{Acl::AclType::mac, Acl::AclDirection::out, "eth2"}, {{"eth2", "M", ""}, {"po1", "N", "edge.acl"}}},
      {{Acl::AclType::ip, Acl::AclDirection::in, "eth1"}, {{"eth1", "A", "edge.acl"}}}});
  past.fleet = std::make_shared<const Agent::FleetContent>(
      Agent::FleetContent{1 + (int64_t{1} << 40), "0123456789abcdef", {{"/z", "text\n"}, {"/a", ""}}});
  return past;
}

std::string textOf(const SharedText& text) { return text ? "'" + *text + "'" : "none"; }
std::string textOf(const Past& past) {
  std::string text;
  for (const auto& change : past.changes) {
    text += fmt::format("{} {} {} {} {} {} {} {}\n", change->number, change->time, change->what, change->who,
                        change->source, change->summary, textOf(change->text), textOf(change->difference));
  }
  if (past.unconfirmed) text += *past.unconfirmed->refused + " " + *past.unconfirmed->before;
  if (past.files) text += "\nfiles\n";
  for (const auto& [name, digest] : past.files.value_or(Agent::FileDigests()))
    text += fmt::format("{} {}\n", name, digest);
  if (past.fleet) text += fmt::format("fleet {} {}\n", past.fleet->revision, past.fleet->version);
  for (const auto& [key, value] : past.fleet ? past.fleet->texts : std::vector<Agent::FleetContent::Text>())
    text += key + " " + value + "\n";
  if (past.filtered) text += "filtered\n";
  for (const auto& [port, filters] : past.filtered ? *past.filtered : Agent::FilteredPorts()) {
    for (const Agent::PortFilter& filter : filters)
      text +=
          fmt::format("{} {} {}: {} {} '{}'\n", Acl::stringValue(port.type), Acl::stringValue(port.direction),
                      port.interface, filter.interface, filter.list, filter.source);
  }
  return text;
}

TEST_F(StateFileTest, HasThePastThatWasWritten) {
  const Past past = somePast();
  {
    const auto file = open();
    ASSERT_FALSE(file->write(past));
    EXPECT_EQ(textOf(file->past()), textOf(past));
  }
  EXPECT_EQ(textOf(open()->past()), textOf(past));
  Past next = past;
  next.changes.erase(next.changes.begin());
  Change without = *next.changes.back();
  without.text = nullptr;
  next.changes.back() = std::make_shared<const Change>(without);
  next.unconfirmed.reset();
  next.files->erase("other");
  next.fleet = std::make_shared<const Agent::FleetContent>(Agent::FleetContent{7, "v", {}});
  next.filtered = std::make_shared<const Agent::FilteredPorts>();
  {
    const auto file = open();
    ASSERT_FALSE(file->write(next));
  }
  EXPECT_EQ(textOf(open()->past()), textOf(next));
  written(someState());
  EXPECT_EQ(textOf(open()->past()), textOf(next)) << "a state leaves the past as it is";
}

TEST_F(StateFileTest, OfAnAgentThatHadNoPastIsTaken) {
  written(someState());
  for (const char* text : {"DROP TABLE change", "DROP TABLE unconfirmed", "DROP TABLE file",
                           "DROP TABLE filtered", "DROP TABLE fleet", "PRAGMA user_version = 1"})
    Database(path_).run(text);
  auto file = open();
  ASSERT_TRUE(file);
  EXPECT_EQ(message_, "");
  EXPECT_EQ(file->state().rules.size(), someState().rules.size());
  EXPECT_EQ(textOf(file->past()), "");
  ASSERT_FALSE(file->write(somePast()));
  file.reset();
  EXPECT_EQ(textOf(open()->past()), textOf(somePast()));
}

TEST_F(StateFileTest, OfAnAgentThatKnewNoFleetIsTaken) {
  Past past = somePast();
  past.fleet.reset();
  ASSERT_FALSE(open()->write(past));
  for (const char* text : {"DROP TABLE fleet", "PRAGMA user_version = 4"}) Database(path_).run(text);
  {
    const auto file = open();
    ASSERT_TRUE(file);
    EXPECT_EQ(message_, "");
    EXPECT_EQ(textOf(file->past()), textOf(past));
    past.fleet = somePast().fleet;
    ASSERT_FALSE(file->write(past));
  }
  EXPECT_EQ(textOf(open()->past()), textOf(past));
}

TEST_F(StateFileTest, OfAnAgentThatKnewNoFilesIsTaken) {
  Past past = somePast();
  past.fleet.reset();
  past.files.reset();
  past.filtered.reset();
  ASSERT_FALSE(open()->write(past));
  for (const char* text :
       {"DROP TABLE file", "DROP TABLE filtered", "DROP TABLE fleet", "PRAGMA user_version = 2"})
    Database(path_).run(text);
  {
    const auto file = open();
    ASSERT_TRUE(file);
    EXPECT_EQ(message_, "");
    EXPECT_EQ(textOf(file->past()), textOf(past));
    past.files.emplace();
    ASSERT_FALSE(file->write(past));
  }
  EXPECT_EQ(textOf(open()->past()), textOf(past)) << "no file is not the same as not to know of any";
}

TEST_F(StateFileTest, OfAnAgentThatDidNotKnowWhatWasFilteredIsTaken) {
  Past past = somePast();
  past.fleet.reset();
  past.filtered.reset();
  ASSERT_FALSE(open()->write(past));
  for (const char* text : {"DROP TABLE filtered", "DROP TABLE fleet", "PRAGMA user_version = 3"})
    Database(path_).run(text);
  {
    const auto file = open();
    ASSERT_TRUE(file);
    EXPECT_EQ(message_, "");
    EXPECT_EQ(textOf(file->past()), textOf(past));
    past.filtered = std::make_shared<const Agent::FilteredPorts>();
    ASSERT_FALSE(file->write(past));
  }
  EXPECT_EQ(textOf(open()->past()), textOf(past)) << "that nothing was is not the same as not to know";
}

TEST_F(StateFileTest, AWriterKeepsThePast) {
  {
    StateWriter writer(open());
    writer.put(somePast());
    while (writer.pastState() == ChangeJournal::State::writing) std::this_thread::yield();
    EXPECT_EQ(writer.pastState(), ChangeJournal::State::kept);
    EXPECT_EQ(writer.writes().done, 1u);
    EXPECT_EQ(writer.writes().failed, 0u);
    EXPECT_GT(writer.writes().lastDone, 1.7e9);
  }
  EXPECT_EQ(textOf(open()->past()), textOf(somePast()));
}

}  // namespace
