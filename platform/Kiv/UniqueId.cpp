#include <Kiv/UniqueId.h>
#include <Kiv/UniqueIdSeed.h>

#include <algorithm>
#include <atomic>
#include <charconv>

namespace Kiv {

namespace {
constexpr uint64_t generatedBit = uint64_t{1} << 63;
std::atomic<uint64_t> next{1};
}  // namespace

UniqueId::UniqueId(std::string_view text) {
  if (text.empty()) return;
  if (text.size() > 2 && text.size() <= 18 && text.starts_with("0x")) {
    auto [end, error] = std::from_chars(text.data() + 2, text.data() + text.size(), value_, 16);
    const bool whole = error == std::errc() && end == text.data() + text.size();
    if (whole && !empty() && *this != unset()) return;
  }
  uint64_t high = Kelp::hashBytes(text.data(), text.size(), 1);
  uint64_t low = Kelp::hashBytes(text.data(), text.size(), 2);
  value_ = ((high << 32) | low) & ~generatedBit;
  if (value_ == 0) value_ = 1;
}

UniqueId UniqueId::generateUniqueId() {
  return UniqueId(generatedBit | next.fetch_add(1, std::memory_order_relaxed));
}

void generatedIdsFollow(UniqueId last) {
  if ((last.value() & generatedBit) == 0 || last == UniqueId::unset()) return;
  const uint64_t first = (last.value() & ~generatedBit) + 1;
  next.store(std::max(next.load(std::memory_order_relaxed), first), std::memory_order_relaxed);
}

}  // namespace Kiv
