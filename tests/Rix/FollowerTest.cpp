#include <Rix/NestedFollower.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <string>

namespace {

using Kelp::Ptr;
using Kelp::String;

class Bag : public Zeb::Entity {
  ZEB_ENTITY(Bag, Zeb::Entity)

 public:
  explicit Bag(String name = {}) : Entity(std::move(name)) {}
  ZEB_COLLECTION(item, Zeb::OrderedMap<String, int>)
  ZEB_COLLECTION(other, Zeb::OrderedMap<String, int>)
};
using Held = Zeb::OrderedMap<String, Ptr<const Bag>>;
class Shelf : public Zeb::Entity {
  ZEB_ENTITY(Shelf, Zeb::Entity)
  ZEB_COLLECTION(bag, Held)
  ZEB_CHILDREN(own, Zeb::HashMap2018<String, Zeb::Owned<Bag>>)
};

using Items = Rix::CollectionFollower<Bag::itemMap>;
/// What a test does in a handler, after it was noted: "+name" or "-name".
using Act = std::function<void(const std::string&)>;

/// Notes "+name=value" and "-name" of one bag.
struct Followed {
  explicit Followed(std::string& text, const Ptr<const Bag>& bag, Act act = nullptr) {
    const auto note = [&text](const std::string& what) { text += what + " "; };
    items = std::make_unique<Items>(
        bag, Bag::itemAttribute(), [raw = bag.get()]() -> auto& { return raw->item(); },
        [note, act](const String& key, const int& value) {
          note("+" + key.str() + "=" + std::to_string(value));
          if (act) act("+" + key.str());
        },
        [note, act](const String& key) {
          note("-" + key.str());
          if (act) act("-" + key.str());
        });
  }
  void withdraw() { items->withdraw(); }
  std::unique_ptr<Items> items;
};

struct FollowerTest : testing::Test {
  Ptr<Bag> bag = MemSlab::make<Bag>();
  std::string text;
  std::string take() { return std::exchange(text, ""); }
};

TEST_F(FollowerTest, ReportsWhatIsThereAndWhatChanges) {
  bag->itemIs("b", 2);
  bag->itemIs("a", 1);
  Followed f(text, bag);
  EXPECT_EQ(take(), "+a=1 +b=2 ");
  bag->itemIs("c", 3);
  bag->itemIs("a", 5);
  bag->itemIs("a", 5);
  bag->otherIs("x", 1);
  bag->itemDel("b");
  bag->itemDel("b");
  EXPECT_EQ(take(), "+c=3 +a=5 -b ");
  f.withdraw();
  EXPECT_EQ(take(), "-a -c ");
  f.withdraw();
  bag->itemIs("d", 4);
  EXPECT_EQ(take(), "") << "it follows no more";
}

TEST_F(FollowerTest, DestructionIsSilentAndEndsTheFollowing) {
  bag->itemIs("a", 1);
  {
    Followed f(text, bag);
    EXPECT_EQ(bag->nodeUseCount(), 2u) << "it holds what it follows";
  }
  bag->itemIs("b", 2);
  EXPECT_EQ(text, "+a=1 ");
  EXPECT_EQ(bag->nodeUseCount(), 1u);
}

/// Changes that a handler makes, once, when it is told `on`.
TEST_F(FollowerTest, ChangesFromWithinAHandlerAreToldOnceAndInTheirCurrentState) {
  struct Row {
    const char* why;
    const char* on;
    std::function<void(Bag&)> act;
    const char* told;
    const char* left;
  };
  const Row rows[] = {
      {"a later element is set during the first walk: told at once, not again by the walk", "+a",
       [](Bag& b) { b.itemIs("b", 9); }, "+a=1 +b=9 +c=3 ", "-a -b -c "},
      {"a new one in front", "+b", [](Bag& b) { b.itemIs("aa", 9); }, "+a=1 +b=2 +aa=9 +c=3 ",
       "-a -aa -b -c "},
      {"a new one behind", "+a", [](Bag& b) { b.itemIs("bb", 9); }, "+a=1 +bb=9 +b=2 +c=3 ", "-a -b -bb -c "},
      {"a later one is taken out before it was told", "+a", [](Bag& b) { b.itemDel("b"); }, "+a=1 +c=3 ",
       "-a -c "},
      {"an earlier one is taken out", "+b", [](Bag& b) { b.itemDel("a"); }, "+a=1 +b=2 -a +c=3 ", "-b -c "},
      {"the one being told is taken out", "+b", [](Bag& b) { b.itemDel("b"); }, "+a=1 +b=2 -b +c=3 ",
       "-a -c "},
      {"the one being told is written again", "+b", [](Bag& b) { b.itemIs("b", 7); }, "+a=1 +b=2 +b=7 +c=3 ",
       "-a -b -c "},
      {"out and in again", "+b",
       [](Bag& b) {
         b.itemDel("b");
         b.itemIs("b", 8);
       },
       "+a=1 +b=2 -b +b=8 +c=3 ", "-a -b -c "},
      {"put back when it is told gone", "-b", [](Bag& b) { b.itemIs("b", 6); }, "+a=1 +b=2 -b +b=6 +c=3 ",
       "-a -b -c "},
      {"all others go; one that was not told is not mentioned", "+b",
       [](Bag& b) {
         b.itemDel("a");
         b.itemDel("c");
       },
       "+a=1 +b=2 -a ", "-b "},
  };
  for (const Row& row : rows) {
    auto fresh = MemSlab::make<Bag>();
    int i = 0;
    for (const char* key : {"a", "b", "c"}) fresh->itemIs(key, ++i);
    bool acted = false;
    Followed f(text, fresh, [&](const std::string& told) {
      if (std::string(row.on) == "-b" && told == "+b" && !acted) fresh->itemDel("b");
      if (told == row.on && !std::exchange(acted, true)) row.act(*fresh);
    });
    EXPECT_EQ(take(), row.told) << row.why;
    f.withdraw();
    EXPECT_EQ(take(), row.left) << row.why;
  }
}

TEST_F(FollowerTest, AnEarlierSubscriberMayUndoAChangeBeforeItIsTold) {
  std::string first;
  bool undo = true;
  Followed early(first, bag, [&](const std::string& told) {
    if (undo && told == "+a") bag->itemDel("a");
    if (undo && told == "-k") bag->itemIs("k", 2);
  });
  Followed late(text, bag);
  bag->itemIs("a", 1);
  EXPECT_EQ(first, "+a=1 -a ");
  EXPECT_EQ(take(), "") << "it was never there when it was this one's turn";
  bag->itemIs("k", 1);
  take();
  bag->itemDel("k");
  EXPECT_EQ(take(), "+k=2 +k=2 ") << "the current state, both times";
  undo = false;
  bag->itemDel("k");
  EXPECT_EQ(take(), "-k ");
}

TEST_F(FollowerTest, AHandlerMayWithdrawItsFollower) {
  for (const char* key : {"a", "b", "c"}) bag->itemIs(key, 1);
  std::unique_ptr<Followed> f;
  f = std::make_unique<Followed>(text, bag, [&](const std::string& told) {
    if (told == "+d") f->withdraw();
    if (told == "-a") f->withdraw();
  });
  take();
  bag->itemIs("d", 1);
  EXPECT_EQ(take(), "+d=1 -a -b -c -d ") << "each once, though withdrawn twice";
  bag->itemIs("e", 1);
  EXPECT_EQ(take(), "");
}

TEST_F(FollowerTest, TheValueIsReadableThoughTheHandlerTakesTheElementOut) {
  auto shelf = MemSlab::make<Shelf>();
  Rix::CollectionFollower<Held> f(
      shelf, Shelf::bagAttribute(), [raw = shelf.get()]() -> auto& { return raw->bag(); },
      [&](const String& key, const Ptr<const Bag>& value) {
        shelf->bagDel(String(key.view()));
        text += value->name().str() + " " + key.str();
      },
      [](const String&) {});
  shelf->bagIs("k", MemSlab::make<Bag>("named"));
  EXPECT_EQ(text, "named k");
}

TEST_F(FollowerTest, AnExceptionFromAHandlerLeavesItFollowing) {
  bool fail = true;
  Followed f(text, bag, [&](const std::string&) {
    if (fail) throw std::runtime_error("no");
  });
  EXPECT_THROW(bag->itemIs("a", 1), std::runtime_error);
  fail = false;
  bag->itemIs("b", 1);
  f.withdraw();
  EXPECT_EQ(take(), "+a=1 +b=1 -a -b ");
}

TEST_F(FollowerTest, WhatItsHandlersHeldMayChangeTheCollectionWhenItGoes) {
  struct AtTheEnd {
    Ptr<Bag> bag;
    ~AtTheEnd() { bag->itemIs("late", 1); }
  };
  auto held = std::make_shared<AtTheEnd>(AtTheEnd{bag});
  auto f = std::make_unique<Items>(
      bag, Bag::itemAttribute(), [raw = bag.get()]() -> auto& { return raw->item(); },
      [this, held = std::move(held)](const String&, const int&) { text += "told"; }, [](const String&) {});
  take();
  f.reset();
  EXPECT_EQ(take(), "");
  EXPECT_NE(bag->item("late"), nullptr);
}

/// Notes "[name" when it is made, the elements of its bag with the bag's name, and "name]" when it is
/// withdrawn.
struct NestedTest : testing::Test {
  struct Child {
    Child(NestedTest& test, Ptr<const Bag> bag) : test_(test), bag_(std::move(bag)) {
      test_.note("[" + bag_->name().str());
      inner_ = std::make_unique<Followed>(test_.text, bag_);
    }
    void withdraw() {
      inner_->withdraw();
      test_.note(bag_->name().str() + "]");
    }
    NestedTest& test_;
    Ptr<const Bag> bag_;
    std::unique_ptr<Followed> inner_;
  };
  using Nested = Rix::NestedFollower<Held, Child>;

