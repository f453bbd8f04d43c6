#include <Zeb/LogHandle.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

namespace {

using Zeb::LogHandle;

constexpr Zeb::LogDescriptor first = {"TEST_FIRST", "%s gone", "Why.", "Do it.", 4, 0};
constexpr Zeb::LogDescriptor second = {"TEST_SECOND", "%s", "Why.", Zeb::logNoAction, 6, 0};
constexpr Zeb::LogDescriptor third = {"TEST_THIRD", "%s", "Why.", "", 0, 0};

/// The names of this test's messages as the catalogue lists them.
std::vector<std::string> listed() {
  std::vector<std::string> names;
  for (const LogHandle* handle : LogHandle::catalogue()) {
    const std::string name = handle->descriptor().name;
    if (name.starts_with("TEST_")) names.push_back(name);
  }
  return names;
}

using Names = std::vector<std::string>;

std::unique_ptr<LogHandle> made(const Zeb::LogDescriptor& descriptor) {
  return std::make_unique<LogHandle>(descriptor, Kelp::Duration(0), 1.0, 0, 0);
}

TEST(LogTest, TheCatalogueListsHandlesInTheOrderOfTheirMaking) {
  EXPECT_EQ(listed(), Names{});
  auto c = made(third), a = made(first), b = made(second);
  EXPECT_EQ(listed(), (Names{"TEST_THIRD", "TEST_FIRST", "TEST_SECOND"}));
  a.reset();
  EXPECT_EQ(listed(), (Names{"TEST_THIRD", "TEST_SECOND"})) << "one that goes leaves the order of the others";
  a = made(first);
  EXPECT_EQ(listed(), (Names{"TEST_THIRD", "TEST_SECOND", "TEST_FIRST"})) << "a new one goes last";
  for (auto* handle : {&b, &c, &a}) handle->reset();
  EXPECT_EQ(listed(), Names{});
}

TEST(LogTest, TwoHandlesOfOneMessageAreListedTwice) {
  auto old = made(first), replacement = made(first);
  EXPECT_EQ(listed(), (Names{"TEST_FIRST", "TEST_FIRST"}));
  old.reset();
  EXPECT_EQ(listed(), Names{"TEST_FIRST"}) << "the old library's handle takes only itself away";
}

TEST(LogTest, AHandleShowsWhatItWasMadeOf) {
  const LogHandle handle(first, Kelp::Duration(1.5), 2.0, 3, 4);
  EXPECT_STREQ(handle.descriptor().name, "TEST_FIRST");
  EXPECT_STREQ(handle.descriptor().format, "%s gone");
  EXPECT_STREQ(handle.descriptor().explanation, "Why.");
  EXPECT_STREQ(handle.descriptor().action, "Do it.");
  EXPECT_EQ(handle.descriptor().severity, 4);
  EXPECT_EQ(handle.descriptor().zero, 0u);
  EXPECT_EQ(handle.minInterval(), Kelp::Duration(1.5));
  EXPECT_EQ(handle.intervalFactor(), 2.0);
  EXPECT_EQ(handle.burst(), 3u);
  EXPECT_EQ(handle.emissionLimit(), 4u);
}

TEST(LogTest, TheMarkerActionIsOneByteAndReadsAsWords) {
  EXPECT_EQ(std::string(Zeb::logNoAction), std::string(1, '\1'));
  EXPECT_EQ(made(first)->actionText(), "Do it.");
  EXPECT_EQ(made(second)->actionText(), "No action required.");
  EXPECT_EQ(made(third)->actionText(), "") << "an empty text is not the marker";
  const std::string copy = Zeb::logNoAction;
  EXPECT_EQ(made({"TEST_COPY", "", "", copy.c_str(), 0, 0})->actionText(), "No action required.")
      << "the marker is its content, not its address";
}

TEST(LogTest, SeveritiesHaveTheirSyslogNames) {
  const char* names[] = {"emergency", "alert",  "critical",      "error",
                         "warning",   "notice", "informational", "debug"};
  for (int severity = 0; severity < 8; ++severity) EXPECT_EQ(Zeb::logSeverityName(severity), names[severity]);
}

TEST(LogDeathTest, AnUnknownSeverityIsABrokenInvariant) {
  EXPECT_DEATH(made({"TEST_BAD", "", "", "", 8, 0}), "a log severity outside 0 to 7");
  EXPECT_DEATH(made({"TEST_BAD", "", "", "", -1, 0}), "a log severity outside 0 to 7");
}

}  // namespace
