#include <agent/core/Document.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <ctime>
#include <string>

namespace {

TEST(Document, IsReadAsTheParserReadsIt) {
  for (const char* text : {
           "{}",
           "[]",
           "null",
           "true",
           "-1",
           "18446744073709551615",
           "1.5",
           "\"a\\u00e9\"",
           R"({"b":[1,[2,{"c":null}],{}],"a":{"x":"y","w":[]},"d":false})",
           R"([{"a":1},{"a":2},[[]]])",
       }) {
    const auto read = Agent::readDocument(text);
    ASSERT_TRUE(read) << text;
    EXPECT_EQ(read->dump(), nlohmann::ordered_json::parse(text).dump()) << "the members in their order, too";
  }
  for (const char* text : {"", "{", "[1", "{\"a\"}", "{\"a\":1}}", "nul", "\"\xff\""})
    EXPECT_FALSE(Agent::readDocument(text)) << text;
}

/// In processor time, because the machine may have other work.
TEST(Document, WithManyMembersIsReadInATimeThatGrowsWithIt) {
  std::string text = "{\"first\":0";
  for (int i = 0; i < 100'000; ++i) text += fmt::format(",\"{}\":{{\"n\":{}}}", i, i);
  text += "}";
  const std::clock_t begin = std::clock();
  const auto read = Agent::readDocument(text);
  const double seconds = static_cast<double>(std::clock() - begin) / CLOCKS_PER_SEC;
  ASSERT_TRUE(read);
  EXPECT_EQ(read->size(), 100'001u);
  EXPECT_LT(seconds, 5) << "a search for each member would take several times as long";
}

}  // namespace