  void note(const std::string& what) {
    text += what + " ";
    if (act) act(what);
  }
  static Ptr<Bag> bag(const char* name, const char* item) {
    auto made = MemSlab::make<Bag>(name);
    made->itemIs(item, 1);
    return made;
  }
  void follow() {
    nested = std::make_unique<Nested>(
        shelf, Shelf::bagAttribute(), [this]() -> auto& { return shelf->bag(); },
        [this](const String&, const Ptr<const Bag>& b) {
          return b ? std::make_unique<Child>(*this, b) : nullptr;
        });
  }
  std::string take() { return std::exchange(text, ""); }

  Ptr<Shelf> shelf = MemSlab::make<Shelf>();
  std::string text;
  Act act;
  std::unique_ptr<Nested> nested;
};

TEST_F(NestedTest, OneChildAnElement) {
  auto x = bag("X", "x");
  shelf->bagIs("k", x);
  follow();
  EXPECT_EQ(take(), "[X +x=1 ");
  x->itemIs("y", 2);
  EXPECT_EQ(take(), "+y=2 ");
  shelf->bagIs("l", bag("Y", "q"));
  EXPECT_EQ(take(), "[Y +q=1 ");
  shelf->bagIs("k", bag("Z", "z"));
  EXPECT_EQ(take(), "-x -y X] [Z +z=1 ") << "another entity takes the place";
  x->itemIs("w", 1);
  EXPECT_EQ(take(), "") << "the old one is followed no more";
  shelf->bagDel("k");
  EXPECT_EQ(take(), "-z Z] ");
  shelf->bagIs("n", nullptr);
  EXPECT_EQ(take(), "") << "nothing of interest";
  shelf->bagIs("n", bag("N", "n"));
  EXPECT_EQ(take(), "[N +n=1 ");
  shelf->bagIs("n", nullptr);
  EXPECT_EQ(take(), "-n N] ");
  nested->withdraw();
  EXPECT_EQ(take(), "-q Y] ");
  shelf->bagIs("l", bag("V", "v"));
  EXPECT_EQ(take(), "");
}

TEST_F(NestedTest, DestructionIsSilent) {
  shelf->bagIs("k", bag("X", "x"));
  follow();
  take();
  nested.reset();
  shelf->bagDel("k");
  EXPECT_EQ(take(), "");
}

TEST_F(NestedTest, AChildIsWithdrawnToItsEndBeforeTheNextOfItsKeyIsMade) {
  struct Row {
    const char* why;
    const char* on;
    std::function<void(NestedTest&)> then;
    const char* told;
    const char* left;
  };
  const Row rows[] = {
      {"replaced again while the first is withdrawn", "X]",
       [](auto& t) { t.shelf->bagIs("k", bag("Z", "z")); }, "-x X] [Z +z=1 ", "-z Z] "},
      {"taken out while the first is withdrawn", "X]", [](auto& t) { t.shelf->bagDel("k"); }, "-x X] ", ""},
      {"replaced while the next is made", "[Y", [](auto& t) { t.shelf->bagIs("k", bag("Z", "z")); },
       "-x X] [Y +y=1 -y Y] [Z +z=1 ", "-z Z] "},
      {"taken out while the next is made", "[Y", [](auto& t) { t.shelf->bagDel("k"); },
       "-x X] [Y +y=1 -y Y] ", ""},
      {"taken out and put back while it is made", "[Y",
       [](auto& t) {
         auto y = *t.shelf->bag("k");
         t.shelf->bagDel("k");
         t.shelf->bagIs("k", y);
       },
       "-x X] [Y +y=1 ", "-y Y] "},
      {"another key while it is made", "[Y", [](auto& t) { t.shelf->bagIs("l", bag("L", "l")); },
       "-x X] [Y [L +l=1 +y=1 ", "-y Y] -l L] "},
      {"withdrawn while it is made", "[Y", [](auto& t) { t.nested->withdraw(); }, "-x X] [Y +y=1 -y Y] ", ""},
  };
  for (const Row& row : rows) {
    act = nullptr;
    for (const char* key : {"k", "l"}) shelf->bagDel(key);
    shelf->bagIs("k", bag("X", "x"));
    follow();
    take();
    act = [&](const std::string& what) {
      if (what != row.on) return;
      const Act once = std::exchange(act, nullptr);
      row.then(*this);
    };
    shelf->bagIs("k", bag("Y", "y"));
    EXPECT_EQ(take(), row.told) << row.why;
    nested->withdraw();
    EXPECT_EQ(take(), row.left) << row.why;
    nested.reset();
  }
}

TEST_F(NestedTest, AMakerThatThrowsLeavesTheKeyUsable) {
  follow();
  act = [](const std::string& what) {
    if (what == "[X") throw std::runtime_error("no");
  };
  EXPECT_THROW(shelf->bagIs("k", bag("X", "x")), std::runtime_error);
  act = nullptr;
  take();
  shelf->bagIs("k", bag("Y", "y"));
  EXPECT_EQ(take(), "[Y +y=1 ");
}

TEST_F(NestedTest, OwnedElementsAreFollowedToTheEndOfTheirOwner) {
  using Own = Rix::NestedFollower<Shelf::ownMap, Child>;
  auto x = shelf->ownIs("X");
  x->itemIs("x", 1);
  const Shelf* raw = shelf.get();
  auto own = std::make_unique<Own>(
      shelf, Shelf::ownAttribute(), [raw]() -> auto& { return raw->own(); },
      [this](const String&, const Zeb::Owned<Bag>& b) { return std::make_unique<Child>(*this, b.ptr()); });
  EXPECT_EQ(take(), "[X +x=1 ");
  shelf->ownDel("X");
  EXPECT_EQ(take(), "-x X] ");
  shelf->ownIs("Y")->itemIs("y", 1);
  take();
  shelf = nullptr;
  x = nullptr;
  EXPECT_NE(raw->own("Y"), nullptr) << "the follower holds the owner";
  own->withdraw();
  EXPECT_EQ(take(), "-y Y] ");
  own = nullptr;
  EXPECT_EQ(MemSlab::liveCount(), 0u);
}

}  // namespace
