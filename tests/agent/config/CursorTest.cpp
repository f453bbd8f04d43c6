#include "Support.h"

#include <agent/config/Cursor.h>

namespace Config {
namespace {

TEST(Numbers, AreWholeWords) {
  const struct {
    const char* why;
    const char* word;
    int64_t decimalValue, hexadecimalValue;
  } table[] = {
      {"zero", "0", 0, -1},
      {"the highest", "4294967295", 4294967295, -1},
      {"one more does not fit", "4294967296", -1, -1},
      {"far too long", "99999999999999999999999999", -1, -1},
      {"a leading zero could be octal", "010", -1, -1},
      {"no sign", "-1", -1, -1},
      {"no plus either", "+1", -1, -1},
      {"nothing behind it", "1x", -1, -1},
      {"the empty word", "", -1, -1},
      {"hexadecimal", "0x1f", -1, 31},
      {"capital digits", "0x1F", -1, 31},
      {"leading zeros are usual there", "0x00f", -1, 15},
      {"a capital X is not a whole keyword", "0X1f", -1, -1},
      {"no digits", "0x", -1, -1},
      {"no sign inside", "0x-1", -1, -1},
      {"no second prefix", "0x0x1", -1, -1},
      {"32 bits", "0xffffffff", -1, 4294967295},
      {"33 bits", "0x1ffffffff", -1, -1},
  };
  for (const auto& row : table) {
    const auto d = decimal(row.word);
    const auto h = hexadecimal(row.word);
    EXPECT_EQ(d ? static_cast<int64_t>(*d) : -1, row.decimalValue) << row.why << ": " << row.word;
    EXPECT_EQ(h ? static_cast<int64_t>(*h) : -1, row.hexadecimalValue) << row.why << ": " << row.word;
  }
}

TEST(Lines, AreReadWhateverEndsThem) {
  const struct {
    const char* why;
    std::string text;
  } table[] = {
      {"line feeds", "ip access-list A\n10 permit ip any any\n"},
      {"no line end at the end", "ip access-list A\n10 permit ip any any"},
      {"carriage return and line feed", "ip access-list A\r\n10 permit ip any any\r\n"},
      {"a carriage return at the end", "ip access-list A\n10 permit ip any any\r"},
      {"tabs between words", "\tip\taccess-list\tA\n\t\t10\tpermit\tip\tany\tany\t\n"},
      {"blanks behind", "ip access-list A   \n10 permit ip any any   \n"},
      {"empty lines", "\n\nip access-list A\n  \t \n10 permit ip any any\n\n"},
      {"comments of both kinds, indented or not",
       "! a\n# b\nip access-list A\n  !c\n\t#d\n10 permit ip any any\n!"},
      {"a comment in another encoding", "! caf\xe9\nip access-list A\n10 permit ip any any\n"},
      {"a byte order mark", "\xef\xbb\xbfip access-list A\n10 permit ip any any\n"},
  };
  for (const auto& row : table) {
    const auto list = listOf(row.text);
    ASSERT_EQ(list.rules.size(), 1u) << row.why;
    EXPECT_EQ(common(list.rules.at(10)).text, "permit ip any any") << row.why;
  }
}

TEST(Lines, WithBytesOfNoTextAreMistakesWithTheirPlace) {
  using namespace std::string_literals;
  const struct {
    const char* why;
    std::string text;
    const char* mistakes;
  } table[] = {
      {"a NUL byte in a word", "interface e\0th1\n"s,
       "t:1:12: found byte 0x00, expected printable UTF-8 text\n"},
      {"a NUL byte in a comment may hide a statement", "! \0\n"s,
       "t:1:3: found byte 0x00, expected printable UTF-8 text\n"},
      {"a lone carriage return would make the rest a comment", "! x\rinterface e\n"s,
       "t:1:4: found byte 0x0d, expected printable UTF-8 text\n"},
      {"a form feed is no blank", "interface\fe\n"s,
       "t:1:10: found byte 0x0c, expected printable UTF-8 text\n"},
      {"delete", "interface e\x7f\n"s, "t:1:12: found byte 0x7f, expected printable UTF-8 text\n"},
      {"an escape sequence never reaches a terminal", "interface \x1b[31m\n"s,
       "t:1:11: found byte 0x1b, expected printable UTF-8 text\n"},
      {"a remark that is not UTF-8", "ip access-list A\nremark caf\xe9\n"s,
       "t:2:11: found byte 0xe9, expected printable UTF-8 text\n"},
      {"an overlong form", "ip access-list A\nremark \xc0\x80\n"s,
       "t:2:8: found byte 0xc0, expected printable UTF-8 text\n"},
      {"a surrogate", "ip access-list A\nremark \xed\xa0\x80\n"s,
       "t:2:8: found byte 0xed, expected printable UTF-8 text\n"},
      {"a character cut off", "ip access-list A\nremark \xe2\x82"s,
       "t:2:8: found byte 0xe2, expected printable UTF-8 text\n"},
      {"a name is printable ASCII", "interface caf\xc3\xa9\n"s,
       "t:1:11: found \"caf\xc3\xa9\", expected the name of an interface in printable ASCII\n"},
  };
  for (const auto& row : table) EXPECT_EQ(mistakesOf(row.text), row.mistakes) << row.why;
}

TEST(Mistakes, QuoteLongWordsInPart) {
  const auto mistakes = readText("interface e " + std::string(1000000, 'x') + "\n").mistakes;
  ASSERT_EQ(mistakes.size(), 1u);
  EXPECT_EQ(mistakes[0].found, "\"" + std::string(60, 'x') + "...\"");
  EXPECT_EQ(quote(std::string(59, 'x') + "\xc3\xa9"), "\"" + std::string(59, 'x') + "...\"")
      << "a character is not cut in two";
}

TEST(Mistakes, ChoicesReadAsASentence) {
  EXPECT_EQ(anyOf({}), "");
  EXPECT_EQ(anyOf({"a"}), "a");
  EXPECT_EQ(anyOf({"a", "b"}), "a or b");
  EXPECT_EQ(anyOf({"a", "b", "c"}), "a, b or c");
}

}  // namespace
}  // namespace Config
