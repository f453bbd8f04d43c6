#include <Classify/Leaves.h>

namespace Classify {

void Leaves::fetch(uint32_t leaf) const {
  constexpr uint32_t enough = 5;  // blocks: few leaves have more
  leaf = plain(leaf);
  __builtin_prefetch(&notes_[noteAt(leaf, Note::sharers)]);
  const size_t first = leaf & ~leafBit, end = std::min(first + enough * planesPerBlock_, planes_.size());
  for (size_t block = first; block < end; block += planesPerBlock_) {
    __builtin_prefetch(&planes_[block + slotPlane], 1);
  }
}

std::span<const uint32_t> Leaves::readLanes(uint32_t leaf) {
  const Plane* block = planes_.data() + (leaf & ~leafBit);
  size_t count = 0;
  bool more = true;
  for (uint32_t at = 0; more; at += Plane::lanes, block += planesPerBlock_) {
    if (used_.size() < at + Plane::lanes) used_.resize(2 * (at + Plane::lanes));
    const uint32_t* lanes = block[slotPlane].lane;
    for (uint32_t number = 0; number < Plane::lanes; ++number) {
      used_[count] = at + number;
      count += (lanes[number] & slotMask) != noSlot;
    }
    more = lanes[0] & moreBlocks;
  }
  return {used_.data(), count};
}

uint32_t Leaves::behind(uint32_t leaf, uint32_t sequence, const Order& order) const {
  uint32_t low = 0, high = note(leaf, Note::blocks) * Plane::lanes;
  while (low < high) {
    const uint32_t middle = low + (high - low) / 2;
    uint32_t used = middle;
    while (used < high && slotAt(leaf, used) == noSlot) ++used;
    if (used < high && order.sequence(order.context, slotAt(leaf, used)) < sequence) {
      low = used + 1;
    } else {
      high = middle;
    }
  }
  return low;
}

uint32_t Leaves::laneInSieved(uint32_t leaf, const Image& image, const Order& order) const {
  const uint32_t lanes = note(leaf, Note::blocks) * Plane::lanes;
  uint32_t at = behind(leaf, order.sequence(order.context, image.slot), order);
  for (uint32_t used = at; used < lanes; ++used) {
    const uint32_t slot = slotAt(leaf, used);
    if (slot == noSlot) continue;
    if (order(image.slot, slot)) break;
    at = used + 1;
  }
  return at < lanes && slotAt(leaf, at) == noSlot ? at : noLane;
}

bool Leaves::takes(uint32_t leaf, uint32_t cells, const Image& image, const Order& order) const {
  leaf = plain(leaf);
  return note(leaf, Note::sharers) + 1 == cells && laneInSieved(leaf, image, order) != noLane;
}

Leaves::Grown Leaves::insert(uint32_t leaf, const Image& image, const Order& order) {
  if (leaf == empty) return {makeBlocks({&image, 1}), 1};
  if (leaf & sieveBit) {
    const uint32_t at = laneInSieved(plain(leaf), image, order);
    write(lane(plain(leaf), at), image);
    sieves_.insert(leaf & ~(leafBit | sieveBit), at, image);
    return {leaf, 0};
  }
  const std::span<const uint32_t> used = readLanes(leaf);
  // Where numbers are equal the order may be known of some pairs only: there each is asked about, from the
  // front.
  const uint32_t sequence = order.sequence(order.context, image.slot);
  auto next = std::partition_point(used.begin(), used.end(), [&](uint32_t at) {
    return order.sequence(order.context, slotAt(leaf, at)) < sequence;
  });
  while (next != used.end() && !order(image.slot, slotAt(leaf, *next))) ++next;
  const auto images = static_cast<uint32_t>(used.size()) + 1;
  leaf = own(leaf, images);
  write(makeFree(leaf, used, static_cast<size_t>(next - used.begin())), image);
  return {leaf, images};
}

Leaves::Lane Leaves::makeFree(uint32_t leaf, std::span<const uint32_t> used, size_t next) {
  const size_t count = used.size();
  const uint32_t from = next > 0 ? used[next - 1] + 1 : 0, to = next < count ? used[next] : from;
  if (from < to) return lane(leaf, from);
  // The images side by side with the new one's place are those from `begin` up to `end`.
  uint32_t begin = from, end = to;
  for (size_t i = next; i > 0 && used[i - 1] + 1 == begin; --i) --begin;
  for (size_t i = next; i < count && used[i] == end; ++i) ++end;
  const bool upwards = end < blocksOf(leaf) * Plane::lanes && (begin == 0 || end - to <= from - begin);
  if (upwards) {
    for (uint32_t i = end; i > to; --i) copy(lane(leaf, i), lane(leaf, i - 1));
    return lane(leaf, to);
  }
  for (uint32_t i = begin; i < from; ++i) copy(lane(leaf, i - 1), lane(leaf, i));
  return lane(leaf, from - 1);
}

uint32_t Leaves::erase(uint32_t leaf, uint32_t slot, const Order& order) {
  if (leaf & sieveBit) {
    eraseSieved(leaf, slot, order);
    return leaf;
  }
  Plane* block = planes_.data() + (leaf & ~leafBit);
  uint32_t count = 0, blocks = 0;
  bool found = false, more = true;
  for (; more; ++blocks, block += planesPerBlock_) {
    const uint32_t* lanes = block[slotPlane].lane;
    more = lanes[0] & moreBlocks;
    uint32_t gone = 0;
    for (uint32_t number = 0; number < Plane::lanes; ++number) {
      const uint32_t here = lanes[number] & slotMask;
      gone |= uint32_t{here == slot} << number;
      count += here != noSlot && here != slot;
    }
    found = found || gone != 0;
    for (; gone; gone &= gone - 1) vacate({block, static_cast<uint32_t>(__builtin_ctz(gone))});
  }
  if (!found) return leaf;
  if (count == 0) {
    drop(leaf);
    return empty;
  }
  if (blocksFor(count) == blocks) {
    uint32_t first = 0;
    while (slotAt(leaf, first) == noSlot) ++first;
    if (first > 0) move(leaf, 0, first);
    return leaf;
  }
  // All blocks of the old leaf are given back together, so that a later leaf can take them side by side.
  closeUp(leaf);
  return copyOf(leaf, count, count);
}

void Leaves::eraseSieved(uint32_t leaf, uint32_t slot, const Order& order) {
  const uint32_t sieve = leaf & ~(leafBit | sieveBit), sequence = order.sequence(order.context, slot);
  leaf = plain(leaf);
  const uint32_t lanes = note(leaf, Note::blocks) * Plane::lanes;
  for (uint32_t at = behind(leaf, sequence, order); at < lanes; ++at) {
    const uint32_t here = slotAt(leaf, at);
    if (here == noSlot) continue;
    if (order.sequence(order.context, here) > sequence) return;
    if (here != slot) continue;
    vacate(lane(leaf, at));
    sieves_.erase(sieve, at);
  }
}

void Leaves::closeUp(uint32_t leaf) {
  uint32_t to = 0;
  for (uint32_t from = 0, lanes = blocksOf(leaf) * Plane::lanes; from < lanes; ++from) {
    if (slotAt(leaf, from) == noSlot) continue;
    if (to < from) move(leaf, to, from);
    ++to;
  }
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
  noteIs(made, blocksFor(room), Note::madeWith, wasMadeWith(leaf));
  drop(leaf);
  return made;
}

uint32_t Leaves::wasMadeWith(uint32_t leaf) const {
  const bool isNoted = planes_[(leaf & ~leafBit) + slotPlane].lane[0] & moreBlocks;
  return isNoted ? note(leaf, Note::madeWith) : Plane::lanes;
}

}  // namespace Classify
