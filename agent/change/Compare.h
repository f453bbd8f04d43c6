#pragma once

#include <cstdint>
#include <utility>

namespace Agent {

/// What an element is compared by: an entry of a map by its key, a number by itself.
template <class Key, class Value>
const Key& keyOf(const std::pair<const Key, Value>& entry) {
  return entry.first;
}
inline uint32_t keyOf(uint32_t number) { return number; }

/// Walks two ranges side by side, and calls gone(element) for a key that is only in `before`, come(element)
/// for one that is only in `after`, and stays(old, now) for one that is in both. Both ranges are ascending by
/// key, each key is there once, and so are the calls.
template <class Range, class Gone, class Come, class Stays>
void compare(const Range& before, const Range& after, const Gone& gone, const Come& come,
             const Stays& stays) {
  auto old = before.begin();
  auto now = after.begin();
  while (old != before.end() || now != after.end()) {
    if (now == after.end() || (old != before.end() && keyOf(*old) < keyOf(*now))) {
      gone(*old++);
    } else if (old == before.end() || keyOf(*now) < keyOf(*old)) {
      come(*now++);
    } else {
      stays(*old++, *now++);
    }
  }
}

}  // namespace Agent
