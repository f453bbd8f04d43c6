#include <Classify/Division.h>
#include <Classify/Find.h>
#include <Classify/Forest.h>

#include <bit>
#include <limits>
#include <map>
#include <numeric>

namespace Classify {

namespace {

constexpr uint32_t strayTree = maxTrees - 1;    // images that would go into too many leaves are here
constexpr size_t fullLeaf = 4 * Plane::lanes;   // a leaf with more images is divided, if that helps
constexpr size_t grownLeaf = 5 * Plane::lanes;  // the same for a leaf that has grown
constexpr size_t manyLeaves = 64;               // so many leaves an image is added to, and no more
constexpr size_t fewImages = 2048;              // a list of no more may have more copies of each
constexpr size_t bytesPerImage = 230;           // of trees; sieves come beside
constexpr size_t unlimited = ~size_t{0};

/// How many copies of images a node may have: on average `copies` of each image, and the root of a tree,
/// which may have few images, besides `room` for each image of the list.
struct Plenty {
  double copies, room;
  size_t inAll;  ///< like `copies`, for all nodes together: that bounds the time
};
constexpr Plenty ofFew = {24, 4, 24}, ofMany = {3.75, 0.125, 12};

size_t times(double factor, size_t size) { return static_cast<size_t>(factor * static_cast<double>(size)); }

/// The cost of a look-up in a leaf of so many images. Costs are counted in blocks compared.
double stepsIn(size_t images) {
  constexpr size_t stepsOfASieve = 40;
  if (images <= Leaves::longLeaf) return static_cast<double>(images) / Plane::lanes;
  return static_cast<double>(stepsOfASieve * ((images + Row::images - 1) / Row::images));
}

/// The same for the cells of a division. In a leaf of several blocks the processor cannot foresee in which of
/// them a packet finds its rule: that costs a surprise.
double stepsIn(const Division& division) {
  constexpr double stepsOfASurprise = 3;
  return division.meanCompany / Plane::lanes + (division.meanCompany > Plane::lanes ? stepsOfASurprise : 0);
}

/// The cost of the images that a tree leaves to the trees behind it: another look-up, which is the slower the
/// more images are left.
double stepsBehind(size_t left, size_t images) {
  return left == 0 ? 0 : 4 + 8 * static_cast<double>(left) / static_cast<double>(images);
}

/// Whether a division whose look-ups cost `steps` is worth the memory of its copies. Otherwise all images go
/// into one leaf, which takes less memory.
bool pays(size_t images, double steps) { return images <= Leaves::longLeaf || 2 * steps < stepsIn(images); }

__extension__ using Bits128 = unsigned __int128;
Bits128 both(uint64_t upper, uint64_t lower) { return Bits128{upper} << 64 | lower; }

/// Whether a mask leaves so few addresses that a tree divides by them.
bool saysMuch(uint32_t mask) { return std::popcount(mask) >= 12; }

}  // namespace

/// Makes nodes and leaves in a forest, within a budget.
class Forest::Builder {
 public:
  /// `bytes`: what the trees should take at most.
  Builder(Forest& forest, const Images& images, const Plenty& plenty, size_t bytes)
      : forest_(forest),
        images_(images),
        plenty_(plenty),
        bytes_(bytes),
        budget_(images.size() * plenty.inAll + 1024) {}

  /// How many members the cells of a division of so many images may have together.
  size_t membersFor(size_t images, size_t room) const {
    return std::min(times(plenty_.copies, images) + room, budget_ + images);
  }
  size_t room() const { return times(plenty_.room, images_.size()); }
  /// How many octets of the trees' limit are still free.
  size_t bytesLeft() const { return bytes_ - std::min(bytes_, forest_.treeBytes()); }
  /// How many blocks a division may have whose leaves should take so many bytes. A part of these is left for
  /// the nodes below.
  size_t blocksIn(size_t bytes) const {
    return times(0.9, bytes) / (sizeof(Plane) * forest_.leaves_.planesPerBlock());
  }

