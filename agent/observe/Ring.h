#pragma once

#include <Kelp/Assert.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <span>
#include <vector>

namespace Agent {

/// A queue of a fixed number of places, which are made with it.
template <class T>
class Ring {
 public:
  explicit Ring(size_t places) : items_(places) {}

  size_t size() const { return size_; }
  bool hasRoom(size_t count) const { return items_.size() - size_ >= count; }

  /// Copies items behind the others; there must be room for them.
  void push(std::span<const T> more) {
    KELP_ASSERT(hasRoom(more.size()), "there is room for what is put into a ring");
    const size_t end = place(size_), first = std::min(more.size(), items_.size() - end);
    std::copy_n(more.begin(), first, items_.begin() + static_cast<std::ptrdiff_t>(end));
    std::copy(more.begin() + static_cast<std::ptrdiff_t>(first), more.end(), items_.begin());
    size_ += more.size();
  }
  /// Takes the first items out.
  std::vector<T> pop(size_t count) {
    KELP_ASSERT(count <= size_, "a ring has what is taken out");
    const auto from = items_.begin() + static_cast<std::ptrdiff_t>(begin_);
    const auto first = static_cast<std::ptrdiff_t>(std::min(count, items_.size() - begin_));
    std::vector<T> taken(std::make_move_iterator(from), std::make_move_iterator(from + first));
    const auto rest = items_.begin() + (static_cast<std::ptrdiff_t>(count) - first);
    taken.insert(taken.end(), std::make_move_iterator(items_.begin()), std::make_move_iterator(rest));
    begin_ = place(count);
    size_ -= count;
    return taken;
  }

 private:
  size_t place(size_t behind) const {
    const size_t at = begin_ + behind;
    return at < items_.size() ? at : at - items_.size();
  }

  std::vector<T> items_;
  size_t begin_ = 0;
  size_t size_ = 0;
};

}  // namespace Agent
