#include <Classify/ForestBuilder.h>

#include <limits>
#include <map>

namespace Classify {

namespace {

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

}  // namespace

/// The bits that a tree may divide by, and the images that it is for.
struct Forest::Builder::Choice {
  uint64_t allowed;
  bool needsFirst, needsSecond;

  bool fits(const Image& image) const {
    return (!needsFirst || saysMuch(image.mask[0])) && (!needsSecond || saysMuch(image.mask[1]));
  }
};

Division Forest::Builder::chosen(std::span<const uint32_t> members) const {
  constexpr uint64_t all = ~uint64_t{0}, first = all << 32, second = all >> 32;
  constexpr Choice choices[] = {{second, false, true}, {first, true, false}, {all, false, false}};
  Division best;
  double fewest = std::numeric_limits<double>::infinity();
  for (const Choice& choice : choices) {
    std::vector<uint32_t> inside, outside;
    for (const uint32_t member : members) (choice.fits(images_[member]) ? inside : outside).push_back(member);
    if (inside.empty() || stepsBehind(outside.size(), members.size()) >= fewest) continue;
    // With many images the last choice takes too long to try when an earlier one is good enough.
    constexpr size_t many = 256;
    constexpr double fewEnough = 8;
    if (choice.allowed == all && members.size() > many && fewest < fewEnough) continue;
    Division division = dividedBy(choice, inside, outside);
    const double steps = stepsIn(division) + stepsBehind(division.left.size(), members.size());
    const bool takesAny = division.divides() && division.left.size() < members.size();
    if (takesAny && steps < fewest) {
      best = std::move(division);
      fewest = steps;
    }
  }
  return best;
}

Division Forest::Builder::dividedBy(const Choice& choice, std::span<const uint32_t> inside,
                                    std::span<const uint32_t> outside) const {
  const size_t all = inside.size() + outside.size();
  const double share = static_cast<double>(inside.size()) / static_cast<double>(all);
  DivisionLimits limits;
  limits.allowed[0] = choice.allowed;
  limits.maxMembers = membersFor(inside.size(), room());
  limits.maxCells = all * 4;
  limits.maxCopies = mostCopies;
  limits.maxBlocks = blocksIn(times(share, bytesLeft()));
  limits.entriesPerCell = entriesPerCell();
  Division division = divide(images_, inside, {}, limits);
  division.left.insert(division.left.end(), outside.begin(), outside.end());
  return division;
}

Forest::Builder::Made Forest::Builder::place(std::span<const uint32_t> members, const Region& region,
                                             int depth, size_t bytes) {
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
  limits.entriesPerCell = entriesPerCell();
  const Division division = divide(images_, members, region, limits);
  if (!division.divides() || !pays(size, stepsIn(static_cast<size_t>(division.meanCompany)))) {
    return leaf(members);
  }
  return node(division, region, depth, bytes);
}

/// A node that is being made.
struct Forest::Builder::NewNode {
  const Division& division;
  uint32_t number;
  uint32_t cells, firsts;                            ///< where they begin
  double steps = 0;                                  ///< from its cells on
  uint32_t first = noSlot;                           ///< of all its cells
  std::map<std::vector<uint32_t>, Made> known = {};  ///< cells with the same images share a leaf
};

Forest::Builder::NewNode Forest::Builder::addNode(const Division& division) {
  budget_ -= std::min(budget_, division.cells.members.size());
  for (const uint32_t member : division.shadowing) forest_.shadowing_[images_[member].slot] = true;
  const auto cells = static_cast<uint32_t>(forest_.cells_.size());
  const auto behind = cells + static_cast<uint32_t>(division.cells.size());
  const NewNode node{division, static_cast<uint32_t>(forest_.nodes_.size()), cells,
                     tree_ > 0 ? behind : Node::noFirsts};
  forest_.nodes_.push_back({{division.mask[0], division.mask[1]},
                            cells,
                            static_cast<uint32_t>(std::popcount(division.mask[1])),
                            node.firsts});
  forest_.cells_.resize(cells + division.cells.size() * entriesPerCell());
  return node;
}

void Forest::Builder::setCell(NewNode& node, size_t cell, uint32_t place, uint32_t first) {
  forest_.cells_[node.cells + cell] = place;
  if (node.firsts != Node::noFirsts) forest_.cells_[node.firsts + cell] = first;
  node.first = std::min(node.first, first);
}

template <class Make>
void Forest::Builder::fill(NewNode& node, size_t cell, const Make& make) {
  const auto inside = node.division.cells[cell];
  const auto [at, isNew] = node.known.try_emplace({inside.begin(), inside.end()});
  if (isNew) {
    at->second = make();
  } else {
    forest_.leaves_.share(at->second.place);
  }
  const Made made = at->second;
  setCell(node, cell, made.place, made.first);
  node.steps += made.steps * node.division.packets[cell];
  // A node is not shared: it divides its images by the packets that come there, which differ.
  if (!(made.place & leafBit)) node.known.erase(at);
}

Forest::Builder::Large Forest::Builder::fillSmallCells(NewNode& node) {
  const Division& division = node.division;
  Large large;
  for (size_t cell = 0; cell < division.cells.size(); ++cell) {
    const auto inside = division.cells[cell];
    if (inside.size() > fullLeaf) {
      large.members += inside.size();
      large.packets += division.packets[cell];
    } else if (inside.empty()) {
      setCell(node, cell, Leaves::empty, noSlot);
    } else {
      fill(node, cell, [&] { return leaf(inside); });
    }
  }
  return large;
}

Forest::Builder::Made Forest::Builder::node(const Division& division, const Region& region, int depth,
                                            size_t bytes) {
  const size_t before = forest_.treeBytes();
  NewNode node = addNode(division);
  Large large = fillSmallCells(node);
  if (depth == 0) forest_.deep_ = large.packets > 0.25;
  // Cells that are too large share the bytes that are left, in proportion to their sizes.
  for (size_t cell = 0; large.members > 0; ++cell) {
    const auto inside = division.cells[cell];
    if (inside.size() <= fullLeaf) continue;
    const size_t left = bytes - std::min(bytes, forest_.treeBytes() - before);
    const double share = static_cast<double>(inside.size()) / static_cast<double>(large.members);
    fill(node, cell,
         [&] { return place(inside, division.regionOf(region, cell), depth + 1, times(share, left)); });
    large.members -= inside.size();
  }
  constexpr double stepsOfANode = 4;
  return {node.number, stepsOfANode + node.steps, node.first};
}

Forest::Builder::Made Forest::Builder::leaf(std::span<const uint32_t> members) {
  chosen_.clear();
  uint32_t first = noSlot;
  for (const uint32_t member : members) {
    chosen_.push_back(images_[member]);
    first = std::min(first, chosen_.back().slot);
  }
  forest_.bounded_ = forest_.bounded_ || members.size() > Leaves::longLeaf;
  return {forest_.leaves_.make(chosen_), stepsIn(members.size()), first};
}

}  // namespace Classify