  /// The division for the next of several trees. Images that it leaves out go to the trees behind. When no
  /// division helps, the one that is returned does not divide.
  ///
  /// Many images say much about one address and little about the other. A tree for these divides by bits of
  /// the one address only, and so has few copies of them.
  Division chosen(std::span<const uint32_t> members) const {
    constexpr uint64_t all = ~uint64_t{0}, first = all << 32, second = all >> 32;
    struct Choice {
      uint64_t allowed;
      bool needsFirst, needsSecond;
    };
    constexpr Choice choices[] = {{second, false, true}, {first, true, false}, {all, false, false}};
    Division best;
    double fewest = std::numeric_limits<double>::infinity();
    for (const Choice& choice : choices) {
      std::vector<uint32_t> inside, outside;
      for (const uint32_t member : members) {
        const Image& image = images_[member];
        const bool fits = (!choice.needsFirst || saysMuch(image.mask[0])) &&
                          (!choice.needsSecond || saysMuch(image.mask[1]));
        (fits ? inside : outside).push_back(member);
      }
      if (inside.empty() || stepsBehind(outside.size(), members.size()) >= fewest) continue;
      // With many images the last choice takes too long to try when an earlier one is good enough.
      constexpr size_t many = 256;
      constexpr double fewEnough = 8;
      if (choice.allowed == all && members.size() > many && fewest < fewEnough) continue;
      const double share = static_cast<double>(inside.size()) / static_cast<double>(members.size());
      DivisionLimits limits;
      limits.allowed[0] = choice.allowed;
      limits.maxMembers = membersFor(inside.size(), room());
      limits.maxCells = members.size() * 4;
      limits.maxCopies = 32;
      limits.maxBlocks = blocksIn(times(share, bytesLeft()));
      Division division = divide(images_, inside, {}, limits);
      division.left.insert(division.left.end(), outside.begin(), outside.end());
      const double steps = stepsIn(division) + stepsBehind(division.left.size(), members.size());
      const bool takesAny = division.divides() && division.left.size() < members.size();
      if (takesAny && steps < fewest) {
        best = std::move(division);
        fewest = steps;
      }
    }
    return best;
  }

  /// A place, and the cost of a look-up from there on.
  struct Made {
    uint32_t place;
    double steps;
  };

  /// Makes a leaf for images, or a node with all that is below it; all leaves together should take `bytes`.
  Made place(std::span<const uint32_t> members, const Region& region, int depth, size_t bytes) {
    constexpr int maxDepth = 8;
    const size_t size = members.size();
    if (size <= fullLeaf || depth > maxDepth) return leaf(members);
    const size_t beside = depth == 0 ? room() : 0;
    DivisionLimits limits;
    limits.maxBits = depth == 0 ? 16 : static_cast<int>(std::bit_width(size)) + 2;
    if (depth > 0) limits.small = 2 * Plane::lanes;  // as fast, and sooner made
    limits.maxMembers = membersFor(size, beside);
    limits.maxCells = size * 2 + beside;
    limits.maxBlocks = blocksIn(bytes);
    const Division division = divide(images_, members, region, limits);
    if (!division.divides() || !pays(size, stepsIn(static_cast<size_t>(division.meanCompany)))) {
      return leaf(members);
    }
    return node(division, region, depth, bytes);
  }

