#include <Classify/Images.h>

namespace Classify {

Images::Images(std::span<const Image> images) : images_(images), asked_(images.size()) {
  for (size_t i = 0; i < images.size(); ++i) {
    Overlap lies;
    const Ternary bits = ternaryIn({}, images[i], &lies);
    for (const int word : {0, 1}) {
      asked_[i].zeros[word] = bits.mask[word] & ~bits.value[word];
      asked_[i].ones[word] = bits.value[word];
    }
  }
}

}  // namespace Classify
