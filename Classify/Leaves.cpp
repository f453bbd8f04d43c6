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

void Leaves::readLanes(uint32_t leaf) {
  used_.clear();
  eachImage(leaf, [this](uint32_t at, const Plane*, uint32_t) { used_.push_back(at); });
}

uint32_t Leaves::insert(uint32_t leaf, const Image& image, const Order& order) {
  leaf = plain(leaf);
  if (leaf == empty) return makeBlocks({&image, 1});
  readLanes(leaf);
  // Where numbers are equal the order may be known of some pairs only: there each is asked about, from the
  // front.
  const uint32_t sequence = order.sequence(order.context, image.slot);
  auto next = std::partition_point(used_.begin(), used_.end(), [&](uint32_t at) {
    return order.sequence(order.context, slotAt(leaf, at)) < sequence;
  });
  while (next != used_.end() && !order(image.slot, slotAt(leaf, *next))) ++next;
  leaf = own(leaf, static_cast<uint32_t>(used_.size()) + 1);
  write(makeFree(leaf, static_cast<size_t>(next - used_.begin())), image);
  return leaf;
}

Leaves::Lane Leaves::makeFree(uint32_t leaf, size_t next) {
  const size_t count = used_.size();
  const uint32_t from = next > 0 ? used_[next - 1] + 1 : 0, to = next < count ? used_[next] : from;
  if (from < to) return lane(leaf, from);
  // The images side by side with the new one's place are those from `begin` up to `end`.
  uint32_t begin = from, end = to;
  for (size_t i = next; i > 0 && used_[i - 1] + 1 == begin; --i) --begin;
  for (size_t i = next; i < count && used_[i] == end; ++i) ++end;
  const bool upwards = end < blocksOf(leaf) * Plane::lanes && (begin == 0 || end - to <= from - begin);
  if (upwards) {
    for (uint32_t i = end; i > to; --i) copy(lane(leaf, i), lane(leaf, i - 1));
    return lane(leaf, to);
  }
  for (uint32_t i = begin; i < from; ++i) copy(lane(leaf, i - 1), lane(leaf, i));
  return lane(leaf, from - 1);
}

uint32_t Leaves::erase(uint32_t leaf, uint32_t slot) {
  const uint32_t before = leaf;
  leaf = plain(leaf);
  readLanes(leaf);
  const auto isGone = [&](uint32_t at) { return slotAt(leaf, at) == slot; };
  if (std::none_of(used_.begin(), used_.end(), isGone)) return before;
  leaf = own(leaf, 0);
  size_t kept = 0;
  for (const uint32_t at : used_) {
    if (isGone(at)) {
      vacate(lane(leaf, at));
    } else {
      used_[kept++] = at;
    }
  }
  used_.resize(kept);
  if (used_.empty()) {
    drop(leaf);
    return empty;
  }
  const auto count = static_cast<uint32_t>(used_.size());
  if (blocksFor(count) == blocksOf(leaf)) {
    if (used_.front() > 0) move(leaf, 0, used_.front());
    return leaf;
  }
  // All blocks of the old leaf are given back together, so that a later leaf can take them side by side.
  for (uint32_t i = 0; i < count; ++i) {
    if (used_[i] > i) move(leaf, i, used_[i]);
  }
  return copyOf(leaf, count, count);
}

uint32_t Leaves::own(uint32_t leaf, uint32_t room) {
  const uint32_t lanes = blocksOf(leaf) * Plane::lanes;
  if (sharers(leaf) == 0 && room <= lanes) return leaf;
  return copyOf(leaf, lanes, std::max(room, lanes));
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
  size_t bytes = planes_.size() * sizeof(Plane) + sieves_.bytes() +
                 (sharers_.size() + used_.capacity()) * sizeof(uint32_t);
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