  Made node(const Division& division, const Region& region, int depth, size_t bytes) {
    const size_t members = division.cells.members.size();
    budget_ -= std::min(budget_, members);
    for (const uint32_t member : division.shadowing) forest_.shadowing_[images_[member].slot] = true;
    const size_t before = forest_.treeBytes();
    const auto number = static_cast<uint32_t>(forest_.nodes_.size());
    const auto cells = static_cast<uint32_t>(forest_.cells_.size());
    forest_.nodes_.push_back({{division.mask[0], division.mask[1]},
                              cells,
                              static_cast<uint32_t>(std::popcount(division.mask[1]))});
    forest_.cells_.resize(cells + division.cells.size());
    std::map<std::vector<uint32_t>, Made> known;  // cells with the same images share a leaf
    const auto shared = [&](std::span<const uint32_t> inside, const auto& make) {
      const auto [at, isNew] = known.try_emplace({inside.begin(), inside.end()});
      if (!isNew) {
        forest_.leaves_.share(at->second.place);
        return at->second;
      }
      const Made made = make();
      at->second = made;
      // A node is not shared: it divides its images by the packets that come there, which differ.
      if (!(made.place & leafBit)) known.erase(at);
      return made;
    };
    double steps = 0;
    const auto cellIs = [&](size_t cell, const Made& made) {
      forest_.cells_[cells + cell] = made.place;
      steps += made.steps * division.packets[cell];
    };
    size_t toDivide = 0;  // members of cells that are too large for a leaf
    double deeper = 0;    // the share of packets that come there
    for (size_t cell = 0; cell < division.cells.size(); ++cell) {
      const auto inside = division.cells[cell];
      if (inside.size() > fullLeaf) {
        toDivide += inside.size();
        deeper += division.packets[cell];
      } else if (inside.empty()) {
        cellIs(cell, {Leaves::empty, 0});
      } else {
        cellIs(cell, shared(inside, [&] { return leaf(inside); }));
      }
    }
    if (depth == 0) forest_.deep_ = deeper > 0.25;
    // Cells that are too large share the bytes that are left, in proportion to their sizes.
    for (size_t cell = 0; toDivide > 0; ++cell) {
      const auto inside = division.cells[cell];
      if (inside.size() <= fullLeaf) continue;
      const size_t left = bytes - std::min(bytes, forest_.treeBytes() - before);
      const double share = static_cast<double>(inside.size()) / static_cast<double>(toDivide);
      cellIs(cell, shared(inside, [&] {
               return place(inside, division.regionOf(region, cell), depth + 1, times(share, left));
             }));
      toDivide -= inside.size();
    }
    constexpr double stepsOfANode = 4;
    return {number, stepsOfANode + steps};
  }

  Made leaf(std::span<const uint32_t> members) {
    chosen_.clear();
    for (const uint32_t member : members) chosen_.push_back(images_[member]);
    forest_.bounded_ = forest_.bounded_ || members.size() > Leaves::longLeaf;
    return {forest_.leaves_.make(chosen_), stepsIn(members.size())};
  }

