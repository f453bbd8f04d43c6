#include <Kelp/Duration.h>
#include <Kelp/Hash.h>
#include <Kelp/String.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_map>
#include <unordered_set>

namespace {

using Kelp::String;
using namespace std::string_literals;

TEST(StringTest, KeepsEveryByte) {
  for (const std::string& text : {""s, "a"s, "a\0b"s, "\0"s, "\0\0"s, "seven.."s, "eight..."s, "nine....."s,
                                  std::string(10000, 'x'), "\xff\x80 high"s}) {
    const String s(text);
    EXPECT_EQ(s.str(), text);
    EXPECT_EQ(s.size(), text.size());
    EXPECT_EQ(s.empty(), text.empty());
    EXPECT_TRUE(s == text && s == String(text) && s == std::string_view(text));
    EXPECT_EQ(s.hash(), String(text).hash());
    EXPECT_EQ(fmt::format("{}", s), text);
  }
  EXPECT_EQ(String("a\0b"), "a") << "a C string ends at its NUL";
}

TEST(StringTest, OrderAndEqualityAreThoseOfTheText) {
  const std::vector<std::string> texts = {"",   "\0"s, "\0a"s, "a",    "a\0"s, "a\0b"s,
                                          "aa", "b",   "\x7f", "\x80", "\xff"};
  for (const auto& a : texts) {
    for (const auto& b : texts) {
      EXPECT_EQ(String(a) <=> String(b), a <=> b) << a << " against " << b;
      EXPECT_EQ(String(a) == String(b), a == b);
      EXPECT_EQ(String(a) == b, a == b);
    }
  }
}

TEST(StringTest, TextsOfOneHashAreStillTwo) {
  std::unordered_map<uint32_t, String> known;
  int pairs = 0;
  for (int i = 0; pairs < 3; ++i) {
    ASSERT_LT(i, 2000000) << "so many texts share a hash somewhere";
    const String text(std::to_string(i));
    const auto [at, isNew] = known.try_emplace(text.hash(), text);
    if (isNew) continue;
    EXPECT_NE(at->second, text);
    ++pairs;
  }
}

TEST(StringTest, CopiesShareAndOutliveEachOther) {
  auto first = std::make_unique<String>("some text");
  const void* place = first->view().data();
  String second = *first, third;
  third = second;
  String& alias = third;
  third = alias;
  third = std::move(alias);
  EXPECT_EQ(third.view().data(), place) << "self-assignment keeps the text";
  first.reset();
  String fourth = std::move(second);
  EXPECT_EQ(second, "");
  second = "another";
  EXPECT_EQ(fourth.view().data(), place);
  EXPECT_EQ(fourth, third);
  EXPECT_EQ(String().hash(), String("").hash());
  EXPECT_EQ(sizeof(String), sizeof(void*));
}

TEST(StringTest, HashesSpreadAndSeeLengthAndPosition) {
  std::set<uint32_t> hashes;
  std::unordered_set<String> texts;
  for (size_t size = 0; size <= 40; ++size) {
    const std::string zeros(size, '\0');
    hashes.insert(String(zeros).hash());
    texts.insert(zeros);
    for (size_t at = 0; at < size; ++at) {
      std::string one = zeros;
      one[at] = '\1';
      hashes.insert(String(one).hash());
      texts.insert(one);
    }
  }
  EXPECT_EQ(texts.size(), 861u);
  EXPECT_GE(hashes.size(), 860u) << "861 texts of zeros and a one";
}

TEST(HashTest, IntegersAndSeedsSpreadOverTheLeadingBits) {
  std::set<uint32_t> leading, seeded;
  for (int i = -512; i < 512; ++i) {
    leading.insert(Kelp::keyHash(i) >> 20);
    seeded.insert(Kelp::keyHash(7, static_cast<uint32_t>(i)) >> 20);
  }
  // 1024 balls in 4096 bins fill about 906 of them.
  EXPECT_GT(leading.size(), 850u);
  EXPECT_GT(seeded.size(), 850u);
  EXPECT_NE(Kelp::keyHashAll(1, 2), Kelp::keyHashAll(2, 1)) << "fields do not swap";
  EXPECT_NE(Kelp::keyHashAll(String("a"), String("b")), Kelp::keyHashAll(String("b"), String("a")));
}

TEST(DurationTest, IsARealNumberOfSeconds) {
  const Kelp::Duration a(1.5), b(0.25);
  EXPECT_EQ((a + b).seconds(), 1.75);
  EXPECT_EQ((b - a).seconds(), -1.25);
  EXPECT_TRUE(b < a && Kelp::Duration() == Kelp::Duration(0));
  EXPECT_EQ(fmt::format("{:.3f}", a), "1.500");
}

}  // namespace
