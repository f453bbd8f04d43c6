#include "Recorder.h"

#include <Zeb/Attributes.h>
#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>
#include <vector>

namespace {

using Kelp::Ptr;
using Zeb::Change;

class Thing : public Zeb::Entity {
  ZEB_ENTITY(Thing, Zeb::Entity)
  ZEB_VALUE(int, number)
  ZEB_VALUE(Kelp::String, text)
  ZEB_COLLECTION(item, Zeb::HashMap2018<int, int>)
  ZEB_CHILD(Thing, other)
};

/// A Thing with the subscribers a, b, c, d, in this order.
struct PublisherTest : testing::Test {
  PublisherTest() {
    for (const char* name : {"a", "b", "c", "d"}) add(name);
  }
  Recorder& add(const std::string& name) {
    return *all.emplace_back(std::make_unique<Recorder>(name, text, *thing));
  }
  Zeb::Publisher& publisher() { return thing->publisher(); }
  Recorder& at(char name) { return *all[static_cast<size_t>(name - 'a')]; }
  void destroy(char name) { all[static_cast<size_t>(name - 'a')].reset(); }
  /// Makes one change and gives who heard of it, in order.
  std::string change() {
    text.clear();
    thing->numberIs(thing->number() + 1);
    return text;
  }

  std::string text;
  Ptr<Thing> thing = MemSlab::make<Thing>();
  std::vector<std::unique_ptr<Recorder>> all;
};

TEST_F(PublisherTest, DeliversInTheOrderOfSubscription) {
  EXPECT_EQ(change(), "a b c d ");
  publisher().subscribe(at('b'));
  EXPECT_EQ(change(), "a b c d ") << "one that is there already stays where it is";
  publisher().unsubscribe(at('b'));
  publisher().unsubscribe(at('b'));
  EXPECT_EQ(change(), "a c d ");
  publisher().subscribe(at('b'));
  EXPECT_EQ(change(), "a c d b ") << "one that comes back goes last";
}

TEST_F(PublisherTest, ChangesToTheSubscribersFromWithinAHandler) {
  struct Row {
    const char* why;
    std::function<void(PublisherTest&)> act;  // what b does, once
    const char* now;
    const char* next;
  };
  const Row rows[] = {
      {"a handler leaves", [](auto& t) { t.publisher().unsubscribe(t.at('b')); }, "a b c d ", "a c d "},
      {"an earlier one is taken out", [](auto& t) { t.publisher().unsubscribe(t.at('a')); }, "a b c d ",
       "b c d "},
      {"a later one hears no more, not even of this", [](auto& t) { t.publisher().unsubscribe(t.at('c')); },
       "a b d ", "a b d "},
      {"the last two go",
       [](auto& t) {
         t.publisher().unsubscribe(t.at('d'));
         t.publisher().unsubscribe(t.at('c'));
       },
       "a b ", "a b "},
      {"a handler is destroyed", [](auto& t) { t.destroy('b'); }, "a b c d ", "a c d "},
      {"an earlier one is destroyed", [](auto& t) { t.destroy('a'); }, "a b c d ", "b c d "},
      {"a later one is destroyed", [](auto& t) { t.destroy('c'); }, "a b d ", "a b d "},
      {"all are destroyed", [](auto& t) { t.all.clear(); }, "a b ", ""},
      {"a new one waits for the next change", [](auto& t) { t.add("e"); }, "a b c d ", "a b c d e "},
      {"growth of the list loses nobody",
       [](auto& t) {
         for (int i = 0; i < 5; ++i) t.add("n");
       },
       "a b c d ", "a b c d n n n n n "},
      {"leaving and coming back costs the turn and the place",
       [](auto& t) {
         t.publisher().unsubscribe(t.at('c'));
         t.publisher().subscribe(t.at('c'));
       },
       "a b d ", "a b d c "},
      {"coming and leaving again",
       [](auto& t) {
         t.add("e");
         t.all.pop_back();
       },
       "a b c d ", "a b c d "},
      {"coming twice",
       [](auto& t) {
         auto& e = t.add("e");
         t.publisher().subscribe(e);
       },
       "a b c d ", "a b c d e "},
  };
  for (const Row& row : rows) {
    all.clear();
    for (const char* name : {"a", "b", "c", "d"}) add(name);
    at('b').actIs([this, &row, acted = std::make_shared<bool>()](const Change&) {
      if (!std::exchange(*acted, true)) row.act(*this);
    });
    EXPECT_EQ(change(), row.now) << row.why;
    EXPECT_EQ(change(), row.next) << row.why << ", the change after that";
  }
}

TEST_F(PublisherTest, AWriteFromWithinIsDeliveredInsideThatCallToEveryone) {
  std::string seen;
  Recorder reader("", seen, *thing, [&](const Change&) { seen += std::to_string(thing->number()); });
  at('b').actIs([&](const Change&) {
    if (thing->number() != 1) return;
    const std::string before = text;
    thing->numberIs(2);
    EXPECT_EQ(text, before + "a b c d ") << "all had it when the setter came back";
  });
  EXPECT_EQ(change(), "a b a b c d c d ");
  EXPECT_EQ(seen, " 2 2") << "both calls read the current state";
}

TEST_F(PublisherTest, ASubscriberThatLeavesInANestedDeliveryHearsNoMoreOfTheOuterOne) {
  at('a').actIs([&](const Change&) {
    if (thing->number() == 1) thing->numberIs(2);
  });
  at('b').actIs([&](const Change&) {
    destroy('c');
    add("e");
  });
  EXPECT_EQ(change(), "a a b d b d ")
      << "the newcomer of the nested delivery waits for the end of the outer one";
  at('b').actIs(nullptr);
  EXPECT_EQ(change(), "a b d e e ");
}

TEST_F(PublisherTest, ANewcomerHearsWhatIsWrittenAfterItCame) {
  at('b').actIs([&](const Change&) {
    if (thing->number() != 1) return;
    add("e");
    thing->numberIs(2);
  });
  EXPECT_EQ(change(), "a b a b c d e c d ");
}

TEST_F(PublisherTest, TheEntityMayGoWhileItIsAnnounced) {
  const Thing* raw = thing.get();
  at('a').actIs([&](const Change& change) {
    thing = nullptr;
    EXPECT_EQ(&change.entity, raw);
  });
  at('d').actIs(
      [&](const Change& change) { EXPECT_EQ(static_cast<const Thing&>(change.entity).number(), 7); });
  thing->numberIs(7);
  EXPECT_EQ(text, "a b c d ") << "it lives until the last has heard";
  EXPECT_EQ(MemSlab::slabOf<Thing>().liveCount(), 0u);
}

TEST_F(PublisherTest, TheElementMayGoWhileItIsAnnounced) {
  at('a').actIs([&](const Change& change) {
    const int& key = change.keyAs<int>();
    if (thing->item(key)) {
      thing->itemDel(key);
      EXPECT_EQ(key, 5) << "the key stays readable";
    }
  });
  at('b').actIs([&](const Change& change) { EXPECT_EQ(thing->item(change.keyAs<int>()), nullptr); });
  thing->itemIs(5, 1);
  EXPECT_EQ(text, "a a b c d b c d ");
}

TEST_F(PublisherTest, AnExceptionLeavesThePublisherUsable) {
  at('b').actIs([&](const Change&) {
    if (thing->number() < 3) {
      destroy('c');
      add("e");
      thing->numberIs(3);
      throw std::runtime_error("from a handler");
    }
  });
  EXPECT_THROW(change(), std::runtime_error);
  EXPECT_EQ(text, "a b a b d e ");
  EXPECT_EQ(change(), "a b d e ") << "no delivery is thought to be under way, no place is left empty";
  EXPECT_EQ(thing->nodeUseCount(), 1u) << "the delivery's reference is gone";
}

TEST_F(PublisherTest, AnEqualWriteIsNoChange) {
  thing->numberIs(5);
  thing->textIs("x");
  thing->itemIs(1, 1);
  text.clear();
  EXPECT_FALSE(thing->numberIs(5));
  EXPECT_FALSE(thing->textIs("x"));
  EXPECT_FALSE(thing->itemIs(1, 1));
  EXPECT_FALSE(thing->itemDel(2));
  EXPECT_FALSE(thing->otherIs(nullptr));
  EXPECT_EQ(thing->otherDel(), nullptr);
  EXPECT_EQ(text, "");
}

TEST_F(PublisherTest, NothingIsAnnouncedOnceTheEntityIsNotLive) {
  thing->nodeFlagSet(Kelp::nodeLive, false);
  EXPECT_TRUE(thing->numberIs(5)) << "the write is done all the same";
  thing->itemIs(1, 1);
  EXPECT_EQ(text, "");
}

/// Writes its own attributes when it is destroyed.
class Busy : public Thing {
 public:
  ~Busy() override {
    numberIs(99);
    itemDel(1);
    otherDel();
  }
};

TEST_F(PublisherTest, NothingIsAnnouncedFromADestructor) {
  auto busy = MemSlab::make<Busy>();
  busy->itemIs(1, 1);
  busy->otherIs(thing);
  Recorder listener("late", text, *busy);
  busy = nullptr;
  EXPECT_EQ(text, "");
  EXPECT_EQ(thing->parent(), nullptr);
}

TEST_F(PublisherTest, OneSubscriberFollowsManyEntitiesAndOutlivesThem) {
  auto second = MemSlab::make<Thing>();
  second->publisher().subscribe(at('a'));
  second->numberIs(1);
  EXPECT_EQ(text, "a ");
  thing = nullptr;
  text.clear();
  second->numberIs(2);
  EXPECT_EQ(text, "a ") << "the first entity's end leaves the second's subscription";
  all.clear();
  text.clear();
  second->numberIs(3);
  EXPECT_EQ(text, "");
  EXPECT_FALSE(second->hasSubscribers()) << "everyone is gone";
}

TEST(ChangeDeathTest, AskingAPlainChangeForItsKeyStopsTheProcess) {
  testing::GTEST_FLAG(death_test_style) = "threadsafe";
  auto thing = MemSlab::make<Thing>();
  EXPECT_DEATH((Change{*thing, Thing::numberAttribute(), nullptr}.keyAs<int>()), "has no key");
}

}  // namespace
