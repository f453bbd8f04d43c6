#include <agent/client/WatchView.h>
#include <gtest/gtest.h>

namespace {

using Agent::WatchKey;
using Agent::WatchView;
using Lines = std::vector<std::string>;

std::string sections(std::initializer_list<std::pair<const char*, int>> all) {
  std::string text;
  for (const auto& [name, lines] : all) {
    text += std::string(name) + "  (changing)\n";
    for (int i = 1; i < lines; ++i) text += "   " + std::string(name) + std::to_string(i) + "\n";
  }
  return text;
}

std::string first(const WatchView& view) { return view.lines(1, 80).front(); }

TEST(WatchView, ShowsAPartOfTheText) {
  WatchView view;
  EXPECT_EQ(view.lines(5, 80), Lines());
  EXPECT_EQ(view.placeText(5), "0 of 0");
  view.textIs("a\n b\n c\n");
  EXPECT_EQ(view.lines(2, 80), (Lines{"a", " b"}));
  EXPECT_EQ(view.placeText(2), "1-2 of 3");
  EXPECT_EQ(view.lines(5, 80), (Lines{"a", " b", " c"}));
  EXPECT_EQ(view.placeText(5), "1-3 of 3");
}

TEST(WatchView, ALineThatIsTooLongIsCutAndKeepsItsColours) {
  WatchView view;
  view.textIs("\x1b[1mbold\x1b[0m and more\n\xc3\xa4\xc3\xb6x\n");
  EXPECT_EQ(view.lines(1, 6).front(), "\x1b[1mbold\x1b[0m a");
  EXPECT_EQ(view.lines(1, 4).front(), "\x1b[1mbold\x1b[0m");
  EXPECT_EQ(view.lines(2, 2).back(), "\xc3\xa4\xc3\xb6") << "characters are counted, not octets";
}

TEST(WatchView, MovesByLinesPagesAndSections) {
  WatchView view;
  view.textIs(sections({{"A", 10}, {"B", 10}, {"C", 10}}));
  const auto after = [&view](WatchKey key) {
    view.move(key, 8);
    return first(view);
  };
  EXPECT_EQ(after(WatchKey::down), "   A1");
  EXPECT_EQ(after(WatchKey::up), "A  (changing)");
  EXPECT_EQ(after(WatchKey::up), "A  (changing)") << "not before the beginning";
  EXPECT_EQ(after(WatchKey::pageDown), "   A7") << "a page but one line";
  EXPECT_EQ(after(WatchKey::next), "B  (changing)");
  EXPECT_EQ(after(WatchKey::next), "C  (changing)");
  EXPECT_EQ(after(WatchKey::next), "C  (changing)") << "there is none behind it";
  EXPECT_EQ(after(WatchKey::previous), "B  (changing)");
  EXPECT_EQ(after(WatchKey::pageUp), "   A3");
  EXPECT_EQ(after(WatchKey::end), "   C2") << "the last page is full";
  EXPECT_EQ(after(WatchKey::down), "   C2");
  EXPECT_EQ(after(WatchKey::begin), "A  (changing)");
}

TEST(WatchView, KeepsItsPlaceBehindTheBeginningOfItsSection) {
  WatchView view;
  view.textIs(sections({{"A", 10}, {"B", 10}, {"C", 10}}));
  view.move(WatchKey::next, 5);
  view.move(WatchKey::down, 5);
  view.move(WatchKey::down, 5);
  EXPECT_EQ(first(view), "   B2");
  view.textIs(sections({{"A", 20}, {"NEW", 3}, {"B", 10}, {"C", 10}}));
  EXPECT_EQ(first(view), "   B2") << "more before it";
  view.textIs(sections({{"C", 10}, {"B", 10}}));
  EXPECT_EQ(first(view), "   B2") << "another order";
  view.textIs(sections({{"B", 2}}));
  EXPECT_EQ(first(view), "   B1") << "the last line there is";
  view.textIs(sections({{"C", 10}, {"D", 10}}));
  EXPECT_FALSE(view.lines(1, 80).empty()) << "its section has gone";
  view.textIs("");
  EXPECT_TRUE(view.lines(1, 80).empty());
  view.textIs(sections({{"C", 10}}));
  EXPECT_EQ(first(view), "C  (changing)");
}

TEST(WatchView, TheScreenStaysFilled) {
  const auto shown = [](const WatchView& view) { return view.lines(8, 80).size(); };
  WatchView view;
  view.textIs(sections({{"A", 10}, {"B", 10}, {"C", 4}}));
  view.move(WatchKey::next, 8);
  view.move(WatchKey::next, 8);
  EXPECT_EQ(view.placeText(8), "17-24 of 24") << "C has four lines";
  EXPECT_EQ(shown(view), 8u);
  view.move(WatchKey::next, 8);
  EXPECT_EQ(view.placeText(8), "17-24 of 24") << "nothing is behind it";
  view.move(WatchKey::up, 8);
  EXPECT_EQ(view.placeText(8), "16-23 of 24") << "from what is shown";
  view.move(WatchKey::previous, 8);
  EXPECT_EQ(view.placeText(8), "11-18 of 24") << "B";
  view.textIs(sections({{"A", 9}}));
  EXPECT_EQ(view.placeText(8), "2-9 of 9") << "its section has gone, and most lines with it";
  EXPECT_EQ(shown(view), 8u);
  view.textIs(sections({{"A", 3}}));
  EXPECT_EQ(view.placeText(8), "1-3 of 3");
  EXPECT_EQ(shown(view), 3u);
  view.textIs(sections({{"B", 3}, {"A", 30}, {"C", 4}}));
  EXPECT_EQ(shown(view), 8u) << "another order";
}

TEST(WatchView, ColoursAreNoPartOfASectionsName) {
  WatchView view;
  view.textIs(
      "\x1b[1mip access-list A\x1b[0m  (eth1 in)\n  x\n\x1b[1mip access-list B\x1b[0m  (eth1 in)\n  y\n");
  view.move(WatchKey::next, 1);
  view.textIs(
      "ip access-list 0  (eth1 in)\n  x\nip access-list A  (eth1 in)\n  x\nip access-list B  (eth2 in)\n  "
      "y\n");
  EXPECT_EQ(first(view), "ip access-list B  (eth2 in)");
}

TEST(WatchView, KeysAreReadOutOfWhatATerminalSends) {
  using K = WatchKey;
  struct Row {
    const char* why;
    std::string input;
    std::vector<K> keys;
    std::string left;
  };
  for (const Row& row : {
           Row{"letters", "qsun p", {K::quit, K::sort, K::unused, K::next, K::pageDown, K::previous}, ""},
           Row{"arrows, of both kinds", "\x1b[A\x1b[B\x1bOA", {K::up, K::down, K::up}, ""},
           Row{"pages and ends",
               "\x1b[5~\x1b[6~\x1b[H\x1b[F",
               {K::pageUp, K::pageDown, K::begin, K::end},
               ""},
           Row{"what is no key", "xyz\x1b[99;5Hq\r", {K::quit}, ""},
           Row{"a key that has not come to its end", "s\x1b[", {K::sort}, "\x1b["},
           Row{"nor this one", "\x1b[5", {}, "\x1b[5"},
           Row{"an escape alone may be the beginning of one", "\x1b", {}, "\x1b"},
           Row{"with another key behind it it is none", "\x1bxq", {K::quit}, ""},
       }) {
    std::string input = row.input;
    EXPECT_EQ(Agent::takeKeys(input), row.keys) << row.why;
    EXPECT_EQ(input, row.left) << row.why;
  }
}

}  // namespace
