#include <Classify/Find.h>
#include <Classify/ForestBuilder.h>

#include <map>
#include <numeric>

namespace Classify {

namespace {

/// What trees and sieves should take together, for each image of the list; and what a sieve may take in any
/// case, for each image of its leaf: what is narrower hardly tells images apart.
constexpr size_t bytesWithSieves = 240, leastBytesOfASieve = 24;

constexpr uint32_t mostPlanted = Forest::strayTree - 1;  // and a last one with what they leave

/// A list of so few images may have more copies of each.
bool isFew(std::span<const Image> images) {
  constexpr size_t few = 2048;
  return images.size() <= few;
}

}  // namespace

Forest::Forest() : gathersAtOnce_(kernels->gathersAtOnce) { build({}, {}, false); }

void Forest::build(std::span<const Image> images, std::span<const uint32_t> sequences, bool wide) {
  // No packet gets to the images behind one that every packet matches.
  const auto everything = std::find_if(images.begin(), images.end(),
                                       [](const Image& image) { return overlap({}, image) == Overlap::all; });
  const bool hides = everything != images.end() && everything + 1 != images.end();
  if (hides) images = {images.begin(), everything + 1};
  const auto begin = [&] {
    clear(sequences.size(), wide);
    if (hides) shadowing_[images.back().slot] = true;
  };
  begin();
  const Images prepared(images);
  Builder builder(*this, prepared, isFew(images) ? ofFew : ofMany, images.size() * bytesPerImage + 4096);
  if (!pays(images.size(), plant(builder, prepared, wantsSeveral(images)))) {
    begin();
    plantOneLeaf(builder, images);
  }
  for (const Image& image : images) {
    for (uint32_t tree = 0; tree < planted_; ++tree) {
      if (plantedIn_[image.slot] >> tree & 1) noteIn(tree, image.slot, sequences[image.slot]);
    }
  }
  chooseAlways(prepared);
  sieveLongLeaves(images.size());
  constexpr size_t someBytes = 65536;
  enoughBytes_ = 2 * treeBytes() + someBytes;
  refreshView();
}

void Forest::clear(size_t slots, bool wide) {
  nodes_.clear();
  cells_.clear();
  leaves_.clear(wide);
  shadowing_.assign(slots, false);
  plantedIn_.assign(slots, 0);
  std::fill(std::begin(bounds_), std::end(bounds_), Bound());
  strays_ = 0;
  bounded_ = false;
  deep_ = false;
  view_ = {};
}

/// One tree is the fastest where most images say much about both addresses; it would have many copies of
/// other images. Where the way through a node is a long loop, one tree is always faster.
bool Forest::wantsSeveral(std::span<const Image> images) const {
  if (images.size() <= fullLeaf) return false;
  size_t specific = 0;
  for (const Image& image : images) specific += saysMuch(image.mask[0]) && saysMuch(image.mask[1]);
  return !isFew(images) || (specific * 10 < images.size() * 7 && gathersAtOnce_);
}

void Forest::plantOneLeaf(Builder& builder, std::span<const Image> images) {
  std::vector<uint32_t> members(images.size());
  std::iota(members.begin(), members.end(), 0);
  for (const Image& image : images) plantedIn_[image.slot] = 1;
  view_.roots[view_.trees++] = builder.leaf(members).place;
  planted_ = 1;
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

/// Only at the end, when it is known which leaves stay, and what is left of the memory for all.
void Forest::sieveLongLeaves(size_t images) {
  if (!bounded_) return;
  std::map<uint32_t, uint32_t> sieves;  // by leaf; cells may share one
  const auto eachLongLeaf = [this](const auto& visit) {
    const auto consider = [&](uint32_t& place) {
      if (place & leafBit && leaves_.size(place) > Leaves::longLeaf) visit(place);
    };
    std::for_each(view_.roots, view_.roots + view_.trees, consider);
    std::for_each(cells_.begin(), cells_.end(), consider);
  };
  size_t members = 0;
  eachLongLeaf(
      [&](uint32_t place) { members += sieves.try_emplace(place, place).second ? leaves_.size(place) : 0; });
  const size_t all = images * bytesWithSieves, left = all - std::min(all, treeBytes());
  const size_t bytesPerMember =
      std::clamp(left / std::max(members, size_t{1}), leastBytesOfASieve, Sieves::mostBytesPerImage);
  for (auto& [leaf, sieve] : sieves) sieve = leaves_.sieved(leaf, bytesPerMember);
  eachLongLeaf([&](uint32_t& place) { place = sieves.at(place); });
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
  while (several && view_.trees < mostPlanted && members.size() > fullLeaf) {
    builder.treeIs(view_.trees);
    Division best = builder.chosen(members);
    if (!best.divides()) break;
    std::sort(best.left.begin(), best.left.end());
    planted(members, best.left);
    const double share = 1 - static_cast<double>(best.left.size()) / static_cast<double>(members.size());
    members = best.left;
    add(builder.node(best, {}, 0, times(share, builder.bytesLeft())));
  }
  planted(members, {});
  builder.treeIs(view_.trees);
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

size_t Forest::bytes() const {
  return treeBytes() + shadowing_.size() / 8 + plantedIn_.size() + spots_.capacity() * sizeof(Spot) +
         regions_.capacity() * sizeof(Region) + passed_.capacity() * sizeof(uint32_t);
}

}  // namespace Classify
