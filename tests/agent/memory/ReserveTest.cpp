#include <agent/core/Reserve.h>
#include <gtest/gtest.h>

#include <memory>
#include <new>
#include <optional>
#include <thread>

#include "../../support/FailingMemory.h"

namespace {

using Agent::Refusable;
using Agent::Reserve;
using namespace TestSupport;

/// Whether an allocation succeeds of which so many tries fail.
bool allocates(int64_t failures, Threads threads = Threads::first) {
  failAt(threads, 0, failures);
  bool done = true;
  try {
    ::operator delete(::operator new(8));
  } catch (const std::bad_alloc&) {
    done = false;
  }
  stopFailing(threads);
  return done;
}

constexpr int64_t all = Reserve::blocks;

TEST(Reserve, MakesGoodWhatFailsUntilItIsUsedUp) {
  Reserve reserve;
  EXPECT_TRUE(allocates(1));
  EXPECT_TRUE(allocates(all - 1));
  EXPECT_FALSE(allocates(1)) << "it is used up";
  EXPECT_TRUE(reserve.refill());
  EXPECT_TRUE(allocates(all));
  EXPECT_TRUE(reserve.refill());
  EXPECT_FALSE(allocates(all + 1));
}

TEST(Reserve, IsFilledWhenThereIsMemoryAgain) {
  Reserve reserve;
  EXPECT_TRUE(allocates(all));
  memoryLeftIs(2 * Reserve::blockOctets);
  EXPECT_FALSE(reserve.refill());
  EXPECT_FALSE(reserve.refill()) << "and it is tried again";
  memoryIsUnlimited();
  EXPECT_TRUE(allocates(1)) << "what could be had is there";
  EXPECT_TRUE(reserve.refill());
  const size_t before = allocatedOctets();
  EXPECT_TRUE(reserve.refill());
  EXPECT_EQ(allocatedOctets(), before);
}

TEST(Reserve, IsOfItsThreadAndGivenBack) {
  const size_t before = allocatedOctets();
  {
    Reserve reserve;
    EXPECT_GE(allocatedOctets(), before + all * Reserve::blockOctets);
    EXPECT_TRUE(reserve.addForChange(100));
    std::thread([] { EXPECT_FALSE(allocates(1, Threads::others)) << "of another thread"; }).join();
    EXPECT_TRUE(allocates(all + 1)) << "none of it was used";
  }
  EXPECT_FALSE(allocates(1));
  EXPECT_EQ(allocatedOctets(), before);
}

TEST(Reserve, HoldsBackWhatAChangeNeedsAndUsesItFirst) {
  Reserve reserve;
  constexpr size_t octets = 1 << 20;
  // Beside the reserve this process takes and gives back little.
  constexpr size_t little = octets / 16;
  const size_t before = allocatedOctets();
  EXPECT_TRUE(reserve.addForChange(octets));
  EXPECT_GE(allocatedOctets() + little, before + octets);
  EXPECT_TRUE(reserve.addForChange(octets));
  EXPECT_GE(allocatedOctets() + little, before + 2 * octets) << "what the earlier change needs, too";
  memoryLeftIs(octets);
  EXPECT_FALSE(reserve.addForChange(octets));
  memoryIsUnlimited();
  EXPECT_GE(allocatedOctets() + little, before + 2 * octets) << "what there was stays";
  EXPECT_TRUE(allocates(1));
  EXPECT_LE(allocatedOctets(), before + little) << "the change's part was used";
  EXPECT_TRUE(allocates(all));
  memoryLeftIs(octets);
  EXPECT_FALSE(reserve.addForChange(1)) << "while something of the rest is missing no change begins";
  memoryIsUnlimited();
  EXPECT_TRUE(reserve.addForChange(octets));
  EXPECT_GE(allocatedOctets() + little, before + 3 * octets);
  reserve.changesAreDone();
  EXPECT_LE(allocatedOctets(), before + little);
}

TEST(Refusable, TellsThatMemoryRanOutAndFailsTheNextTime) {
  Reserve reserve;
  Refusable work;
  EXPECT_NO_THROW(Refusable::check());
  EXPECT_TRUE(allocates(1));
  EXPECT_THROW(Refusable::check(), std::bad_alloc);
  EXPECT_FALSE(allocates(1)) << "most of the reserve is for what cannot be refused";
  {
    const Refusable inner;
    EXPECT_NO_THROW(Refusable::check()) << "each for itself";
    EXPECT_TRUE(allocates(1));
    EXPECT_THROW(Refusable::check(), std::bad_alloc);
  }
  EXPECT_FALSE(allocates(1));
}

TEST(Refusable, OfAnyThreadHasItsPart) {
  Reserve reserve;
  std::thread([] {
    Refusable work;
    EXPECT_TRUE(allocates(1, Threads::others));
    EXPECT_THROW(Refusable::check(), std::bad_alloc);
  }).join();
  EXPECT_NO_THROW(Refusable::check()) << "of that thread only";
}

TEST(Refusable, WithoutAReserveFailsAtOnce) {
  Refusable work;
  EXPECT_FALSE(allocates(1));
  EXPECT_NO_THROW(Refusable::check());
}

TEST(Refusable, WhatIsGivenUpMayNeedSomeForThat) {
  Reserve reserve;
  struct Needs {
    ~Needs() { made = allocates(1); }
    bool& made;
  };
  bool made = false;
  Refusable work;
  EXPECT_TRUE(allocates(1));
  try {
    const Needs needs{made};
    throw std::bad_alloc();
  } catch (const std::bad_alloc&) {
  }
  EXPECT_TRUE(made);
  EXPECT_FALSE(allocates(1)) << "until it has been";
}

}  // namespace
