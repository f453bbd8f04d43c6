#include <Classify/ForestBuilder.h>

#include <algorithm>
#include <bit>
#include <numeric>

namespace Classify {

namespace {

constexpr size_t grownLeaf = 5 * Plane::lanes;  // a leaf that has grown is divided when it has more images
constexpr size_t manyLeaves = 64;               // so many leaves an image is added to, and no more
constexpr size_t unlimited = ~size_t{0};

__extension__ using Bits128 = unsigned __int128;

Bits128 both(uint64_t upper, uint64_t lower) { return Bits128{upper} << 64 | lower; }

}  // namespace

size_t Forest::findSpots(uint32_t tree, const Image& image, size_t limit) {
  spots_.clear();
  regions_.assign(1, {});
  passed_.clear();
  Overlap lies;
  const Ternary bits = ternaryIn({}, image, &lies);
  return lies == Overlap::none ? 1 : addSpots({view_.roots[tree], noCell, 0}, bits, image, limit);
}

/// `bits` are those of the image in the spot's region, which overlap.
size_t Forest::addSpots(const Spot& spot, const Ternary& bits, const Image& image, size_t limit) {
  if (spot.place & leafBit) {
    spots_.push_back(spot);
    return 1;
  }
  const Node& node = nodes_[spot.place];
  const auto cellOf = [&node](uint64_t upper, uint64_t lower) {
    return gatherBits(upper, node.mask[0]) << node.shift | gatherBits(lower, node.mask[1]);
  };
  // Counts through the numbers of all cells of the image, and in step through the bits of the key that they
  // stand for.
  const uint64_t fixed = cellOf(bits.value[0], bits.value[1]);
  const uint64_t open = cellOf(~bits.mask[0], ~bits.mask[1]);
  const Bits128 openBits = both(node.mask[0] & ~bits.mask[0], node.mask[1] & ~bits.mask[1]);
  Region inner = regions_[spot.region];
  for (const int word : {0, 1}) {
    inner.mask[word] |= node.mask[word];
    inner.value[word] |= bits.value[word] & node.mask[word];
  }
  const Region fixedBits = inner;
  const bool asksPair = node.mask[1] >> 32;  // otherwise the image lies in each cell as it lies here
  size_t visited = 0;
  uint64_t some = open;
  for (Bits128 someBits = openBits;; some = (some - 1) & open, someBits = (someBits - 1) & openBits) {
    inner.value[0] = fixedBits.value[0] | static_cast<uint64_t>(someBits >> 64);
    inner.value[1] = fixedBits.value[1] | static_cast<uint64_t>(someBits);
    const auto number = static_cast<uint32_t>(fixed | some);
    if (node.firsts != Node::noFirsts) passed_.push_back(node.firsts + number);
    Overlap lies = Overlap::part;
    const Ternary inside = asksPair ? ternaryIn(inner, image, &lies) : bits;
    if (lies == Overlap::none) {
      ++visited;
    } else {
      regions_.push_back(inner);
      const auto region = static_cast<uint32_t>(regions_.size() - 1);
      visited += addSpots({cells_[node.cells + number], node.cells + number, region}, inside, image,
                          limit - std::min(limit, visited));
    }
    if (visited > limit || some == 0) return visited;
  }
}

/// While it is there, cells that share a leaf are counted as one. Then they share that at `place`.
struct Forest::Alone {
  Alone(Leaves& all, std::span<const Spot> cells)
      : leaves(all), others(static_cast<uint32_t>(cells.size() - 1)), place(cells.front().place) {
    leaves.unshare(place, others);
  }
  ~Alone() { leaves.share(place, others); }