 private:
  Forest& forest_;
  const Images& images_;
  const Plenty plenty_;
  const size_t bytes_;
  size_t budget_;  // of members that may still be made
  std::vector<Image> chosen_;
};

Forest::Forest() : gathersAtOnce_(kernels->gathersAtOnce) { build({}, {}, false); }

void Forest::build(std::span<const Image> images, std::span<const uint32_t> sequences, bool wide) {
  // No packet gets to the images behind one that every packet matches.
  const auto everything = std::find_if(images.begin(), images.end(),
                                       [](const Image& image) { return overlap({}, image) == Overlap::all; });
  const bool hides = everything != images.end() && everything + 1 != images.end();
  if (hides) images = {images.begin(), everything + 1};
  const Images prepared(images);
  const bool few = images.size() <= fewImages;
  const auto clear = [&] {
    nodes_.clear();
    cells_.clear();
    leaves_.clear(wide);
    shadowing_.assign(sequences.size(), false);
    if (hides) shadowing_[images.back().slot] = true;
    plantedIn_.assign(sequences.size(), 0);
    strays_ = 0;
    bounded_ = false;
    deep_ = false;
    view_ = {};
  };
  clear();
  Builder builder(*this, prepared, few ? ofFew : ofMany, images.size() * bytesPerImage + 4096);
  // One tree is the fastest where most images say much about both addresses; it would have many copies of
  // other images. Where the way through a node is a long loop, one tree is always faster.
  size_t specific = 0;
  for (const Image& image : images) specific += saysMuch(image.mask[0]) && saysMuch(image.mask[1]);
  const bool one =
      images.size() <= fullLeaf || (few && (specific * 10 >= images.size() * 7 || !gathersAtOnce_));
  if (!pays(images.size(), plant(builder, prepared, !one))) {
    clear();
    std::vector<uint32_t> members(images.size());
    std::iota(members.begin(), members.end(), 0);
    for (const Image& image : images) plantedIn_[image.slot] = 1;
    view_.roots[view_.trees++] = builder.leaf(members).place;
    planted_ = 1;
  }
  std::fill(std::begin(bounds_), std::end(bounds_), Bound());
  for (const Image& image : images) {
    for (uint32_t tree = 0; tree < planted_; ++tree) {
      if (plantedIn_[image.slot] >> tree & 1) noteIn(tree, image.slot, sequences[image.slot]);
    }
  }
  chooseAlways(prepared);
  sieveLongLeaves();
  constexpr size_t someBytes = 65536;
  enoughBytes_ = 2 * treeBytes() + someBytes;
  refreshView();
}

void Forest::noteIn(uint32_t tree, uint32_t slot, uint32_t sequence) {
  plantedIn_[slot] |= static_cast<uint8_t>(1u << tree);
  bounds_[tree].slot = std::min(bounds_[tree].slot, slot);
  bounds_[tree].sequence = std::min(bounds_[tree].sequence, sequence);
}

/// Leaving a tree out takes a branch. That is worth it only if the processor mostly foresees it: if most
/// images of the trees before, and so most rules that packets find there, come before all images of the tree.
void Forest::chooseAlways(const Images& images) {
  constexpr double fewEnough = 0.4;
  view_.always = 1;
  while (view_.always < planted_) {
    const uint32_t tree = 1u << view_.always, before = tree - 1;
    size_t all = 0, behind = 0;  // images of the trees before; of these, behind the first of the tree
    bool begun = false;
    for (size_t i = 0; i < images.size(); ++i) {
      const uint32_t in = plantedIn_[images[static_cast<uint32_t>(i)].slot];
      begun = begun || (in & tree);
      all += (in & before) != 0;
      behind += begun && (in & before);
    }
    if (static_cast<double>(behind) < fewEnough * static_cast<double>(all)) return;
    ++view_.always;
  }
}

/// Only at the end, when it is known which leaves stay.
void Forest::sieveLongLeaves() {
  if (!bounded_) return;
  std::map<uint32_t, uint32_t> known;  // cells may share a leaf
  const auto sieve = [&](uint32_t& place) {
    if (!(place & leafBit) || leaves_.size(place) <= Leaves::longLeaf) return;
    const auto [at, isNew] = known.try_emplace(place);
    if (isNew) at->second = leaves_.sieved(place);
    place = at->second;
  };
  std::for_each(view_.roots, view_.roots + view_.trees, sieve);
  std::for_each(cells_.begin(), cells_.end(), sieve);
}

double Forest::plant(Builder& builder, const Images& images, bool several) {
  double steps = 0;
  const auto add = [&](const Builder::Made& tree) {
    view_.roots[view_.trees++] = tree.place;
    steps += tree.steps;
  };
  std::vector<uint32_t> members(images.size());
  std::iota(members.begin(), members.end(), 0);
  // Notes for `all` but the ones that are `left` that they go into the next tree.
  const auto planted = [&](std::span<const uint32_t> all, std::span<const uint32_t> left) {
    size_t at = 0;
    for (const uint32_t member : all) {
      while (at < left.size() && left[at] < member) ++at;
      if (at == left.size() || left[at] != member) {
        plantedIn_[images[member].slot] |= static_cast<uint8_t>(1u << view_.trees);
      }
    }
  };
  while (several && view_.trees + 1 < strayTree && members.size() > fullLeaf) {
    Division best = builder.chosen(members);
    if (!best.divides()) break;
    std::sort(best.left.begin(), best.left.end());
    planted(members, best.left);
    const double share = 1 - static_cast<double>(best.left.size()) / static_cast<double>(members.size());
    members = best.left;
    add(builder.node(best, {}, 0, times(share, builder.bytesLeft())));
  }
  planted(members, {});
  if (!members.empty() || view_.trees == 0) add(builder.place(members, {}, 0, builder.bytesLeft()));
  planted_ = view_.trees;
  return steps;
}

View Forest::view(const uint32_t* sequences) const {
  View view = view_;
  view.sequences = sequences;
  for (uint32_t tree = 0; tree < maxTrees; ++tree) {
    view.bounds[tree] = sequences ? bounds_[tree].sequence : bounds_[tree].slot;
  }
  return view;
}

void Forest::refreshView() {
  view_.nodes = nodes_.data();
  view_.cells = cells_.data();
  view_.planes = leaves_.planes();
  view_.sieves = leaves_.sieves().sieves();
  view_.rows = leaves_.sieves().rows();
  constexpr size_t near = size_t{4} << 20;
  view_.far = leaves_.bytes() > near;
  const bool several = view_.trees > 1;
  view_.shape =
      (wide() ? wideShape : 0u) | (several ? severalShape : 0u) | (deep_ && !several ? deepShape : 0u);
}

size_t Forest::treeBytes() const {
  return nodes_.size() * sizeof(Node) + cells_.size() * sizeof(uint32_t) + leaves_.bytes();
}

size_t Forest::bytes() const { return treeBytes() + shadowing_.size() / 8 + plantedIn_.size(); }

template <class Visit>
size_t Forest::visitLeaves(uint32_t* place, const Region& region, const Image& image, size_t limit,
                           const Visit& visit) {
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
    visited += visitLeaves(&inside, inner, image, limit - std::min(limit, visited), visit);
    cells_[node.cells + (fixed | some)] = inside;
    if (visited > limit || some == 0) return visited;
  }
}

