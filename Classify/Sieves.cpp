#include <Classify/Sieves.h>

#include <algorithm>
#include <array>
#include <bit>

namespace Classify {

namespace {

/// Neighbouring bits of a key, counted from the lowest of Key::bits[0] on.
struct Chunk {
  uint32_t at;
  uint32_t width;

  uint32_t values() const { return 1u << width; }
};

constexpr uint32_t thirdAt = 64, pairAt = 96, numberBits = 16, keyBits = 128;

/// The chunks that a sieve may have, each at most `width` bits wide. If `width` allows it, the upper halves
/// of numbers are the widest chunks, because ranges mostly differ there, and the protocol is in one chunk.
std::vector<Chunk> chunksUpTo(uint32_t width) {
  struct Stretch {
    uint32_t end, width;
  };
  constexpr Stretch stretches[] = {{56, 7},  {64, 8},  {88, 6},  {96, 8},
                                   {104, 4}, {112, 8}, {120, 4}, {128, 8}};
  static_assert(std::end(stretches)[-1].end == keyBits);
  const auto roundedUp = [](uint32_t bits, uint32_t by) { return (bits + by - 1) / by; };
  std::vector<Chunk> chunks;
  uint32_t at = 0;
  for (const Stretch& stretch : stretches) {
    uint32_t pieces = roundedUp(stretch.end - at, std::min(width, stretch.width));
    for (; pieces > 0; --pieces) {
      chunks.push_back({at, roundedUp(stretch.end - at, pieces)});
      at += chunks.back().width;
    }
  }
  return chunks;
}

/// The values of a chunk that an image allows: either `first` with any value of the free bits, or all values
/// from `first` up to `behind`.
struct Values {
  uint32_t first = 0;
  uint32_t free = 0;    ///< the bits that may have any value
  uint32_t behind = 0;  ///< one more than the last value; 0: the values are given by free bits

  /// Whether they are all values of the chunk.
  bool areAll(const Chunk& chunk) const { return (behind ? behind - first : free + 1) == chunk.values(); }
  template <class Visit>
  void visit(const Visit& visit) const {
    for (uint32_t value = first; value < behind; ++value) visit(value);
    if (behind) return;
    for (uint32_t some = free;; some = (some - 1) & free) {
      visit(first | some);
      if (some == 0) return;
    }
  }
};

Values valuesUnder(uint64_t mask, uint64_t wanted, const Chunk& chunk) {
  const uint32_t all = chunk.values() - 1, asked = static_cast<uint32_t>(mask) & all;
  return {static_cast<uint32_t>(wanted) & asked, all & ~asked, 0};
}

/// The same for a chunk of a 16-bit number that lies in a range.
Values valuesWithin(uint32_t low, uint32_t high, const Chunk& chunk) {
  const uint32_t at = chunk.at % numberBits, all = chunk.values() - 1;
  if (low >> (at + chunk.width) != high >> (at + chunk.width)) return {0, all, 0};
  return {low >> at & all, 0, (high >> at & all) + 1};
}

Values valuesOfPair(const Image& image, const Chunk& chunk) {
  const uint32_t half = chunk.at & numberBits;
  return valuesWithin(image.pairLow >> half & 0xffff, image.pairHigh >> half & 0xffff, chunk);
}

Values valuesOf(const Image& image, const Chunk& chunk) {
  if (chunk.at >= pairAt) return valuesOfPair(image, chunk);
  if (chunk.at >= thirdAt) {
    const uint32_t at = chunk.at - thirdAt;
    return valuesUnder(image.mask[2] >> at, image.value[2] >> at, chunk);
  }
  const uint64_t mask = uint64_t{image.mask[0]} << 32 | image.mask[1];
  const uint64_t value = uint64_t{image.value[0]} << 32 | image.value[1];
  return valuesUnder(mask >> chunk.at, value >> chunk.at, chunk);
}

constexpr uint32_t widest = 8;

/// How many values some free bits have together.
constexpr auto valuesOfFree = [] {
  std::array<uint16_t, 1 << widest> values{};
  for (uint32_t free = 0; free < values.size(); ++free) values[free] = uint16_t(1 << std::popcount(free));
  return values;
}();

/// Some images of a long leaf, which tell for all of them which chunks exclude the most: that is asked for
/// every width, and would otherwise be most of the time that sieves take.
class Sample {
 public:
  explicit Sample(std::span<const Image> images) : images_(images) {}

