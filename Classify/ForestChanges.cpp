#include <Classify/ForestBuilder.h>

#include <bit>
#include <numeric>

namespace Classify {

namespace {

constexpr size_t grownLeaf = 5 * Plane::lanes;  // a leaf that has grown is divided when it has more images
constexpr size_t manyLeaves = 64;               // so many leaves an image is added to, and no more
constexpr size_t unlimited = ~size_t{0};

__extension__ using Bits128 = unsigned __int128;
void lower(uint32_t& first, uint32_t slot) { first = std::min(first, slot); }

Bits128 both(uint64_t upper, uint64_t lower) { return Bits128{upper} << 64 | lower; }

}  // namespace

template <class Visit>
size_t Forest::visitLeaves(uint32_t* place, const Region& region, const Image& image, size_t limit,
                           uint32_t first, const Visit& visit) {
  Overlap lies;
  const Ternary bits = ternaryIn(region, image, &lies);
  if (lies == Overlap::none) return 1;
  if (*place & leafBit) {
    visit(*place, region);
    return 1;
  }
  const Node node = nodes_[*place];
  const auto cellOf = [&node](uint64_t upper, uint64_t lower) {
    return gatherBits(upper, node.mask[0]) << node.shift | gatherBits(lower, node.mask[1]);
  };
  // Counts through the numbers of all cells of the image, and in step through the bits of the key that they
  // stand for.
  const uint64_t fixed = cellOf(bits.value[0], bits.value[1]);
  const uint64_t open = cellOf(~bits.mask[0], ~bits.mask[1]);
  const Bits128 openBits = both(node.mask[0] & ~bits.mask[0], node.mask[1] & ~bits.mask[1]);
  Region inner = region;
  for (const int word : {0, 1}) inner.mask[word] |= node.mask[word];
  size_t visited = 0;
  uint64_t some = open;
  for (Bits128 someBits = openBits;; some = (some - 1) & open, someBits = (someBits - 1) & openBits) {
    const uint64_t words[2] = {static_cast<uint64_t>(someBits >> 64), static_cast<uint64_t>(someBits)};
    for (const int word : {0, 1}) {
      inner.value[word] = region.value[word] | (bits.value[word] & node.mask[word]) | words[word];
    }
    uint32_t inside = cells_[node.cells + (fixed | some)];  // a copy, for a visit may make cells
    visited += visitLeaves(&inside, inner, image, limit - std::min(limit, visited), first, visit);
    cells_[node.cells + (fixed | some)] = inside;
    if (node.firsts != Node::noFirsts) lower(cells_[node.firsts + (fixed | some)], first);
    if (visited > limit || some == 0) return visited;
  }
}

uint32_t Forest::treeFor(const Image& image) {
  uint32_t best = strayTree;
  size_t fewest = manyLeaves;
  for (uint32_t tree = 0; tree < planted_; ++tree) {
    const size_t leaves =
        visitLeaves(&view_.roots[tree], {}, image, fewest, noSlot, [](uint32_t&, const Region&) {});
    if (leaves <= mostCopies) return tree;
    if (leaves < fewest || (leaves == fewest && best == strayTree)) best = tree, fewest = leaves;
  }
  return best;
}

void Forest::insert(const Image& image, const Order& order) {
  if (image.slot >= shadowing_.size()) {
    shadowing_.resize(image.slot + 1);
    plantedIn_.resize(image.slot + 1);
  }
  const uint32_t tree = treeFor(image);
  if (tree == strayTree) {
    ++strays_;
    while (view_.trees <= strayTree) view_.roots[view_.trees++] = Leaves::empty;
  }
  noteIn(tree, image.slot, order.sequence(order.context, image.slot));
  visitLeaves(
      &view_.roots[tree], {}, image, unlimited, image.slot,
      [&](uint32_t& place, const Region& region) { insertInLeaf(tree, place, region, image, order); });
  refreshView();
}

void Forest::insertInLeaf(uint32_t tree, uint32_t& place, const Region& region, const Image& image,
                          const Order& order) {
  const uint32_t before = place;
  place = leaves_.insert(place, image, order);
  noteLostSieve(before, place);
  if (tree == strayTree) return;
  const size_t size = leaves_.size(place);
  if (size > Leaves::longLeaf) ++strays_;
  if (size <= grownLeaf || size > Leaves::longLeaf || size % Plane::lanes != 1) return;
  if (treeBytes() > enoughBytes_) return;
  const std::vector<Image> images = leaves_.images(place);
  std::vector<uint32_t> members(images.size());
  std::iota(members.begin(), members.end(), 0);
  const uint32_t old = place;
  const size_t bytes = size * bytesPerImage;
  const Images prepared(images);
  Builder builder(*this, prepared, ofMany, bytes);
  builder.treeIs(tree);
  place = builder.place(members, region, 4, bytes).place;
  leaves_.drop(old);
}

void Forest::noteLostSieve(uint32_t before, uint32_t after) {
  if (before & ~after & sieveBit) strays_ += leaves_.size(after) / Plane::lanes;
}

void Forest::erase(std::span<const Image> images) {
  for (const Image& image : images) {
    for (uint32_t trees = plantedIn_[image.slot]; trees != 0; trees &= trees - 1) {
      uint32_t& root = view_.roots[std::countr_zero(trees)];
      visitLeaves(&root, {}, image, unlimited, noSlot, [&](uint32_t& place, const Region&) {
        const uint32_t before = place;
        place = leaves_.erase(place, image.slot);
        noteLostSieve(before, place);
      });
    }
  }
  for (const Image& image : images) plantedIn_[image.slot] = 0;
  refreshView();
}

}  // namespace Classify
