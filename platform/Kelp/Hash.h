#pragma once

#include <concepts>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace Kelp {

/// Spreads 64 bits over 64 (the finisher of a multiply-xorshift hash); a bijection.
constexpr uint64_t mix64(uint64_t x) {
  x ^= x >> 32;
  x *= 0xd6e8feb86659fd93;
  x ^= x >> 32;
  x *= 0xd6e8feb86659fd93;
  x ^= x >> 32;
  return x;
}

/// 32-bit hash of a run of bytes; the same in every process, so that iteration orders repeat.
inline uint32_t hashBytes(const void* data, size_t size, uint32_t seed = 0) {
  const auto* at = static_cast<const unsigned char*>(data);
  uint64_t state = mix64(seed ^ (uint64_t{size} << 32) ^ 0x9e3779b97f4a7c15);
  for (; size >= 8; at += 8, size -= 8) {
    uint64_t word;
    std::memcpy(&word, at, 8);
    state = mix64(state ^ word);
  }
  uint64_t tail = 0;
  if (size) std::memcpy(&tail, at, size);
  return static_cast<uint32_t>(mix64(state ^ tail) >> 32);
}

/// The seeded 32-bit hash of a key. Integers and enumerations are hashed by value, everything else by its own
/// hash() member, which must spread well over all 32 bits.
template <class K>
constexpr uint32_t keyHash(const K& key, uint32_t seed = 0) {
  if constexpr (std::is_enum_v<K> || std::integral<K>) {
    return static_cast<uint32_t>(mix64(static_cast<uint64_t>(key) + 1 + (uint64_t{seed} << 32)) >> 32);
  } else {
    if (seed == 0) return key.hash();
    return static_cast<uint32_t>(mix64(uint64_t{key.hash()} + 1 + (uint64_t{seed} << 32)) >> 32);
  }
}

/// The hash of a key of several fields, taken as a whole.
template <class First, class... Rest>
constexpr uint32_t keyHashAll(const First& first, const Rest&... rest) {
  uint32_t hash = keyHash(first);
  ((hash = keyHash(rest, hash)), ...);
  return hash;
}

}  // namespace Kelp
