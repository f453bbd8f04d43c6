#include "../../support/Sanitizers.h"
#include "RandomText.h"
#include "Support.h"

#include <chrono>

namespace Config {
namespace {

using TestSupport::Dice;

bool hasControl(std::string_view text) {
  return text.find_first_of(std::string_view("\0\x1b\r\n", 4)) != std::string_view::npos;
}

TEST(RandomText, IsReadOrReportedInTheOrderOfTheText) {
  Dice dice(20240601);
  int taken = 0, refused = 0;
  for (int round = 0; round < TestSupport::casesOf(4000); ++round) {
    const std::string text = randomText(dice, round % 2 != 0);
    const auto result = readText(text);
    ASSERT_EQ(result.model.has_value(), result.mistakes.empty()) << text;
    ++(result.model ? taken : refused);
    int last = 0;
    for (const auto& mistake : result.mistakes) {
      ASSERT_GT(mistake.line, last) << "at most one mistake a line, in order\n" << text;
      last = mistake.line;
      ASSERT_GE(mistake.column, 1);
      ASSERT_FALSE(mistake.found.empty());
      ASSERT_FALSE(mistake.expected.empty());
      ASSERT_FALSE(hasControl(mistake.str())) << "what is printed has no control bytes of the text";
    }
    if (result.model) {
      ASSERT_EQ(readText(text).model, result.model) << "the same text is the same model\n" << text;
    }
  }
  EXPECT_GT(taken, 100) << "the texts are not so far off that none is right";
  EXPECT_GT(refused, 100);
}

TEST(RandomText, OfAnyBytesIsRead) {
  Dice dice(7);
  for (int round = 0; round < TestSupport::casesOf(500); ++round) {
    std::string text(dice.below(300), '\0');
    for (auto& byte : text) byte = static_cast<char>(dice.below(256));
    const auto result = readText(text);
    ASSERT_EQ(result.model.has_value(), result.mistakes.empty());
  }
}

TEST(RandomText, EveryBeginningOfATextIsRead) {
  Dice dice(1);
  std::string text;
  while (text.size() < 2000) text += randomText(dice, false);
  for (size_t size = 0; size <= text.size(); ++size) {
    const auto result = readText(std::string_view(text).substr(0, size));
    ASSERT_EQ(result.model.has_value(), result.mistakes.empty());
  }
}

TEST(LongText, OfAHundredThousandRulesIsReadInTimeThatGrowsWithItsSize) {
  const auto textOf = [](int rules) {
    std::string text = "ip access-list A\n";
    for (int i = 0; i < rules; ++i) {
      text += "permit tcp 10." + std::to_string(i / 65536) + "." + std::to_string(i / 256 % 256) + "." +
              std::to_string(i % 256) + "/32 any eq https dscp ef ttl gt 1 log\n";
    }
    return text;
  };
  const auto text = textOf(100000);
  const auto start = std::chrono::steady_clock::now();
  const auto list = listOf(text);
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(list.rules.size(), 100000u);
  EXPECT_EQ(list.rules.rbegin()->first, 1000000u);
  RecordProperty("milliseconds", static_cast<int>(took.count() * 1000));
  // Far above what it takes, also under a sanitizer: a reader that walks the list for each rule takes
  // minutes.
  EXPECT_LT(took.count(), 20.0);
}

TEST(LongText, MayBeOneLongLine) {
  std::string text = "ip access-list A\nremark ";
  text.append(1 << 20, 'x');
  EXPECT_EQ(listOf(text).pendingRemarks.at(0).size(), size_t{1} << 20);
  std::string channel = "port-channel po1 members";
  for (int i = 0; i < 20000; ++i) channel += " e" + std::to_string(i);
  EXPECT_EQ(modelOf(channel).portChannels.at("po1").size(), 20000u);
}

}  // namespace
}  // namespace Config