  size_t size() const { return std::min(images_.size(), enough); }
  /// Not every so many: rules may come in turns. Steps of the golden section meet all turns alike.
  template <class Visit>
  void visit(const Visit& visit) const {
    const size_t step = images_.size() > enough ? images_.size() * 618 / 1000 | 1 : 1;
    for (size_t i = 0, at = 0; i < size(); ++i, at = (at + step) % images_.size()) visit(images_[at]);
  }

 private:
  static constexpr size_t enough = 512;
  const std::span<const Image> images_;
};

/// For each of the chunks, in the order of the key: how many values images allow, all images together.
std::vector<size_t> allowedValues(const Sample& images, std::span<const Chunk> chunks) {
  std::vector<size_t> allowed(chunks.size());
  images.visit([&](const Image& image) {
    const uint64_t address = ~(uint64_t{image.mask[0]} << 32 | image.mask[1]), third = ~image.mask[2];
    size_t i = 0;
    for (; i < chunks.size() && chunks[i].at < thirdAt; ++i)
      allowed[i] += valuesOfFree[address >> chunks[i].at & (chunks[i].values() - 1)];
    for (; i < chunks.size() && chunks[i].at < pairAt; ++i)
      allowed[i] += valuesOfFree[third >> (chunks[i].at - thirdAt) & (chunks[i].values() - 1)];
    for (; i < chunks.size(); ++i) {
      const Values values = valuesOfPair(image, chunks[i]);
      allowed[i] += values.behind ? values.behind - values.first : chunks[i].values();
    }
  });
  return allowed;
}

/// Of the chunks that are at most so wide, those that exclude the most images; in the order of the key.
std::vector<Chunk> bestChunks(const Sample& images, uint32_t width) {
  const double worthIt = static_cast<double>(images.size()) / 64;
  const std::vector<Chunk> all = chunksUpTo(width);
  const std::vector<size_t> allowed = allowedValues(images, all);
  std::vector<std::pair<double, Chunk>> found;
  for (size_t i = 0; i < all.size(); ++i) {
    const Chunk& chunk = all[i];
    const double denied =
        static_cast<double>(images.size()) - static_cast<double>(allowed[i]) / chunk.values();
    if (denied > worthIt) found.emplace_back(denied, chunk);
  }
  std::sort(found.begin(), found.end(), [](const auto& a, const auto& b) { return a.first > b.first; });
  found.resize(std::min<size_t>(found.size(), Sieve::maxChunks));
  std::vector<Chunk> chunks;
  for (const auto& [denied, chunk] : found) chunks.push_back(chunk);
  std::sort(chunks.begin(), chunks.end(), [](const Chunk& a, const Chunk& b) { return a.at < b.at; });
  return chunks;
}

/// The same, as wide as memory allows: wider chunks are fewer, and a look-up fetches a row for each.
std::vector<Chunk> chunksFor(std::span<const Image> images, size_t groups, size_t bytesPerImage) {
  for (uint32_t width = widest; width > 0; --width) {
    std::vector<Chunk> chunks = bestChunks(Sample(images), width);
    size_t rows = 1;
    for (const Chunk& chunk : chunks) rows += chunk.values();
    if (groups * rows * sizeof(Row) <= images.size() * bytesPerImage) return chunks;
  }
  return {};  // few images, which need no sieve
}

/// Whether a packet matches every image that no chunk excludes: all bits that images ask for are in chunks.
bool isExact(std::span<const Image> images, const std::vector<Chunk>& chunks) {
  uint64_t seen[2] = {0, 0};
  for (const Chunk& chunk : chunks) seen[chunk.at / 64] |= uint64_t{chunk.values() - 1} << chunk.at % 64;
  return std::all_of(images.begin(), images.end(), [&seen](const Image& image) {
    const uint64_t addresses = uint64_t{image.mask[0]} << 32 | image.mask[1];
    return (addresses & ~seen[0]) == 0 && (image.mask[2] & ~seen[1]) == 0 && image.pairLow == 0 &&
           image.pairHigh == 0xffffffff && image.quad == 0;
  });
}

constexpr uint32_t rowBits = std::countr_zero(sizeof(Row));

/// A chunk in the form that a look-up reads, and back again.
Sieve::Chunk packed(const Chunk& chunk, uint32_t firstRow) {
  return {firstRow * static_cast<uint32_t>(sizeof(Row)),
          static_cast<uint16_t>((chunk.values() - 1) << rowBits),
          static_cast<uint8_t>((chunk.at + 64 - rowBits) % 64)};
}
Chunk unpacked(const Sieve::Chunk& chunk, uint32_t word) {
  return {64 * word + (chunk.turn + rowBits) % 64, static_cast<uint32_t>(std::popcount(chunk.mask))};
}

void add(Row& row, size_t image) { row.bits[image / 64] |= uint64_t{1} << image % 64; }
void remove(Row& row, size_t image) { row.bits[image / 64] &= ~(uint64_t{1} << image % 64); }
void add(Row& row, const Row& images) {
  for (size_t i = 0; i < std::size(row.bits); ++i) row.bits[i] |= images.bits[i];
}

/// Fills the rows of a chunk, one a value, with the images of a group.
void fill(Row* rows, std::span<const Image> images, const Chunk& chunk) {
  Row free{};  // the images that allow every value: many do, and each has as many values as there are
  for (size_t bit = 0; bit < images.size(); ++bit) {
    const Values values = valuesOf(images[bit], chunk);
    if (values.areAll(chunk)) {
      add(free, bit);
    } else {
      values.visit([rows, bit](uint32_t value) { add(rows[value], bit); });
    }
  }
  for (uint32_t value = 0; value < chunk.values(); ++value) add(rows[value], free);
}

}  // namespace

void Sieves::clear() {
  sieves_.clear();
  rows_.clear();
}

uint32_t Sieves::make(std::span<const Image> images, uint32_t leaf, size_t bytesPerImage) {
  const size_t groups = (images.size() + Row::images - 1) / Row::images;
  const std::vector<Chunk> chunks = chunksFor(images, groups, bytesPerImage);
  if (chunks.empty()) return none;
  Sieve sieve{};
  sieve.leaf = leaf;
  sieve.rows = static_cast<uint32_t>(rows_.size());
  sieve.groups = static_cast<uint32_t>(groups);
  sieve.rowsPerGroup = 1;
  uint32_t count = 0;
  for (const Chunk& chunk : chunks) {
    sieve.chunk[count++] = packed(chunk, sieve.rowsPerGroup);
    sieve.rowsPerGroup += chunk.values();
    if (chunk.at < 64) sieve.ends[0] = count;
  }
  sieve.ends[1] = count;
  sieve.exact = isExact(images, chunks);
  rows_.resize(rows_.size() + size_t{sieve.groups} * sieve.rowsPerGroup);
  for (size_t group = 0; group < groups; ++group) {
    Row* row = &rows_[sieve.rows + group * sieve.rowsPerGroup];
    const auto members = images.subspan(group * Row::images)
                             .first(std::min<size_t>(Row::images, images.size() - group * Row::images));
    for (size_t bit = 0; bit < members.size(); ++bit) add(*row, bit);
    ++row;
    for (const Chunk& chunk : chunks) {
      fill(row, members, chunk);
      row += chunk.values();
    }
  }
  sieves_.push_back(sieve);
  return static_cast<uint32_t>(sieves_.size() - 1);
}

/// No packet gets past the first row then, whatever the others say.
void Sieves::erase(uint32_t number, uint32_t lane) {
  remove(*groupOf(sieves_[number], lane), lane % Row::images);
}

void Sieves::insert(uint32_t number, uint32_t lane, const Image& image) {
  Sieve& sieve = sieves_[number];
  std::vector<Chunk> chunks;
  chunks.reserve(Sieve::maxChunks);  // from here on nothing can fail
  Row* const group = groupOf(sieve, lane);
  const size_t bit = lane % Row::images;
  add(*group, bit);
  for (uint32_t i = 0; i < sieve.ends[1]; ++i) {
    const Chunk& chunk = chunks.emplace_back(unpacked(sieve.chunk[i], i < sieve.ends[0] ? 0 : 1));
    Row* const rows = group + sieve.chunk[i].rows / sizeof(Row);
    for (uint32_t value = 0; value < chunk.values(); ++value) remove(rows[value], bit);
    valuesOf(image, chunk).visit([rows, bit](uint32_t value) { add(rows[value], bit); });
  }
  sieve.exact = sieve.exact && isExact({&image, 1}, chunks);
}

}  // namespace Classify
