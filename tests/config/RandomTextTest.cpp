#include "Support.h"

#include <chrono>
#include <random>
#include <type_traits>
#include <variant>

namespace Config {
namespace {

/// Statements that are right one below the other.
const std::vector<std::string_view> blocks[] = {
    {"ip access-list A", "remark partners first", "10 permit tcp 192.0.2.0/24 host 198.51.100.7 eq 443",
     "permit udp any range 1024 65535 any eq domain ntp", "30 permit tcp any any established",
     "40 deny icmp any 203.0.113.0 0.0.0.255 echo log", "permit ip any any dscp ef 0x3f ttl eq 255",
     "4294967000 permit vlan 100 0xfff ip any any fragments", "no 10", "no remark",
     "no permit tcp any any established"},
    {"ip access-list standard S", "permit host 192.0.2.1", "deny 192.0.2.0 0.0.0.255 log", "5 permit any"},
    {"ipv6 access-list A", "10 permit icmpv6 any any 2 0",
     "permit tcp 2001:db8::/32 gt 1023 any neq ssh 1 2 3 4 5 6 7 8 9 syn ack",
     "permit ipv6 any 2001:db8::1 ::ffff traffic-class 0x20 0xf0 hop-limit gt 1"},
    {"mac access-list L2", "20 permit 02:00:5e:00:00:00 00:00:00:ff:ff:ff any 0x0806",
     "permit vlan 7 any any ip mirror session WATCH", "no permit any any ip", "remark other"},
    {"interface eth1", "ip access-group A in", "ipv6 access-group A out", "no mac access-group L2 out"},
    {"port-channel po1 members eth2 eth3", "mirror session WATCH destination eth9", "no port-channel po1",
     "no ip access-list A", "no mirror session WATCH", "no interface eth1"},
};

constexpr std::string_view pieces[] = {
    "no",    "0x",    "0xffffffffff", "any",        "host",      "/",      "/33",     "::",      "eq",
    "range", "65536", "10",           "4294967296", "!",         "#",      "",        "log",     "vlan",
    "\r",    "\t",    "\xff",         "\xe2\x82",   "fragments", "mirror", "session", "1.2.3.4", "in"};

/// A few blocks, each with its first line and some of the others.
template <class Each>
void randomText(std::mt19937& random, Each each) {
  for (auto count = 1 + random() % 4; count > 0; --count) {
    const auto& block = blocks[random() % std::size(blocks)];
    each(std::string(block[0]));
    for (auto lines = random() % 5; lines > 0; --lines)
      each(std::string(block[1 + random() % (block.size() - 1)]));
  }
}

/// Changes a statement at a few random places: bytes, words, cuts.
std::string mutated(std::string text, std::mt19937& random) {
  const auto below = [&](size_t limit) { return limit == 0 ? 0 : random() % limit; };
  for (auto changes = below(4); changes > 0; --changes) {
    const size_t place = below(text.size() + 1);
    switch (below(6)) {
      case 0:
        text.insert(place, 1, static_cast<char>(below(256)));
        break;
      case 1:
        text.insert(place, " " + std::string(pieces[below(std::size(pieces))]) + " ");
        break;
      case 2:
        text.erase(place, below(8));
        break;
      case 3:
        text.resize(place);
        break;
      case 4:
        if (place < text.size()) text[place] = static_cast<char>(text[place] ^ (1 << below(8)));
        break;
      default:
        text.insert(place, blocks[below(std::size(blocks))][0]);
    }
  }
  return text;
}

bool hasControl(std::string_view text) {
  return text.find_first_of(std::string_view("\0\x1b\r\n", 4)) != std::string_view::npos;
}

TEST(RandomText, IsReadOrReportedInTheOrderOfTheText) {
  std::mt19937 random(20240601);
  int taken = 0, refused = 0;
  for (int round = 0; round < 4000; ++round) {
    std::string text;
    randomText(random, [&](std::string line) {
      text += (random() % 4 == 0 ? mutated(std::move(line), random) : line) + "\n";
    });
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
  std::mt19937 random(7);
  for (int round = 0; round < 500; ++round) {
    std::string text(random() % 300, '\0');
    for (auto& byte : text) byte = static_cast<char>(random());
    const auto result = readText(text);
    ASSERT_EQ(result.model.has_value(), result.mistakes.empty());
  }
}

TEST(RandomText, EveryBeginningOfATextIsRead) {
  std::string text;
  for (const auto& block : blocks) {
    for (const auto statement : block) text += std::string(statement) + "\n";
  }
  for (size_t size = 0; size <= text.size(); ++size) {
    const auto result = readText(std::string_view(text).substr(0, size));
    ASSERT_EQ(result.model.has_value(), result.mistakes.empty());
  }
}

/// The text of a rule, read again, is the same rule: what is shown can be typed.
TEST(RandomText, ARulesTextReadsBackAsTheRule) {
  int rules = 0;
  std::mt19937 random(3);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    randomText(random, [&](const std::string& line) { text += line + "\n"; });
    const auto result = readText(text);
    if (!result.model) continue;  // no number may be left
    for (const auto& [key, list] : result.model->lists) {
      for (const auto& [number, rule] : list.rules) {
        const std::string header = std::string(stringValue(key.first)) + " access-list " +
                                   (list.standard ? "standard " : "") + key.second + "\n";
        const auto shown = std::to_string(number) + " " + common(rule).text.str() + "\n";
        const auto again = listOf(header + shown, key.second, key.first).rules.at(number);
        EXPECT_TRUE(std::visit(
            [&](const auto& r) { return r.isSameRule(std::get<std::decay_t<decltype(r)>>(again)); }, rule))
            << shown;
        EXPECT_EQ(common(again).text, common(rule).text);
        ++rules;
      }
    }
  }
  EXPECT_GT(rules, 300);
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
