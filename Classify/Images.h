#pragma once

#include <Classify/Region.h>

#include <span>
#include <vector>

namespace Classify {

/// The bits of a key that an image asks to be zero, and those that it asks to be one.
struct Asked {
  uint64_t zeros[2];
  uint64_t ones[2];
};

/// Images, with the parts that a division reads most often in an array of their own.
class Images {
 public:
  explicit Images(std::span<const Image> images);

  const Image& operator[](uint32_t number) const { return images_[number]; }
  size_t size() const { return images_.size(); }
  /// Has the processor fetch asked(number) into its cache; with `itself` also the image, for its ranges.
  void fetch(uint32_t number, bool itself) const {
    __builtin_prefetch(&asked_[number]);
    if (itself) __builtin_prefetch(&images_[number].pairLow);
  }
  /// What an image asks of every packet. For a range these are the leading bits that all its numbers share.
  const Asked& asked(uint32_t number) const { return asked_[number]; }
  /// What it asks of packets whose pair lies within these intervals. Some such packet has to match the image.
  Asked askedIn(const Interval (&pair)[2], uint32_t number) const;

 private:
  std::span<const Image> images_;
  std::vector<Asked> asked_;
};

inline Asked Images::askedIn(const Interval (&pair)[2], uint32_t number) const {
  Asked asked = asked_[number];
  for (const int half : {0, 1}) {
    const Interval range = pairOf(images_[number], half);
    const uint32_t low = std::max(range.low, pair[half].low);
    const uint64_t fixed = commonPrefix(low, std::min(range.high, pair[half].high));
    asked.zeros[1] |= (fixed & ~low) << (32 + 16 * half);
    asked.ones[1] |= (fixed & low) << (32 + 16 * half);
  }
  return asked;
}

}  // namespace Classify
