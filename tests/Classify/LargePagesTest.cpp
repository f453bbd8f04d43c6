#include <Classify/LargePages.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <vector>

namespace {

using namespace Classify;

std::vector<std::pair<void*, size_t>> advised;

TEST(LargePages, WhatIsLargeIsToldAndBeginsWhereALargePageCan) {
  constexpr size_t pageBytes = LargePages<uint64_t>::pageBytes;
  adviseLargePages = [](void* place, size_t bytes) { advised.emplace_back(place, bytes); };
  {
    const std::vector<char, LargePages<char>> small(pageBytes - 1), large(pageBytes);
    ASSERT_EQ(advised.size(), 1u);
    EXPECT_EQ(advised[0].first, large.data());
    EXPECT_EQ(advised[0].second, pageBytes);
    EXPECT_EQ(reinterpret_cast<uintptr_t>(large.data()) % pageBytes, 0u);
  }
  adviseLargePages = nullptr;
}

}  // namespace
