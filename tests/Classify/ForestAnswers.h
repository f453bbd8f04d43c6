#pragma once

#include <Classify/Find.h>
#include <fmt/format.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "ForestWorld.h"

namespace ForestTests {

// What a forest is to find: what trying the images one after the other finds, by every unit that this
// computer has.

/// What questions are asked about.
struct Asked {
  const List& list;
  const Key& key;
};

/// Images in slots divisible by 5 are inexact, and what they ask more is that the key's last bit is set.
inline bool meetsAll(const Image& image, const Key& key) {
  return meets(image, key) && (image.exact || key.bits[0] & 1);
}

inline constexpr Questions questions{[](const void* context, uint32_t slot) {
                                       const auto& asked = *static_cast<const Asked*>(context);
                                       return meetsAll(asked.list.images.at(slot), asked.key);
                                     },
                                     [](const void* context, uint32_t slot, uint32_t other) {
                                       return static_cast<const Asked*>(context)->list.precedes(slot, other);
                                     }};

inline std::vector<std::pair<const char*, const Kernels*>> allKernels() {
  std::vector<std::pair<const char*, const Kernels*>> all = {{"portable", kernelsOf(Unit::portable)}};
  if (kernelsOf(Unit::avx2)) all.emplace_back("avx2", kernelsOf(Unit::avx2));
  if (kernelsOf(Unit::avx512)) all.emplace_back("avx512", kernelsOf(Unit::avx512));
  return all;
}

/// As a list looks: quickly, and thoroughly where that is not sure.
inline uint32_t lookUp(const Kernels& kernels, const View& view, const Asked& asked) {
  const Key& key = asked.key;
  const uint32_t found = kernels.find[view.shape](view, key.bits[0], key.bits[1], key.quad);
  if (!(found & askBit)) return found;
  const uint32_t slot = found & ~askBit;
  if (slot != noSlot && questions.meets(&asked, slot)) return slot;
  return kernels.search(view, key.bits[0], key.bits[1], key.quad, questions, &asked);
}

/// All units find what trying the images one by one does. `ordered`: those of the list.
inline void expectAnswers(const Forest& forest, const List& list, const std::vector<Image>& ordered,
                          const Key& key, const std::string& what) {
  const View view = list.viewOf(forest);
  uint32_t expected = noSlot;
  for (const Image& image : ordered) {
    if (!meetsAll(image, key)) continue;
    expected = image.slot;
    break;
  }
  const Asked asked{list, key};
  for (const auto& [name, kernels] : allKernels()) {
    ASSERT_EQ(lookUp(*kernels, view, asked), expected) << what << ", " << name;
    ASSERT_EQ(kernels->search(view, key.bits[0], key.bits[1], key.quad, questions, &asked), expected)
        << what << ", searched, " << name;
  }
}

/// Bursts of any length find what the packets find one by one, and write nothing behind that. The longest and
/// those around a vector's end come first; keys are taken from the front again until all lengths had a turn.
inline void expectBursts(const Forest& forest, const List& list, const std::vector<Key>& keys,
                         const std::string& what) {
  static constexpr uint32_t lengths[] = {burstMost, 0, 63, 1, 16, 17, 48, 49, 32, 5};
  View view = list.viewOf(forest);
  size_t at = 0;
  for (size_t turn = 0; turn < std::size(lengths) || at < keys.size(); ++turn) {
    const uint32_t length = lengths[turn % std::size(lengths)];
    const auto keyOf = [&](uint32_t i) -> const Key& { return keys[(at + i) % keys.size()]; };
    Keys burst;
    for (uint32_t i = 0; i < length; ++i) {
      burst.keyIs(i, keyOf(i).bits[0], keyOf(i).bits[1], keyOf(i).quad);
    }
    for (const auto& [name, kernels] : allKernels()) {
      constexpr uint32_t mark = 0x12345678;
      uint32_t found[burstMost + 1];
      std::fill(std::begin(found), std::end(found), mark);
      view.far = !view.far;
      kernels->findBurst[view.shape & wideShape](view, burst, length, found);
      for (uint32_t i = 0; i < length; ++i) {
        const Key& key = keyOf(i);
        const uint32_t alone = kernels->find[view.shape](view, key.bits[0], key.bits[1], key.quad);
        ASSERT_EQ(found[i], alone) << what << ", packet " << i << " of " << length << " from " << at << ", "
                                   << name;
      }
      for (uint32_t i = length; i <= burstMost; ++i) ASSERT_EQ(found[i], mark) << what << ", " << name;
    }
    at += length;
  }
}

/// Both of these for so many packets of a world.
inline void expectAgreement(const Forest& forest, const List& list, World& world, int packets,
                            const std::string& what) {
  const std::vector<Image> ordered = list.inOrder();
  std::vector<Key> keys;
  for (int i = 0; i < packets; ++i) {
    keys.push_back(world.key(ordered));
    expectAnswers(forest, list, ordered, keys.back(), fmt::format("{}, packet {}", what, i));
    if (testing::Test::HasFatalFailure()) return;
  }
  expectBursts(forest, list, keys, what);
}

}  // namespace ForestTests