  Leaves& leaves;
  const uint32_t others;
  uint32_t place;
};

/// When `change` fails, as it may for want of memory until it has a leaf to return, the leaves before are
/// changed, and it and those behind it are not.
template <class Change>
void Forest::changeLeaves(uint32_t tree, const Change& change) {
  for (const Spot& spot : spots_) leaves_.fetch(spot.place);
  const auto shared = std::partition(spots_.begin(), spots_.end(),
                                     [this](const Spot& spot) { return !leaves_.isShared(spot.place); });
  std::sort(shared, spots_.end(), [](const Spot& a, const Spot& b) { return a.place < b.place; });
  const std::span<Spot> spots = spots_;
  for (size_t at = 0; at < spots.size();) {
    size_t end = at + 1;
    while (end < spots.size() && spots[end].place == spots[at].place) ++end;
    const auto cells = spots.subspan(at, end - at);
    Alone alone(leaves_, cells);
    alone.place = change(cells);
    for (const Spot& cell : cells) placeAt(tree, cell) = alone.place;
    at = end;
  }
}

bool Forest::sievesTake(const Image& image, const Order& order) const {
  return std::all_of(spots_.begin(), spots_.end(), [&](const Spot& spot) {
    if (!(spot.place & sieveBit)) return true;
    const auto cells = std::count_if(spots_.begin(), spots_.end(),
                                     [&](const Spot& other) { return other.place == spot.place; });
    return leaves_.takes(spot.place, static_cast<uint32_t>(cells), image, order);
  });
}

uint32_t Forest::treeFor(const Image& image, const Order& order) {
  uint32_t best = strayTree;
  uint32_t known = strayTree;  // the tree of spots_
  size_t fewest = manyLeaves;
  for (uint32_t tree = 0; tree < planted_ && fewest > mostCopies; ++tree) {
    const size_t leaves = findSpots(known = tree, image, fewest);
    if (leaves < fewest || (leaves == fewest && best == strayTree)) best = tree, fewest = leaves;
  }
  if (best != strayTree) {
    if (best != known) findSpots(best, image, unlimited);
    if (sievesTake(image, order)) return best;
  }
  while (view_.trees <= strayTree) view_.roots[view_.trees++] = Leaves::empty;
  findSpots(strayTree, image, unlimited);
  return strayTree;
}

void Forest::insert(const Image& image, const Order& order) {
  const ViewAtEnd viewAtEnd{*this};
  if (image.slot >= shadowing_.size()) shadowing_.resize(image.slot + 1);
  if (image.slot >= plantedIn_.size()) plantedIn_.resize(image.slot + 1);
  const uint32_t tree = treeFor(image, order);
  strays_ += tree == strayTree;
  noteIn(tree, image.slot, order.sequence(order.context, image.slot));
  for (const uint32_t first : passed_) cells_[first] = std::min(cells_[first], image.slot);
  changeLeaves(tree, [&](std::span<Spot> cells) {
    const Leaves::Grown made = leaves_.insert(cells.front().place, image, order);
    if (tree != strayTree) {
      strays_ += made.images > Leaves::longLeaf;
      for (Spot& cell : cells) cell.divides = isWorthATry(made);
    }
    return made.leaf;
  });
  for (const Spot& spot : spots_) {
    if (spot.divides) divideGrown(tree, spot);
  }
}

/// A leaf that was not divided when it was made is not worth it with an image more either.
bool Forest::isWorthATry(const Leaves::Grown& leaf) const {
  return leaf.images > grownLeaf && leaf.images <= Leaves::longLeaf &&
         leaf.images >= leaves_.wasMadeWith(leaf.leaf) + Plane::lanes && treeBytes() <= enoughBytes_;
}

void Forest::divideGrown(uint32_t tree, const Spot& cell) {
  const uint32_t old = placeAt(tree, cell);
  const std::vector<Image> images = leaves_.images(old);
  std::vector<uint32_t> members(images.size());
  std::iota(members.begin(), members.end(), 0);
  const size_t bytes = images.size() * bytesPerImage;
  const Images prepared(images);
  Builder builder(*this, prepared, ofMany, bytes);
  builder.treeIs(tree);
  const uint32_t made = builder.place(members, regions_[cell.region], 4, bytes).place;
  placeAt(tree, cell) = made;
  leaves_.drop(old);
}

void Forest::erase(std::span<const Image> images, const Order& order) {
  const ViewAtEnd viewAtEnd{*this};
  for (const Image& image : images) {
    for (uint32_t trees = plantedIn_[image.slot]; trees != 0; trees &= trees - 1) {
      const auto tree = static_cast<uint32_t>(std::countr_zero(trees));
      findSpots(tree, image, unlimited);
      changeLeaves(tree, [&](std::span<const Spot> cells) {
        return leaves_.erase(cells.front().place, image.slot, order);
      });
    }
  }
  for (const Image& image : images) plantedIn_[image.slot] = 0;
}

}  // namespace Classify
