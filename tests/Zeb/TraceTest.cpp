#include "TraceCapture.h"

#include <Blip/FastTrace.h>
#include <Blip/Ring.h>
#include <Zeb/System.h>
#include <Zeb/TraceHandle.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <cstring>
#include <deque>
#include <memory>
#include <random>

namespace {

/// Counts how often it is formatted.
struct Counted {
  int* formatted;
};

}  // namespace

template <>
struct fmt::formatter<Counted> : fmt::formatter<int> {
  template <class Context>
  auto format(const Counted& counted, Context& ctx) const {
    return fmt::formatter<int>::format(++*counted.formatted, ctx);
  }
};

namespace {

using Lines = std::vector<std::string>;
using Zeb::TraceHandle;

class TraceTest : public testing::Test {
 protected:
  void SetUp() override {
    TraceHandle::disableAll();
    Blip::ring().clear();
    Zeb::System::clockIs(&clock_);
  }
  void TearDown() override {
    Zeb::System::clockIs(nullptr);
    TraceHandle::disableAll();
  }

  Kiv::ManualClock clock_{Kelp::Duration(1700000000.25)};
};

TEST_F(TraceTest, TheRecordOfAPluginsStartIsExactInStreamAndRing) {
  TraceHandle handle("Test::Acl", "Some/Unit/Source");
  TraceCapture capture;
  EXPECT_FALSE(TraceHandle::enable("Test::Acl/0"));
  handle.traceAt(381, 0, "init", "{} loaded", "void init(Context*)");
  ASSERT_EQ(capture.lines().size(), 1u);
  const TraceLine& line = capture.lines()[0];
  EXPECT_EQ(line.facility, "Test::Acl");
  EXPECT_EQ(line.level, 0);
  EXPECT_EQ(line.function, "init");
  EXPECT_EQ(line.file, "Some/Unit/Source");
  EXPECT_EQ(line.line, 381);
  EXPECT_EQ(line.text, "void init(Context*) loaded");
  EXPECT_EQ(line.time, 1700000000.25);
  EXPECT_EQ(Blip::ring().lines(),
            Lines{"1700000000.250000 Test::Acl/0 init: void init(Context*) loaded (Some/Unit/Source:381)"});
}

TEST_F(TraceTest, ARecordHasTheLineOfItsCall) {
  TraceHandle handle("Test::Line");
  TraceCapture capture;
  TraceHandle::enable("Test::Line/9");
  const int here = __LINE__ + 1;
  handle.trace(9, "f", "no arguments");
  const std::string text = "a text of the run";
  handle.trace(8, "g", "{}: {}", text, 5);
  ASSERT_EQ(capture.lines().size(), 2u);
  EXPECT_EQ(capture.lines()[0].line, here);
  EXPECT_EQ(capture.lines()[1].line, here + 2);
  EXPECT_EQ(capture.lines()[1].text, "a text of the run: 5");
  EXPECT_EQ(Blip::ring().lines()[0], "1700000000.250000 Test::Line/9 f: no arguments")
      << "a handle without a source names no place";
}

TEST_F(TraceTest, ASourceIsAPathOfTheTreeWithoutItsExtension) {
  for (const char* wrong : {"Unit/Source.cpp", "/work/Unit/Source", "Unit/Source.h"}) {
    EXPECT_DEATH(TraceHandle("Test::Source", wrong), "without its extension") << wrong;
  }
  EXPECT_EQ(TraceHandle("Test::Source", "Unit/Source").source(), "Unit/Source");
}

TEST_F(TraceTest, AllLevelsUpToTheOneNamedAreOnAndNothingElseIsFormatted) {
  TraceHandle handle("Test::Levels");
  for (int enabled = -1; enabled <= 9; ++enabled) {
    if (enabled >= 0) {
      EXPECT_FALSE(TraceHandle::enable(fmt::format("Test::Levels/{}", enabled)));
    }
    TraceCapture capture;
    int formatted = 0;
    for (int level = 0; level <= 9; ++level) {
      EXPECT_EQ(handle.on(level), level <= enabled) << level << " of " << enabled;
      handle.trace(level, "f", "{}", Counted{&formatted});
      handle.traceAt(1, level, "f", "{}", Counted{&formatted});
    }
    EXPECT_EQ(formatted, 2 * (enabled + 1));
    EXPECT_EQ(capture.lines().size(), static_cast<size_t>(formatted));
  }
}

TEST_F(TraceTest, SpecsThatAreWellFormed) {
  struct Row {
    const char* spec;
    int a, b;  // the highest level on, -1 for none
    const char* why;
  };
  const Row rows[] = {
      {"", -1, -1, "the empty spec names nothing"},
      {"  ", -1, -1, "nor do blanks"},
      {"A::a/0", 0, -1, "level 0 is a level"},
      {"A::a/9,b/7", 9, 7, "a list"},
      {" A::a/9 ,\tb/7 ", 9, 7, "blanks around an element do not count"},
      {"A::a/9,A::a/3", 3, -1, "the last of two for one name holds"},
      {"A::a/5,unknown/9", 5, -1, "a name that nobody uses is kept for who will"},
      {"a/5", -1, -1, "names are whole and their case counts"},
  };
  TraceHandle a("A::a"), b("b");
  const auto highest = [](const TraceHandle& handle) {
    int level = -1;
    while (level < 9 && handle.on(level + 1)) ++level;
    return level;
  };
  for (const Row& row : rows) {
    TraceHandle::disableAll();
    EXPECT_EQ(TraceHandle::enable(row.spec), std::nullopt) << row.why;
    EXPECT_EQ(highest(a), row.a) << row.why;
    EXPECT_EQ(highest(b), row.b) << row.why;
  }
}

TEST_F(TraceTest, SpecsThatAreMalformedChangeNothingAndSayWhere) {
  struct Row {
    const char* spec;
    const char* error;
    const char* why;
  };
  const Row rows[] = {
      {",", "trace facility \"\": empty; NAME/LEVEL expected", "two empty elements"},
      {"a/1,", "trace facility \"\": empty; NAME/LEVEL expected", "a comma too many at the end"},
      {"a/1,,b/2", "trace facility \"\": empty; NAME/LEVEL expected", "and in the middle"},
      {"a", "trace facility \"a\": no level; NAME/LEVEL expected", "a name alone"},
      {"a/1,b", "trace facility \"b\": no level; NAME/LEVEL expected", "the second element is the one named"},
      {"/1", "trace facility \"/1\": no name; NAME/LEVEL expected", "a level alone"},
      {"a/", "trace facility \"a/\": the level is not one of 0 to 9", "no digit"},
      {"a/10", "trace facility \"a/10\": the level is not one of 0 to 9", "beyond the highest"},
      {"a/-1", "trace facility \"a/-1\": the level is not one of 0 to 9", "below the lowest"},
      {"a/x", "trace facility \"a/x\": the level is not one of 0 to 9", "not a digit"},
      {"a/1/2", "trace facility \"a/1/2\": the level is not one of 0 to 9", "two levels"},
      {"a/ 1", "trace facility \"a/ 1\": the level is not one of 0 to 9", "a blank within an element"},
      {"a/9 b/9", "trace facility \"a/9 b/9\": the level is not one of 0 to 9", "a blank parts nothing"},
  };
  TraceHandle a("a"), b("b");
  TraceHandle::enable("b/4");
  for (const Row& row : rows) {
    EXPECT_EQ(TraceHandle::enable(row.spec), row.error) << row.why;
    EXPECT_FALSE(a.on(0)) << "not even the elements before it count: " << row.why;
    EXPECT_TRUE(b.on(4)) << row.why;
  }
}

TEST_F(TraceTest, FacilitiesAreListedWithWhatIsOnAndWhetherTheyAreUsed) {
  const TraceHandle used("Test::Used");
  TraceHandle::enable("Test::Used/3,Test::Unused/0");
  std::map<std::string, std::pair<int, bool>> all;
  for (const auto& facility : TraceHandle::facilities()) all[facility.name] = {facility.level, facility.used};
  EXPECT_EQ(all.at("Test::Used"), std::pair(3, true));
  EXPECT_EQ(all.at("Test::Unused"), std::pair(0, false));
  TraceHandle::disableAll();
  all.clear();
  for (const auto& facility : TraceHandle::facilities()) all[facility.name] = {facility.level, facility.used};
  EXPECT_EQ(all.at("Test::Used"), std::pair(-1, true));
  EXPECT_FALSE(all.contains("Test::Unused"));
}

TEST_F(TraceTest, ANameThatTheCallerDoesNotWantRefusesTheWholeSpec) {
  const TraceHandle a("a"), b("b");
  const auto notB = [](std::string_view name) {
    return name == "b" ? std::optional<std::string>("not b") : std::nullopt;
  };
  EXPECT_EQ(TraceHandle::enable("a/1,b/2", notB), "not b");
  EXPECT_FALSE(a.on(0));
  EXPECT_EQ(TraceHandle::enable("a/1", notB), std::nullopt);
  EXPECT_TRUE(a.on(1));
  EXPECT_FALSE(b.on(0));
}

TEST_F(TraceTest, NoMoreNamesAreKeptThatNothingUsesThanAFew) {
  const auto on = [](size_t number) { return TraceHandle::enable(fmt::format("Test::Unused{}/1", number)); };
  for (size_t i = 0; i < TraceHandle::mostUnused; ++i) EXPECT_EQ(on(i), std::nullopt);
  EXPECT_EQ(on(TraceHandle::mostUnused), "more than 100 trace facilities that nothing uses");
  EXPECT_EQ(on(5), std::nullopt) << "which is on already";
  const TraceHandle used("Test::Used");
  EXPECT_EQ(TraceHandle::enable("Test::Used/3"), std::nullopt) << "which is used";
  EXPECT_TRUE(used.on(3));
  TraceHandle::disableAll();
  EXPECT_EQ(on(TraceHandle::mostUnused), std::nullopt);
}

TEST_F(TraceTest, NoMoreFastTracesAreOnThanAFew) {
  const auto set = [](size_t number, bool on) {
    return Blip::fastTraceIs(fmt::format("Test::Fast{}", number), on);
  };
  for (size_t i = 0; i < Blip::mostFastTraces; ++i) EXPECT_TRUE(set(i, true));
  EXPECT_FALSE(set(Blip::mostFastTraces, true));
  EXPECT_FALSE(Blip::fastTraceOn(fmt::format("Test::Fast{}", Blip::mostFastTraces)));
  EXPECT_TRUE(set(5, true)) << "which is on already";
  EXPECT_TRUE(set(5, false));
  EXPECT_TRUE(set(Blip::mostFastTraces, true));
  for (size_t i = 0; i <= Blip::mostFastTraces; ++i) set(i, false);
}

TEST_F(TraceTest, AHandleMadeAfterItsLevelWasSetIsOn) {
  TraceHandle::enable("Test::Later/6");
  {
    TraceHandle handle("Test::Later");
    EXPECT_TRUE(handle.on(6));
    EXPECT_FALSE(handle.on(7));
  }
  TraceHandle again("Test::Later");
  EXPECT_TRUE(again.on(6)) << "a plugin that is loaded again traces on";
  TraceHandle::disableAll();
  EXPECT_FALSE(again.on(0));
  TraceHandle last("Test::Later");
  EXPECT_FALSE(last.on(0));
}

TEST_F(TraceTest, DisablingHoldsForHandlesToCome) {
  TraceHandle::enable("Test::Later/6");
  TraceHandle::disableAll();
  EXPECT_FALSE(TraceHandle("Test::Later").on(0));
}

TEST_F(TraceTest, HandlesOfOneNameShareTheirLevelButNotTheirSource) {
  TraceHandle first("Test::Shared", "One");
  auto second = std::make_unique<TraceHandle>("Test::Shared", "Two");
  TraceHandle::enable("Test::Shared/3");
  EXPECT_TRUE(first.on(3));
  EXPECT_TRUE(second->on(3));
  TraceCapture capture;
  first.trace(3, "f", "x");
  second->trace(3, "f", "x");
  ASSERT_EQ(capture.lines().size(), 2u);
  EXPECT_EQ(capture.lines()[0].file, "One");
  EXPECT_EQ(capture.lines()[1].file, "Two");
  second.reset();
  TraceHandle::disableAll();
  EXPECT_FALSE(first.on(0)) << "the facility stays while one handle does";
  TraceHandle::enable("Test::Shared/5");
  EXPECT_TRUE(first.on(5));
}

TEST_F(TraceTest, NothingOfAHandlesTextsIsPointedToOnceItIsGone) {
  const auto text = [](const char* from) {
    auto copy = std::make_unique<char[]>(std::strlen(from) + 1);
    std::strcpy(copy.get(), from);
    return copy;
  };
  auto name = text("Test::Closed");
  auto source = text("Closed/Unit");
  auto function = text("f");
  auto spec = text("Test::Closed/2");
  TraceHandle::enable(spec.get());
  {
    TraceHandle handle(name.get(), source.get());
    handle.traceAt(5, 2, function.get(), "x");
  }
  Blip::fastTraceIs(name.get(), true);
  Blip::fastTrace(source.get(), 7, {name.get()});
  for (auto* gone : {&name, &source, &function, &spec}) gone->reset();
  TraceHandle handle("Test::Closed");
  EXPECT_EQ(handle.name(), "Test::Closed");
  EXPECT_TRUE(handle.on(2));
  EXPECT_TRUE(Blip::fastTraceOn("Test::Closed"));
  Blip::fastTraceIs("Test::Closed", false);
  EXPECT_EQ(Blip::ring().lines(),
            (Lines{"1700000000.250000 Test::Closed/2 f: x (Closed/Unit:5)", "Closed/Unit:7 Test::Closed"}));
}

TEST_F(TraceTest, WithoutAStreamRecordsGoToTheRingOnly) {
  TraceHandle handle("Test::Ring");
  TraceHandle::enable("Test::Ring/1");
  const Plog::Stream before = Plog::streamIs({});
  handle.trace(1, "f", "kept");
  Plog::streamIs(before);
  EXPECT_EQ(Blip::ring().lines(), Lines{"1700000000.250000 Test::Ring/1 f: kept"});
}

TEST_F(TraceTest, AStreamThatTracesItselfDoesNotComeBackToItself) {
  TraceHandle handle("Test::Nested");
  TraceHandle::enable("Test::Nested/1");
  int calls = 0;
  const Plog::Stream before = Plog::streamIs([&](const Plog::Record&) {
    ++calls;
    handle.trace(1, "stream", "inner");
  });
  handle.trace(1, "f", "outer");
  handle.trace(1, "f", "outer");
  Plog::streamIs(before);
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(Blip::ring().lineCount(), 4u) << "what it traced is in the ring";
}

TEST_F(TraceTest, AStreamMayReplaceItself) {
  TraceHandle handle("Test::Replace");
  TraceHandle::enable("Test::Replace/1");
  std::string log;
  const Plog::Stream before = Plog::streamIs([&log, held = std::make_shared<int>(7)](const Plog::Record&) {
    Plog::streamIs([&log](const Plog::Record& r) { log += r.text; });
    log += std::to_string(*held);
  });
  handle.trace(1, "f", "a");
  handle.trace(1, "f", "b");
  Plog::streamIs(before);
  EXPECT_EQ(log, "7b");
}

TEST_F(TraceTest, TheFileStreamWritesALineARecord) {
  std::FILE* file = std::tmpfile();
  ASSERT_TRUE(file);
  TraceHandle handle("Test::File", "Unit");
  TraceHandle::enable("Test::File/9");
  const Plog::Stream before = Plog::streamIs(Plog::fileStream(file));
  handle.traceAt(1, 4, "f", "one {}", 1);
  handle.traceAt(2, 9, "g", "two");
  Plog::streamIs(before);
  std::rewind(file);
  char text[200] = {};
  const size_t size = std::fread(text, 1, sizeof text, file);
  std::fclose(file);
  EXPECT_EQ(std::string(text, size),
            "1700000000.250000 Test::File/4 f: one 1\n"
            "1700000000.250000 Test::File/9 g: two\n");
}

TEST(FastTraceTest, IsSwitchedByFacilityNameWhetherOrNotAnybodyUsesIt) {
  EXPECT_FALSE(Blip::fastTraceOn("Fast"));
  Blip::fastTraceIs("Fast", true);
  Blip::fastTraceIs("Fast", true);
  EXPECT_TRUE(Blip::fastTraceOn("Fast"));
  EXPECT_FALSE(Blip::fastTraceOn("Fas"));
  Blip::fastTraceIs("Fast", false);
  EXPECT_FALSE(Blip::fastTraceOn("Fast"));
  const auto asked = Blip::fastTraceFacilities();
  EXPECT_EQ(std::count(asked.begin(), asked.end(), "Fast"), 1) << "whoever has asked is known";
  Blip::fastTraceIs("Never asked", true);
  EXPECT_EQ(Blip::fastTraceFacilities(), asked);
  Blip::fastTraceIs("Never asked", false);
  Blip::fastTraceIs("Fast", false);
  EXPECT_FALSE(Blip::fastTraceOn("Fast"));
}

TEST(FastTraceTest, ARecordIsPlaceAndArguments) {
  Blip::ring().clear();
  Blip::fastTrace("Some/Unit", 381, {"Acl"});
  Blip::fastTrace("Some/Unit", 1);
  Blip::fastTrace("Some/Unit", 2, {"a", "b c", "d"});
  EXPECT_EQ(Blip::ring().lines(), (Lines{"Some/Unit:381 Acl", "Some/Unit:1", "Some/Unit:2 a b c d"}));
}

TEST(RingTest, OldestLinesAreOverwrittenWhole) {
  Blip::Ring ring(3 * (4 + 5));
  for (const char* line : {"one..", "two..", "three"}) ring.append(line);
  EXPECT_EQ(ring.lines(), (Lines{"one..", "two..", "three"})) << "exactly full";
  EXPECT_EQ(ring.lostCount(), 0u);
  ring.append("4");
  EXPECT_EQ(ring.lines(), (Lines{"two..", "three", "4"}));
  ring.append("five5");
  EXPECT_EQ(ring.lines(), (Lines{"three", "4", "five5"})) << "one went; the rest wrap round the end";
  ring.append("a longer line");
  EXPECT_EQ(ring.lines(), (Lines{"five5", "a longer line"})) << "two went for one";
  EXPECT_EQ(ring.lineCount(), 2u);
  EXPECT_EQ(ring.lostCount(), 4u);
  ring.clear();
  EXPECT_EQ(ring.lines(), Lines{});
  EXPECT_EQ(ring.lostCount(), 0u);
}

TEST(RingTest, ALineLongerThanTheRingIsCutAtItsEnd) {
  Blip::Ring ring(10);
  ring.append("x");
  ring.append("0123456789");
  EXPECT_EQ(ring.lines(), Lines{"012345"});
  ring.append("");
  EXPECT_EQ(ring.lines(), Lines{""}) << "an empty line is a line";
}

TEST(RingTest, KeepsAsManyOfTheLatestLinesAsFit) {
  std::mt19937 random(1);
  for (size_t bytes : {5u, 16u, 64u, 257u}) {
    Blip::Ring ring(bytes);
    std::deque<std::string> expected;
    size_t used = 0;
    for (int i = 0; i < 3000; ++i) {
      const std::string line(random() % 20, static_cast<char>('a' + i % 26));
      ring.append(line);
      expected.push_back(line.substr(0, bytes - 4));
      used += 4 + expected.back().size();
      while (used > bytes) {
        used -= 4 + expected.front().size();
        expected.pop_front();
      }
      ASSERT_EQ(ring.lines(), Lines(expected.begin(), expected.end())) << bytes << " bytes, line " << i;
    }
  }
}

TEST(SystemTest, TheTimeIsThatOfTheClockInForce) {
  Kiv::ManualClock clock(Kelp::Duration(42));
  EXPECT_GT(Zeb::System::currentTime(), Kelp::Duration(1e9)) << "the real clock counts from the epoch";
  Zeb::System::clockIs(&clock);
  EXPECT_EQ(Zeb::System::currentTime(), Kelp::Duration(42));
  clock.nowIs(Kelp::Duration(41));
  EXPECT_EQ(Zeb::System::currentTime(), Kelp::Duration(42)) << "it never runs back";
  Zeb::System::clockIs(nullptr);
  EXPECT_GT(Zeb::System::currentTime(), Kelp::Duration(1e9));
}

}  // namespace
