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
  notes_.clear();
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

void Leaves::share(uint32_t leaf, uint32_t cells) {
  leaf = plain(leaf);
  if (leaf != empty) sharers(leaf) += cells;
}

void Leaves::unshare(uint32_t leaf, uint32_t cells) {
  leaf = plain(leaf);
  if (leaf != empty) sharers(leaf) -= cells;
}

void Leaves::drop(uint32_t leaf) {
  leaf = plain(leaf);
  if (leaf == empty) return;
  if (sharers(leaf) > 0) return unshare(leaf, 1);
  const uint32_t count = blocksOf(leaf);
  if (free_.size() <= count) free_.resize(count + 1);
  free_[count].push_back(leaf);
}

template <class Visit>
void Leaves::eachImage(uint32_t leaf, const Visit& visit) const {
  const Plane* block = planes_.data() + (leaf & ~leafBit);
  for (uint32_t at = 0;; at += Plane::lanes, block += planesPerBlock_) {
    const uint32_t* lanes = block[slotPlane].lane;
    for (uint32_t number = 0; number < Plane::lanes; ++number) {
      if ((lanes[number] & slotMask) != noSlot) visit(at + number, block, number);
    }
    if (!(lanes[0] & moreBlocks)) return;
  }
}

uint32_t Leaves::size(uint32_t leaf) const {
  uint32_t count = 0;
  eachImage(plain(leaf), [&count](uint32_t, const Plane*, uint32_t) { ++count; });
  return count;
}

std::vector<Image> Leaves::images(uint32_t leaf) const {
  std::vector<Image> images;
  eachImage(plain(leaf), [this, &images](uint32_t, const Plane* block, uint32_t number) {
    images.push_back(read(block, number));
  });
  return images;
}

size_t Leaves::bytes() const {
  size_t bytes = planes_.size() * sizeof(Plane) + sieves_.bytes() +
                 (notes_.size() + used_.capacity()) * sizeof(uint32_t);
  for (const auto& leaves : free_) bytes += leaves.capacity() * sizeof(uint32_t);
  return bytes;
}

uint32_t Leaves::slotAt(uint32_t leaf, uint32_t at) const {
  const Plane* block = planes_.data() + (leaf & ~leafBit) + at / Plane::lanes * planesPerBlock_;
  return block[slotPlane].lane[at % Plane::lanes] & slotMask;
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

uint32_t Leaves::makeBlocks(std::span<const Image> images) {
  const auto count = static_cast<uint32_t>(images.size());
  const uint32_t leaf = takeBlocks(blocksFor(count));
  for (uint32_t i = 0; i < count; ++i) write(lane(leaf, i), images[i]);
  finish(leaf, count, blocksFor(count));
  noteIs(leaf, blocksFor(count), Note::madeWith, count);
  return leaf;
}

uint32_t Leaves::takeBlocks(uint32_t count) {
  if (count < free_.size() && !free_[count].empty()) {
    const uint32_t leaf = free_[count].back();
    free_[count].pop_back();
    return leaf;
  }
  const uint32_t leaf = leafBit | static_cast<uint32_t>(planes_.size());
  // Memory may run out for the second one: the first is then larger for nothing until the next time.
  const size_t blocks = planes_.size() / planesPerBlock_ + count;
  notes_.resize(blocks);
  planes_.resize(blocks * planesPerBlock_);
  return leaf;
}

void Leaves::finish(uint32_t leaf, uint32_t count, uint32_t blocks) {
  for (uint32_t i = count; i < blocks * Plane::lanes; ++i) write(lane(leaf, i), nothing);
  for (uint32_t block = 0; block < blocks; ++block) {
    uint32_t& first = lane(leaf, block * Plane::lanes).block[slotPlane].lane[0];
    first = block + 1 < blocks ? first | moreBlocks : first & ~moreBlocks;
  }
  noteIs(leaf, blocks, Note::blocks, blocks);
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

void Leaves::vacate(Lane lane) {
  lane.block[pairLow].lane[lane.number] = nothing.pairLow;
  lane.block[pairHigh].lane[lane.number] = nothing.pairHigh;
  uint32_t& slot = lane.block[slotPlane].lane[lane.number];
  slot = (slot & moreBlocks) | nothing.slot;
}

void Leaves::move(uint32_t leaf, uint32_t to, uint32_t from) {
  copy(lane(leaf, to), lane(leaf, from));
  vacate(lane(leaf, from));
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