void Forest::insert(const Image& image, const Order& order) {
  if (image.slot >= shadowing_.size()) {
    shadowing_.resize(image.slot + 1);
    plantedIn_.resize(image.slot + 1);
  }
  uint32_t best = strayTree;
  size_t fewest = manyLeaves;
  for (uint32_t tree = 0; tree < planted_; ++tree) {
    const size_t leaves = visitLeaves(&view_.roots[tree], {}, image, fewest, [](uint32_t&, const Region&) {});
    if (leaves < fewest || (leaves == fewest && best == strayTree)) best = tree, fewest = leaves;
  }
  if (best == strayTree) {
    ++strays_;
    while (view_.trees <= strayTree) view_.roots[view_.trees++] = Leaves::empty;
  }
  noteIn(best, image.slot, order.sequence(order.context, image.slot));
  visitLeaves(&view_.roots[best], {}, image, unlimited,
              [&](uint32_t& place, const Region& region) { insertInLeaf(place, region, image, order); });
  refreshView();
}

void Forest::insertInLeaf(uint32_t& place, const Region& region, const Image& image, const Order& order) {
  const uint32_t before = place;
  place = leaves_.insert(place, image, order);
  noteLostSieve(before, place);
  if (view_.trees > strayTree && &place == &view_.roots[strayTree]) return;
  const size_t size = leaves_.size(place);
  if (size > Leaves::longLeaf) ++strays_;
  if (size <= grownLeaf || size > Leaves::longLeaf || size % Plane::lanes != 1) return;
  if (treeBytes() > enoughBytes_) return;
  const std::vector<Image> images = leaves_.images(place);
  std::vector<uint32_t> members(images.size());
  std::iota(members.begin(), members.end(), 0);
  const uint32_t old = place;
  const size_t bytes = size * bytesPerImage;
  place = Builder(*this, Images(images), ofMany, bytes).place(members, region, 4, bytes).place;
  leaves_.drop(old);
}

void Forest::noteLostSieve(uint32_t before, uint32_t after) {
  if (before & ~after & sieveBit) strays_ += leaves_.size(after) / Plane::lanes;
}

void Forest::erase(const Image& image) {
  const uint32_t trees = plantedIn_[image.slot];
  for (uint32_t tree = 0; tree < view_.trees; ++tree) {
    if (!(trees >> tree & 1)) continue;
    visitLeaves(&view_.roots[tree], {}, image, unlimited, [&](uint32_t& place, const Region&) {
      const uint32_t before = place;
      place = leaves_.erase(place, image.slot);
      noteLostSieve(before, place);
    });
  }
  refreshView();
}

}  // namespace Classify
