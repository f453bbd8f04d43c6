#include <Kiv/UniqueId.h>
#include <Kiv/UniqueIdSeed.h>
#include <gtest/gtest.h>

#include <set>
#include <string>
#include <unordered_set>

namespace {

using Kiv::UniqueId;

constexpr uint64_t topBit = uint64_t{1} << 63;

TEST(UniqueIdTest, TextsGiveIds) {
  struct Row {
    const char* text;
    uint64_t id;  // 0 with `hashed` set: any id of the hashed kind
    bool hashed;
    const char* why;
  };
  const Row rows[] = {
      {"", 0, false, "the empty text is the empty id"},
      {"0x0000000000000007", 7, false, "a printed id reads back"},
      {"0xff", 0xff, false, "leading zeros may be left out"},
      {"0x8000000000000001", topBit | 1, false, "a generated id reads back, too"},
      {"rule 10", 0, true, "any other text is hashed"},
      {"0x", 0, true, "a prefix without digits is a text"},
      {"0xg1", 0, true, "a digit that is none makes it a text"},
      {"0x12 ", 0, true, "a trailing blank makes it a text"},
      {"0x00000000000000007", 0, true, "17 digits are more than an id has"},
      {"0x0", 0, true, "the empty id is not handed out under another name"},
      {"0xffffffffffffffff", 0, true, "nor is all-ones"},
  };
  for (const Row& row : rows) {
    const UniqueId id{std::string_view(row.text)};
    if (!row.hashed) {
      EXPECT_EQ(id.value(), row.id) << row.why;
    } else {
      EXPECT_FALSE(id.empty()) << row.why;
      EXPECT_NE(id, UniqueId::unset()) << row.why;
      EXPECT_EQ(id.value() & topBit, 0u) << row.why;
    }
    EXPECT_EQ(id, UniqueId(std::string_view(row.text))) << "equal texts give equal ids: " << row.why;
  }
}

TEST(UniqueIdTest, EveryPrintedIdReadsBackAsItself) {
  for (uint64_t value : {uint64_t{1}, uint64_t{0x1234567890abcdef}, topBit, ~uint64_t{0} - 1}) {
    EXPECT_EQ(UniqueId(std::string_view(UniqueId(value).str())), UniqueId(value));
  }
}

TEST(UniqueIdTest, GeneratedIdsAreNewAndNeverMeetThoseOfTexts) {
  std::set<UniqueId> ordered;
  std::unordered_set<uint32_t> hashes;
  for (int i = 0; i < 10000; ++i) {
    const UniqueId generated = UniqueId::generateUniqueId();
    EXPECT_NE(generated.value() & topBit, 0u);
    EXPECT_NE(generated, UniqueId::unset());
    EXPECT_TRUE(ordered.insert(generated).second);
    hashes.insert(generated.hash());
    const UniqueId fromText{std::string_view(std::to_string(i))};
    EXPECT_EQ(fromText.value() & topBit, 0u);
    EXPECT_TRUE(ordered.insert(fromText).second) << "no two of these texts collide";
  }
  EXPECT_GT(hashes.size(), 9990u) << "consecutive ids spread over the hash";
}

TEST(UniqueIdTest, GoesOnBehindTheIdsOfAnEarlierProcess) {
  const UniqueId last(UniqueId::generateUniqueId().value() + 1000);
  Kiv::generatedIdsFollow(last);
  EXPECT_GT(UniqueId::generateUniqueId(), last);
  const UniqueId now = UniqueId::generateUniqueId();
  for (const UniqueId& other : {last, UniqueId(), UniqueId::unset(), UniqueId("text")})
    Kiv::generatedIdsFollow(other);
  EXPECT_EQ(UniqueId::generateUniqueId().value(), now.value() + 1) << "never back, and nowhere else";
}

TEST(UniqueIdTest, PrintsAsSixteenHexadecimalDigits) {
  EXPECT_EQ(fmt::format("{}", UniqueId(0xab)), "0x00000000000000ab");
  EXPECT_EQ(fmt::format("{}", UniqueId::unset()), "0xffffffffffffffff");
}

}  // namespace
