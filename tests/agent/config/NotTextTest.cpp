#include "Support.h"

#include <agent/config/Nearest.h>
#include <agent/config/NotText.h>

namespace Config {
namespace {

using namespace std::string_literals;

TEST(NotText, IsToldInOneLine) {
  const struct {
    const char* why;
    std::string text;
    const char* what;
  } table[] = {
      {"a document", "{\"lists\": [\n{\"name\": 1},\n{}\n]}\n", "JSON"},
      {"an empty document behind blanks", "\n  {}\n", "JSON"},
      {"an array", "[{\"a\": 1}]", "JSON"},
      {"an array of arrays", "[ [1], [2] ]", "JSON"},
      {"an array of numbers", "[1,2]", "JSON"},
      {"a negative one", "[-1]", "JSON"},
      {"an array of truths", "[ true, null]", "JSON"},
      {"a declaration", "<?xml version=\"1.0\"?>\n<acl/>\n", "XML or HTML"},
      {"a page", "<!DOCTYPE html>\n<p>\n", "XML or HTML"},
      {"an element", "<rpc-reply>\n</rpc-reply>\n", "XML or HTML"},
      {"XML behind a byte order mark", "\xef\xbb\xbf<a/>", "XML or HTML"},
      {"compressed by gzip", "\x1f\x8b\x08\x00\x00\x00\x00\x00"s, "a compressed file"},
      {"compressed by zstd", "\x28\xb5\x2f\xfd\x04"s, "a compressed file"},
      {"a capture", "\xd4\xc3\xb2\xa1\x02\x00\x04\x00"s, "a capture"},
      {"a newer capture", "\n\r\r\n\x1c\x00\x00\x00"s, "a capture"},
      {"a program", "\x7f\x45LF\x02\x01\x01\x00"s, "a program"},
      {"a state file", "SQLite format 3\x00\x10\x00"s, "a database (a state file?)"},
      {"wide characters", "\xff\xfei\0p\0 \0"s, "UTF-16 text"},
      {"wide characters without a mark", "i\0p\0 \0a\0c\0c\0e\0s\0s\0"s, "binary data"},
      {"a certificate", "-----BEGIN CERTIFICATE-----\nMII\n", "a key or certificate"},
  };
  for (const auto& row : table) {
    EXPECT_EQ(mistakesOf(row.text), "t:1:1: found "s + row.what + ", expected a configuration text\n")
        << row.why;
  }
  EXPECT_EQ(read({{"a", "x\n"}, {"b", "{}"}, {"c", "y\n"}}).mistakes.size(), 3u)
      << "the texts in front and behind are read";
}

TEST(NotText, IsNothingThatMayBeAText) {
  const struct {
    const char* why;
    std::string text;
  } table[] = {
      {"nothing", ""},
      {"blanks", " \n\t\n"},
      {"statements", "ip access-list A\n"},
      {"a comment with a brace", "! {\"a\": 1}\n"},
      {"a typing mistake", "{ip access-list A\n"},
      {"a section of another format", "[section]\n"},
      {"one that begins as a word of JSON", "[network]\n"},
      {"an arrow", "<- here\n"},
      {"a few bytes that do not belong there", "ip access-list \0\x01\x02\n"s},
      {"a comment in another encoding", "! \xe9\xe8\xfc\xf6\xe4\xdf\xe9\xe8\xfc\xf6\n"},
  };
  for (const auto& row : table) EXPECT_EQ(notText(row.text), "") << row.why;
}

TEST(Nearest, NamesAreThoseThatAWordMayHaveBeenMeantToBe) {
  const std::vector<std::string_view> names = {"tcp",  "udp",  "icmp", "telnet", "telnets",
                                               "af11", "af12", "af13", "af21",   "established"};
  const struct {
    const char* why;
    const char* word;
    std::vector<std::string_view> nearest;
  } table[] = {
      {"two exchanged", "tpc", {"tcp"}},
      {"one left out", "telet", {"telnet"}},
      {"one too many", "ttcp", {"tcp"}},
      {"one wrong", "tep", {"tcp"}},
      {"capitals", "TCP", {"tcp"}},
      {"the nearest only", "telnett", {"telnet", "telnets"}},
      {"at most three", "af1x", {"af11", "af12", "af13"}},
      {"shortened", "estab", {"established"}},
      {"far off", "bridge", {}},
      {"two letters are too few to guess", "tp", {}},
      {"nothing", "", {}},
      {"three wrong of a long word", "estyblyshad", {"established"}},
      {"four wrong of a long word", "estyblyshyd ", {}},
  };
  for (const auto& row : table) EXPECT_EQ(nearestNames(row.word, names), row.nearest) << row.why;
  EXPECT_TRUE(nearestNames(std::string(1 << 20, 't'), names).empty()) << "a long word costs nothing";
  const std::vector<std::string_view> twice = {"tcp", "tcp"};
  EXPECT_EQ(nearestNames("tcp", twice).size(), 1u) << "a name is told once";
}

}  // namespace
}  // namespace Config
