#include <Nimnet/Addr.h>
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <random>

namespace {

using Nimnet::EthAddr;
using Nimnet::Ip6Addr;
using Nimnet::IpAddr;

/// `written` is what the address reads back as; null when `text` is no address.
struct Row {
  const char* text;
  const char* written;
  const char* why;
};

template <class Address>
void check(const Row& row) {
  SCOPED_TRACE(std::string(row.text) + ": " + row.why);
  const auto parsed = Address::parse(row.text);
  ASSERT_EQ(parsed.has_value(), row.written != nullptr);
  if (!parsed) return;
  EXPECT_EQ(parsed->str(), row.written);
  EXPECT_EQ(Address::parse(parsed->str()), parsed) << "what is written reads back as the same address";
}

TEST(EthAddr, ReadsTwoFormsAndWritesTheFirst) {
  const Row rows[] = {
      {"00:1c:73:00:00:99", "00:1c:73:00:00:99", "six octets"},
      {"FF:FF:ff:ff:FF:ff", "ff:ff:ff:ff:ff:ff", "either case is read, lower case written"},
      {"001c.7300.0099", "00:1c:73:00:00:99", "three words"},
      {"0:1c:73:0:0:99", nullptr, "a digit left out"},
      {"00:1c:73:00:00", nullptr, "five octets"},
      {"00:1c:73:00:00:99:", nullptr, "something behind it"},
      {"00-1c-73-00-00-99", nullptr, "another separator"},
      {"00:1c.73:00:00:99", nullptr, "mixed separators"},
      {"001c:7300:0099", nullptr, "words with the separator of octets"},
      {"001c73000099", nullptr, "no separator"},
      {"00:1c:73:00:00:9g", nullptr, "not a hexadecimal digit"},
      {" 0:1c:73:00:00:99", nullptr, "a blank for a digit"},
      {"", nullptr, "nothing"},
  };
  for (const Row& row : rows) check<EthAddr>(row);
}

TEST(EthAddr, NumberAndOctetsAreTheSameAddress) {
  const EthAddr a = *EthAddr::parse("01:23:45:67:89:ab");
  EXPECT_EQ(a.value(), 0x0123456789abu);
  EXPECT_EQ(EthAddr::fromValue(0x0123456789ab), a);
}

TEST(IpAddr, ReadsDottedQuadsOnly) {
  const Row rows[] = {
      {"0.0.0.0", "0.0.0.0", "the lowest"},
      {"255.255.255.255", "255.255.255.255", "the highest"},
      {"192.0.2.1", "192.0.2.1", "a usual one"},
      {"256.0.0.1", nullptr, "a number above 255"},
      {"1.2.3.999", nullptr, "far above 255"},
      {"1.2.3.4294967296", nullptr, "a number that would wrap"},
      {"1.2.3", nullptr, "three numbers"},
      {"1.2.3.4.5", nullptr, "five numbers"},
      {"1.2.3.", nullptr, "the last is missing"},
      {".1.2.3", nullptr, "the first is missing"},
      {"1..2.3", nullptr, "one in the middle is missing"},
      {"01.2.3.4", nullptr, "a leading zero is octal to some readers"},
      {"1.2.3.00", nullptr, "so are two zeros"},
      {"0x1.2.3.4", nullptr, "no hexadecimal"},
      {"1.2.3.4 ", nullptr, "a blank behind it"},
      {"+1.2.3.4", nullptr, "a sign"},
      {"1.2.3.4/24", nullptr, "a prefix is no address"},
      {"", nullptr, "nothing"},
  };
  for (const Row& row : rows) check<IpAddr>(row);
  EXPECT_EQ(IpAddr::parse("192.0.2.1")->value, 0xc0000201u) << "host byte order";
}

TEST(Ip6Addr, ReadsAllFormsAndWritesTheCanonicalOne) {
  const Row rows[] = {
      {"2001:db8:0:0:8:800:200c:417a", "2001:db8::8:800:200c:417a",
       "all groups; the run of zeros is shortened"},
      {"2001:DB8::8:800:200C:417A", "2001:db8::8:800:200c:417a", "lower case is written"},
      {"2001:0db8:0000:0000:0000:0000:0000:0001", "2001:db8::1", "leading zeros are dropped"},
      {"::", "::", "all zero"},
      {"::1", "::1", "zeros in front"},
      {"1::", "1::", "zeros behind"},
      {"2001:db8:0:1:1:1:1:1", "2001:db8:0:1:1:1:1:1", "one zero group is not shortened"},
      {"2001:db8::1:1:1:1:1", "2001:db8:0:1:1:1:1:1", "nor kept shortened"},
      {"2001:0:0:1:0:0:0:1", "2001:0:0:1::1", "the longer run is shortened"},
      {"2001:db8:0:0:1:0:0:1", "2001:db8::1:0:0:1", "of two equal runs the first"},
      {"0:0:1:2:3:4:0:0", "::1:2:3:4:0:0", "the first, at the very front"},
      {"1:2:3:4:5:6:7::", "1:2:3:4:5:6:7:0", ":: may stand for a single group"},
      {"::2:3:4:5:6:7:8", "0:2:3:4:5:6:7:8", "at the front, too"},
      {"::ffff:192.0.2.1", "::ffff:192.0.2.1", "an IPv4-mapped address keeps its dotted quad"},
      {"::ffff:c000:201", "::ffff:192.0.2.1", "and gets it"},
      {"::13.1.68.3", "::d01:4403", "an address with an embedded quad that is not IPv4-mapped"},
      {"64:ff9b::192.0.2.33", "64:ff9b::c000:221", "any prefix before a quad"},
      {"1:2:3:4:5:6:7.8.9.10", "1:2:3:4:5:6:708:90a", "six groups and a quad"},
      {"1:2:3:4:5:6:7:8", "1:2:3:4:5:6:7:8", "nothing to shorten"},
      {"", nullptr, "nothing"},
      {":", nullptr, "half of ::"},
      {":::", nullptr, "too much of it"},
      {"1::2::3", nullptr, ":: twice"},
      {"1:2:3:4:5:6:7", nullptr, "seven groups"},
      {"1:2:3:4:5:6:7:8:9", nullptr, "nine groups"},
      {"1:2:3:4::5:6:7:8", nullptr, ":: with no group left to stand for"},
      {"1:2:3:4:5:6:7:8::", nullptr, "the same at the end"},
      {"12345::", nullptr, "five digits"},
      {"1:2:3:4:5:6:7:", nullptr, "a colon at the end"},
      {":1:2:3:4:5:6:7", nullptr, "a colon in front"},
      {"::1:", nullptr, "a colon behind a shortened one"},
      {"g::", nullptr, "not a hexadecimal digit"},
      {"1.2.3.4", nullptr, "a bare quad"},
      {"1.2.3.4::", nullptr, "a quad in front"},
      {"::1.2.3.4:5", nullptr, "a quad in the middle"},
      {"1:2:3:4:5:6:7:1.2.3.4", nullptr, "no room for the quad"},
      {"::256.2.3.4", nullptr, "a bad quad"},
      {"fe80::1%eth0", nullptr, "a zone"},
      {"2001:db8::/32", nullptr, "a prefix"},
      {" ::1", nullptr, "a blank in front"},
  };
  for (const Row& row : rows) check<Ip6Addr>(row);
  EXPECT_EQ(*Ip6Addr::parse("2001:db8::1"), (Ip6Addr{0x20010db800000000, 1})) << "host byte order";
}

TEST(Ip6Addr, AgreesWithTheSystemOnRandomText) {
  std::mt19937 random(6);
  const std::string_view pieces[] = {":",    ":",     ":",       "::",        "0", "1", "ab",
                                     "ffff", "12345", "1.2.3.4", "256.1.1.1", "g", "."};
  int accepted = 0;
  for (int round = 0; round < 200000; ++round) {
    std::string text;
    for (unsigned left = random() % 17; left > 0; --left)
      text += pieces[random() % (round % 2 ? 8 : std::size(pieces))];
    unsigned char bytes[16];
    const bool valid = inet_pton(AF_INET6, text.c_str(), bytes) == 1;
    const auto parsed = Ip6Addr::parse(text);
    ASSERT_EQ(parsed.has_value(), valid) << text;
    if (!valid) continue;
    ++accepted;
    Ip6Addr expected;
    for (int i = 0; i < 8; ++i) {
      expected.high = expected.high << 8 | bytes[i];
      expected.low = expected.low << 8 | bytes[i + 8];
    }
    ASSERT_EQ(*parsed, expected) << text;
    ASSERT_EQ(Ip6Addr::parse(parsed->str()), expected) << text;
  }
  EXPECT_GT(accepted, 1000) << "the random text is too random";
}

}  // namespace
