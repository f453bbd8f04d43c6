#include <Classify/Leaves.h>

namespace Classify {

namespace {

/// The image of an unused lane, which nothing matches: no number is both at least one and at most zero.
constexpr Image nothing = [] {
  Image image;
  image.pairLow = 0x00010001;
  image.pairHigh = 0;
  image.slot = noSlot;
  return image;
}();

}  // namespace

void Leaves::clear(bool wide) {
  planesPerBlock_ = wide ? wideBlock : narrowBlock;
  planes_.clear();
  sieves_.clear();
  sharers_.clear();
  free_.clear();
  makeBlocks({});
}

uint32_t Leaves::make(std::span<const Image> images) { return images.empty() ? empty : makeBlocks(images); }

uint32_t Leaves::sieved(uint32_t leaf, size_t bytesPerImage) {
  const uint32_t sieve = sieves_.make(images(leaf), leaf & ~leafBit, bytesPerImage);
  return sieve == Sieves::none ? leaf : leafBit | sieveBit | sieve;
}

uint32_t Leaves::plain(uint32_t leaf) const {
  return leaf & sieveBit ? leafBit | sieves_[leaf & ~(leafBit | sieveBit)].leaf : leaf;
}

void Leaves::share(uint32_t leaf) {
  leaf = plain(leaf);
  if (leaf != empty) ++sharers(leaf);
}

void Leaves::drop(uint32_t leaf) {
  leaf = plain(leaf);
  if (leaf == empty) return;
  if (sharers(leaf) > 0) {
    --sharers(leaf);
    return;
  }
  const uint32_t count = blocksOf(leaf);
  if (free_.size() <= count) free_.resize(count + 1);
  free_[count].push_back(leaf);
}

std::vector<Image> Leaves::images(uint32_t leaf) const {
  leaf = plain(leaf);
  std::vector<Image> images(size(leaf));
  const Plane* block = planes_.data() + (leaf & ~leafBit);
  for (uint32_t i = 0; i < images.size(); ++i) {
    images[i] = read(block + i / Plane::lanes * planesPerBlock_, i % Plane::lanes);
  }
  return images;
}

uint32_t Leaves::insert(uint32_t leaf, const Image& image, const Order& order) {
  leaf = plain(leaf);
  const uint32_t count = size(leaf);
  uint32_t at = 0;
  while (at < count && !order(image.slot, slotAt(leaf, at))) ++at;
  if (count % Plane::lanes == 0 || sharers(leaf) > 0) leaf = copyOf(leaf, count, count + 1);
  for (uint32_t i = count; i > at; --i) copy(lane(leaf, i), lane(leaf, i - 1));
  write(lane(leaf, at), image);
  return leaf;
}

uint32_t Leaves::erase(uint32_t leaf, uint32_t slot) {
  const uint32_t count = size(leaf), blocks = plain(leaf);
  uint32_t kept = 0;
  while (kept < count && slotAt(blocks, kept) != slot) ++kept;
  if (kept == count) return leaf;
  leaf = sharers(blocks) > 0 ? copyOf(blocks, count, count) : blocks;
  for (uint32_t i = kept + 1; i < count; ++i) {
    if (slotAt(leaf, i) != slot) copy(lane(leaf, kept++), lane(leaf, i));
  }
  for (uint32_t i = kept; i < count; ++i) write(lane(leaf, i), nothing);
  if (kept == 0) {
    drop(leaf);
    return empty;
  }
  // All blocks of the old leaf are given back together, so that a later leaf can take them side by side.
  return blocksFor(kept) == blocksFor(count) ? leaf : copyOf(leaf, kept, kept);
}

uint32_t Leaves::copyOf(uint32_t leaf, uint32_t count, uint32_t room) {
  const uint32_t made = takeBlocks(blocksFor(room));
  const auto planesFrom = [this](uint32_t blocks) { return planes_.begin() + (blocks & ~leafBit); };
  std::copy_n(planesFrom(leaf), size_t{blocksFor(count)} * planesPerBlock_, planesFrom(made));
  finish(made, count, blocksFor(room));
  drop(leaf);
  return made;
}

size_t Leaves::bytes() const {
  size_t bytes = planes_.size() * sizeof(Plane) + sieves_.bytes() + sharers_.size() * sizeof(uint32_t);
  for (const auto& leaves : free_) bytes += leaves.capacity() * sizeof(uint32_t);
  return bytes;
}

uint32_t Leaves::slotAt(uint32_t leaf, uint32_t at) {
  const Lane place = lane(leaf, at);
  return place.block[slotPlane].lane[place.number] & slotMask;
}

Leaves::Lane Leaves::lane(uint32_t leaf, uint32_t at) {
  return {planes_.data() + (leaf & ~leafBit) + at / Plane::lanes * planesPerBlock_, at % Plane::lanes};
}

uint32_t Leaves::blocksOf(uint32_t leaf) const {
  const Plane* block = planes_.data() + (leaf & ~leafBit);
  uint32_t count = 1;
  for (; block[slotPlane].lane[0] & moreBlocks; block += planesPerBlock_) ++count;
  return count;
}

uint32_t Leaves::size(uint32_t leaf) const {
  leaf = plain(leaf);
  const uint32_t blocks = blocksOf(leaf);
  const Plane* last = planes_.data() + (leaf & ~leafBit) + (blocks - 1) * planesPerBlock_;
  uint32_t lanes = 0;
  while (lanes < Plane::lanes && (last[slotPlane].lane[lanes] & slotMask) != noSlot) ++lanes;
  return (blocks - 1) * Plane::lanes + lanes;
}

uint32_t Leaves::makeBlocks(std::span<const Image> images) {
  const auto count = static_cast<uint32_t>(images.size());
  const uint32_t blocks = blocksFor(count);
  const uint32_t leaf = takeBlocks(blocks);
  for (uint32_t i = 0; i < count; ++i) write(lane(leaf, i), images[i]);
  finish(leaf, count, blocks);
  return leaf;
}

uint32_t Leaves::takeBlocks(uint32_t count) {
  if (count < free_.size() && !free_[count].empty()) {
    const uint32_t leaf = free_[count].back();
    free_[count].pop_back();
    return leaf;
  }
  const uint32_t leaf = leafBit | static_cast<uint32_t>(planes_.size());
  planes_.resize(planes_.size() + size_t{count} * planesPerBlock_);
  sharers_.resize(sharers_.size() + count);
  return leaf;
}

void Leaves::finish(uint32_t leaf, uint32_t count, uint32_t blocks) {
  for (uint32_t i = count; i < blocks * Plane::lanes; ++i) write(lane(leaf, i), nothing);
  for (uint32_t block = 0; block < blocks; ++block) {
    uint32_t& first = lane(leaf, block * Plane::lanes).block[slotPlane].lane[0];
    first = block + 1 < blocks ? first | moreBlocks : first & ~moreBlocks;
  }
}

void Leaves::write(Lane to, const Image& image) {
  for (const uint32_t word : {0u, 1u, 2u}) {
    to.block[firstValue + 2 * word].lane[to.number] = image.value[word];
    to.block[firstMask + 2 * word].lane[to.number] = image.mask[word];
  }
  to.block[pairLow].lane[to.number] = image.pairLow;
  to.block[pairHigh].lane[to.number] = image.pairHigh;
  uint32_t& slot = to.block[slotPlane].lane[to.number];
  slot = (slot & moreBlocks) | image.slot | (image.exact ? 0 : inexactLane);
  if (planesPerBlock_ == wideBlock) to.block[quadLeast].lane[to.number] = image.quad;
}

void Leaves::copy(Lane to, Lane from) {
  const uint32_t more = to.block[slotPlane].lane[to.number] & moreBlocks;
  for (uint32_t plane = 0; plane < planesPerBlock_; ++plane) {
    to.block[plane].lane[to.number] = from.block[plane].lane[from.number];
  }
  uint32_t& slot = to.block[slotPlane].lane[to.number];
  slot = (slot & ~moreBlocks) | more;
}

Image Leaves::read(const Plane* block, uint32_t number) const {
  Image image;
  for (const uint32_t word : {0u, 1u, 2u}) {
    image.value[word] = block[firstValue + 2 * word].lane[number];
    image.mask[word] = block[firstMask + 2 * word].lane[number];
  }
  image.pairLow = block[pairLow].lane[number];
  image.pairHigh = block[pairHigh].lane[number];
  image.slot = block[slotPlane].lane[number] & slotMask;
  image.exact = !(block[slotPlane].lane[number] & inexactLane);
  if (planesPerBlock_ == wideBlock) image.quad = block[quadLeast].lane[number];
  return image;
}

}  // namespace Classify
